#include "harness/host.h"

#include <stdexcept>
#include <thread>

#include "harness/desk_types.h"
#include "harness/words.h"

namespace corvalint::harness {

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{20};

// The first whole line from `start` on that is a JSON object; moves `start` behind it.
std::optional<std::string> NextJsonLine(const std::string& text, std::size_t& start) {
  std::size_t position = start;
  for (;;) {
    const std::size_t end = text.find('\n', position);
    if (end == std::string::npos) return std::nullopt;
    std::string line = text.substr(position, end - position);
    position = end + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line.front() != '{') continue;
    start = position;
    return line;
  }
}

template <typename Look>
bool LookUntil(Look look, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!look()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

}  // namespace

Host::Host(const Process::Setup& setup) : process(setup) {}

bool Host::WaitUntilReady(std::chrono::milliseconds limit) {
  const std::lock_guard hold(turn);
  if (ready) return true;
  ready = process.WaitForErrors(
      [this](const std::string& text) {
        std::size_t position = answersAt;
        return NextJsonLine(text, position).has_value();
      },
      limit);
  if (ready) NextJsonLine(process.Errors(), answersAt);
  return ready;
}

Json Host::Ask(const std::string& command, std::chrono::milliseconds limit) {
  if (!WaitUntilReady(limit)) {
    throw std::runtime_error("the host did not become ready: " + process.Errors());
  }
  const std::lock_guard hold(turn);
  std::optional<std::string> line;
  if (!process.Write(command + "\n")) throw std::runtime_error("the host is gone: " + command);
  process.WaitForErrors(
      [&](const std::string& text) {
        if (!line) line = NextJsonLine(text, answersAt);
        return line.has_value();
      },
      limit);
  if (!line) throw std::runtime_error("no answer to " + command + ": " + process.Errors());
  return Json::parse(*line);
}

std::vector<Endpoint> Host::List(const std::string& which) {
  const Json answer = Ask(which);
  if (!answer.contains(which)) throw std::runtime_error("no list: " + answer.dump());
  std::vector<Endpoint> endpoints;
  for (const Json& entry : answer.at(which)) {
    Endpoint endpoint;
    endpoint.position = entry.at("position").get<std::int64_t>();
    endpoint.id = entry.at("id").get<std::int32_t>();
    const Bytes name = BytesFromHex(entry.at("nameHex").get<std::string>());
    endpoint.name.assign(name.begin(), name.end());
    endpoint.on = entry.at("on").get<bool>();
    endpoint.available = entry.at("available").get<bool>();
    endpoints.push_back(endpoint);
  }
  return endpoints;
}

std::vector<Endpoint> Host::Sources() { return List("sources"); }

std::vector<Endpoint> Host::Destinations() { return List("destinations"); }

std::optional<Endpoint> Host::WaitForEndpoint(const std::string& which, std::string_view name,
                                              std::chrono::milliseconds limit) {
  std::optional<Endpoint> found;
  LookUntil(
      [&] {
        for (const Endpoint& endpoint : List(which)) {
          if (endpoint.name == name) found = endpoint;
        }
        return found.has_value();
      },
      limit);
  return found;
}

std::optional<Endpoint> Host::WaitForSource(std::string_view name,
                                            std::chrono::milliseconds limit) {
  return WaitForEndpoint("sources", name, limit);
}

std::optional<Endpoint> Host::WaitForDestination(std::string_view name,
                                                 std::chrono::milliseconds limit) {
  return WaitForEndpoint("destinations", name, limit);
}

Json Host::ToggleSource(std::int32_t id) { return Ask("toggle-source " + std::to_string(id)); }

Json Host::ToggleDestination(std::int32_t id) {
  return Ask("toggle-destination " + std::to_string(id));
}

std::int64_t Host::Clients() { return Ask("clients").at("clients").get<std::int64_t>(); }

bool Host::WaitForClients(std::int64_t count, std::chrono::milliseconds limit) {
  return LookUntil([&] { return Clients() == count; }, limit);
}

std::string Host::Console() { return process.Output(); }

bool Host::WaitForConsole(std::string_view text, std::chrono::milliseconds limit) {
  return process.WaitForOutput(
      [text](const std::string& all) { return all.find(text) != std::string::npos; }, limit);
}

std::string Host::Notes() {
  std::string notes;
  const std::string errors = process.Errors();
  for (const auto line : Words(errors, '\n')) {
    if (!line.empty() && line.front() != '{') notes.append(line).append("\n");
  }
  return notes;
}

std::optional<int> Host::Quit(std::chrono::milliseconds limit) {
  process.Write("quit\n");
  process.CloseInput();
  return process.WaitForExit(limit);
}

}  // namespace corvalint::harness

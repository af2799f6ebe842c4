#include "host/evidence.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <functional>
#include <utility>

namespace corvalint::host {
namespace {

constexpr std::uint32_t kConnected = 0;
constexpr std::uint32_t kConnectedAnyway = 0xE8000065;
constexpr std::size_t kLongestLine = 8192;

// Calls `take` with each whole line, without its line end.
void ForEachLine(std::string_view text, const std::function<void(std::string_view)>& take) {
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    take(line);
    text.remove_prefix(end + 1);
  }
}

// What follows `lead` in the line; empty if the line does not contain it.
std::optional<std::string_view> Behind(std::string_view line, std::string_view lead) {
  const std::size_t place = line.find(lead);
  if (place == std::string_view::npos) return std::nullopt;
  return line.substr(place + lead.size());
}

// The number at the beginning of the text.
std::optional<std::uint32_t> NumberAt(std::string_view text, int base) {
  std::uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc()) return std::nullopt;
  return number;
}

void TakeLogLine(Evidence& evidence, std::string_view line) {
  if (auto rest = Behind(line, " INFO Subscribed for notifications: ")) {
    evidence.subscribed = NumberAt(*rest, 10);
  } else if (auto arrived = Behind(line, " INFO Device connected: ")) {
    evidence.devices.emplace_back(*arrived);
  } else if (auto departed = Behind(line, " INFO Device disconnected: ")) {
    const auto device = std::ranges::find(evidence.devices, *departed);
    if (device != evidence.devices.end()) evidence.devices.erase(device);
  } else if (auto result = Behind(line, " DEBUG AMDeviceConnect() = 0x")) {
    evidence.connectResult = NumberAt(*result, 16);
  } else if (auto refused = Behind(line, " ERROR USBMuxConnectByPort = ")) {
    evidence.streamResult = NumberAt(*refused, 16);
  } else if (Behind(line, " INFO USBMuxConnectByPort OK")) {
    evidence.streamOpened = true;
  }
}

// "SIDE NAME" of a line such as "receiving add_remote_source: NAME || ID".
std::optional<std::string> EndpointOf(std::string_view line, std::string_view verb) {
  for (const char* side : {"source", "destination"}) {
    const auto rest = Behind(line, "receiving " + std::string(verb) + "_remote_" + side + ": ");
    if (!rest) continue;
    return std::string(side) + " \"" + std::string(rest->substr(0, rest->rfind(" || "))) + '"';
  }
  return std::nullopt;
}

void AddOnce(std::vector<std::string>& words, std::string word) {
  if (std::ranges::find(words, word) == words.end()) words.push_back(std::move(word));
}

}  // namespace

void ConsoleReader::Take(std::string_view text) {
  unfinished += text;
  const std::size_t end = unfinished.rfind('\n');
  if (end != std::string::npos) {
    ForEachLine(std::string_view(unfinished).substr(0, end + 1),
                [this](std::string_view line) { TakeLine(line); });
    unfinished.erase(0, end + 1);
  }
  // Answers about on and off are printed without line ends, in front of the next line.
  if (unfinished.size() > kLongestLine) unfinished.erase(0, unfinished.size() - kLongestLine);
}

void ConsoleReader::TakeLine(std::string_view line) {
  if (auto added = EndpointOf(line, "add")) {
    AddOnce(announced, *added);
  } else if (auto removed = EndpointOf(line, "remove")) {
    std::erase(announced, *removed);
  } else if (auto arrived = Behind(line, "Device connected: ")) {
    AddOnce(devices, std::string(*arrived));
  } else if (auto departed = Behind(line, "Device disconnected: ")) {
    std::erase(devices, *departed);
  }
}

Evidence ReadEvidence(std::string_view log, std::string_view console) {
  Evidence evidence;
  ForEachLine(log, [&](std::string_view line) { TakeLogLine(evidence, line); });
  ConsoleReader reader;
  reader.Take(console);
  evidence.announced = reader.Announced();
  return evidence;
}

bool IsUsableConnection(std::uint32_t connectResult) {
  return connectResult == kConnected || connectResult == kConnectedAnyway;
}

}  // namespace corvalint::host

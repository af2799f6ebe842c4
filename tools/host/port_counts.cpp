#include "host/port_counts.h"

#include <algorithm>
#include <utility>

#include "host/words.h"

namespace corvalint::host {

void PortCounts::Look(const std::vector<Endpoint>& sources, std::int64_t second) {
  if (!system.listInputs) return;
  for (auto& [bytes, port] : ports) Count(port, second);
  if (looks++ % kLooksPerList == 0) ReadList(sources, second);
}

void PortCounts::ReadList(const std::vector<Endpoint>& sources, std::int64_t second) {
  const std::vector<MidiInput> inputs = system.listInputs();
  std::map<std::string, std::vector<std::size_t>> missing;  // numbers of inputs by the name
  for (std::size_t number = 0; number < inputs.size(); ++number) {
    const std::string& bytes = inputs[number].nameBytes;
    const bool listed = std::ranges::find(sources, bytes, &Endpoint::nameBytes) != sources.end();
    if (!bytes.empty() && !listed) missing[bytes].push_back(number);
  }
  for (auto entry = ports.begin(); entry != ports.end();) {
    const auto found = missing.find(entry->first);
    const bool same = found != missing.end() && found->second.size() == entry->second.inputs;
    if (same && std::ranges::all_of(entry->second.ears, &InputEar::Alive)) {
      ++entry;
      continue;
    }
    EndSecond(entry->second);
    entry = ports.erase(entry);
  }
  for (const auto& [bytes, numbers] : missing) {
    const MidiInput& input = inputs[numbers.front()];
    Port& port = ports[bytes];
    port.name = input.name;
    port.inputs = numbers.size();
    if (++port.listed == kListsToSettle) Open(port, numbers, input, second);
  }
}

void PortCounts::Open(Port& port, const std::vector<std::size_t>& numbers, const MidiInput& input,
                      std::int64_t second) {
  for (std::size_t number : numbers) {
    std::unique_ptr<InputEar> ear = system.openInput(number, input);
    if (ear == nullptr) {
      // The list has changed meanwhile: this is tried again with the next one.
      --port.listed;
      port.ears.clear();
      return;
    }
    port.refused = ear->Refused();
    if (port.refused != 0) {
      // The sum would be wrong without this one.
      news.push_back({port.name, second, 0, port.refused});
      port.ears.clear();
      return;
    }
    port.ears.push_back(std::move(ear));
  }
}

void PortCounts::Count(Port& port, std::int64_t second) {
  std::uint64_t heard = 0;
  for (const std::unique_ptr<InputEar>& ear : port.ears) heard += ear->Messages();
  if (port.second != second) EndSecond(port);
  port.second = second;
  port.inSecond += heard - port.heard;
  port.history.Add(second, static_cast<std::size_t>(heard - port.heard));
  port.heard = heard;
}

void PortCounts::EndSecond(Port& port) {
  const std::uint64_t messages = std::exchange(port.inSecond, 0);
  if (messages > 0) news.push_back({port.name, port.second, messages, 0});
}

std::vector<PortNews> PortCounts::TakeNews(bool toTheEnd) {
  if (toTheEnd) {
    for (auto& [bytes, port] : ports) EndSecond(port);
  }
  return std::exchange(news, {});
}

std::vector<PortRate> PortCounts::Rates(std::int64_t second) const {
  std::vector<PortRate> rates;
  for (const auto& [bytes, port] : ports) {
    if (port.ears.empty() && port.refused == 0) continue;
    // The running second is not over, so its number would be too small.
    rates.push_back({port.name, port.refused == 0, port.history.PerSecond(second - 1)});
  }
  return rates;
}

std::string NewsText(const PortNews& news) {
  const std::string port = " at \"" + news.name + "\"";
  if (news.refused != 0) {
    return "messages" + port + " cannot be counted: its input cannot be opened (result " +
           std::to_string(news.refused) + ")";
  }
  return Counted(news.messages, "message") + port;
}

}  // namespace corvalint::host

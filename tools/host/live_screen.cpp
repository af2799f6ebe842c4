#include "host/live_screen.h"

#include <algorithm>
#include <numeric>

#include "host/words.h"

namespace corvalint::host {
namespace {

constexpr int kWideColumns = 40;  // a screen narrower than that shows no time and fewer seconds
constexpr std::size_t kNumberColumns = 5;

// The next character of the text, which is valid UTF-8 or is taken byte by byte.
struct Character {
  char32_t code = 0;
  std::size_t bytes = 1;
};

Character CharacterAt(std::string_view text, std::size_t place) {
  const auto lead = static_cast<unsigned char>(text[place]);
  const std::size_t bytes = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (bytes == 1 || place + bytes > text.size()) return {lead, 1};
  char32_t code = lead & (0x7Fu >> bytes);
  for (std::size_t index = 1; index < bytes; ++index) {
    code = code << 6 | (static_cast<unsigned char>(text[place + index]) & 0x3Fu);
  }
  return {code, bytes};
}

int WidthOf(char32_t code) {
  const bool combining = (code >= 0x300 && code <= 0x36F) || (code >= 0x200B && code <= 0x200F);
  if (combining) return 0;
  const bool wide = (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
                    (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
                    (code >= 0xFE30 && code <= 0xFE6F) || (code >= 0xFF00 && code <= 0xFF60) ||
                    (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x1F300 && code <= 0x1FAFF) ||
                    (code >= 0x20000 && code <= 0x3FFFD);
  return wide ? 2 : 1;
}

void AddSide(std::vector<std::string>& lines, const char* title,
             const std::vector<Endpoint>& endpoints) {
  lines.push_back(std::string(title) + (endpoints.empty() ? ": none" : ""));
  for (const Endpoint& endpoint : endpoints) {
    const char* const mark = endpoint.on ? " on  " : endpoint.available ? " off " : " !   ";
    lines.push_back(mark + endpoint.name);
  }
}

// A row for each port: the last second's messages, those of the seconds before as blocks, the name.
void AddPorts(std::vector<std::string>& lines, const std::vector<PortRate>& ports, int columns) {
  if (ports.empty()) return;
  const bool wide = columns >= kWideColumns;
  lines.push_back(wide ? "MIDI messages per second" : "MIDI per second");
  const std::size_t seconds = wide ? 20 : 6;
  bool allCounted = true;
  for (const PortRate& port : ports) {
    allCounted = allCounted && port.counted;
    const bool known = port.counted && !port.perSecond.empty();
    std::string number = known ? std::to_string(port.perSecond.back()) : "-";
    number.insert(0, kNumberColumns - std::min(kNumberColumns, number.size()), ' ');
    std::vector<std::size_t> shown(seconds, 0);
    if (known) shown = port.perSecond;
    lines.push_back(number + " " + Sparkline(shown, seconds) + " " + port.name);
  }
  if (!allCounted) lines.push_back(" - cannot be opened");
}

// The words stand on one line if the screen is wide enough, else on two.
void AddTitle(std::vector<std::string>& lines, const LiveState& state, int columns) {
  const std::string devices = Counted(state.devices, "device");
  lines.push_back(columns < kWideColumns ? devices : devices + "   " + state.time);
  const std::size_t sum =
      std::accumulate(state.changes.begin(), state.changes.end(), std::size_t{0});
  std::string counted = columns < kWideColumns ? "changes " : "list changes in a minute: ";
  counted += std::to_string(sum) + " ";
  const int room = columns - DisplayWidth(counted);
  lines.push_back(counted + Sparkline(state.changes, static_cast<std::size_t>(std::max(room, 0))));
}

}  // namespace

void SecondHistory::Add(std::int64_t second, std::size_t count) {
  if (!seconds.empty() && second < seconds.back().second) seconds.clear();
  if (seconds.empty() || second > seconds.back().second) seconds.push_back({second, 0});
  seconds.back().count += count;
  while (second - seconds.front().second >= static_cast<std::int64_t>(kSeconds))
    seconds.pop_front();
}

std::vector<std::size_t> SecondHistory::PerSecond(std::int64_t now) const {
  std::vector<std::size_t> values(kSeconds, 0);
  for (const Second& entry : seconds) {
    const std::int64_t age = now - entry.second;
    if (age < 0 || age >= static_cast<std::int64_t>(kSeconds)) continue;
    values[kSeconds - 1 - static_cast<std::size_t>(age)] = entry.count;
  }
  return values;
}

std::vector<std::string> RenderLive(const LiveState& state, int columns, int rows) {
  std::vector<std::string> lines;
  AddTitle(lines, state, columns);
  for (const std::string& identifier : state.identifiers) lines.push_back(" " + identifier);
  if (!state.announced.empty()) lines.push_back("From apps");
  for (const std::string& endpoint : state.announced) lines.push_back(" " + endpoint);
  AddPorts(lines, state.ports, columns);
  AddSide(lines, "Sources", state.listing.sources);
  AddSide(lines, "Destinations", state.listing.destinations);
  lines.push_back("Ctrl-C ends");
  const std::size_t room = static_cast<std::size_t>(std::max(rows, 0));
  if (lines.size() > room) {
    const std::size_t hidden = lines.size() - room + 1;
    lines.resize(room);
    if (room > 0) lines.back() = std::to_string(hidden) + " more lines";
  }
  for (std::string& line : lines) line = CutToWidth(line, columns);
  return lines;
}

std::string Sparkline(const std::vector<std::size_t>& values, std::size_t columns) {
  const std::size_t count = std::min(values.size(), columns);
  const auto first = values.end() - static_cast<std::ptrdiff_t>(count);
  const std::size_t highest = count == 0 ? 0 : *std::max_element(first, values.end());
  std::string line;
  for (auto value = first; value != values.end(); ++value) {
    if (*value == 0) {
      line += ' ';
      continue;
    }
    // From U+2581, an eighth, to U+2588, the whole.
    const auto eighths = static_cast<unsigned>((*value * 8 + highest - 1) / highest);
    line += "\xE2\x96";
    line += static_cast<char>(0x80 + eighths);
  }
  return line;
}

int DisplayWidth(std::string_view text) {
  int width = 0;
  for (std::size_t place = 0; place < text.size();) {
    const Character character = CharacterAt(text, place);
    width += WidthOf(character.code);
    place += character.bytes;
  }
  return width;
}

std::string CutToWidth(std::string_view text, int columns) {
  if (DisplayWidth(text) <= columns) return std::string(text);
  if (columns <= 0) return {};
  int width = 0;
  std::size_t place = 0;
  while (place < text.size()) {
    const Character character = CharacterAt(text, place);
    if (width + WidthOf(character.code) > columns - 1) break;
    width += WidthOf(character.code);
    place += character.bytes;
  }
  return std::string(text.substr(0, place)) + "~";
}

}  // namespace corvalint::host

#include "windows/support/observers.h"

#include <algorithm>
#include <atomic>
#include <regex>
#include <stdexcept>

#include "windows/support/bridge.h"

namespace corvalint::windows_test {

namespace {

constexpr std::int64_t kNanosecondsPerTick = 100;
constexpr std::int64_t kTicksPerSecond = 10000000;

bool IsFoundAgain(std::string_view line) {
  return line.starts_with("NOT a virtual source: ") || line.starts_with("virtual source: ") ||
         line.starts_with("is virtual destination: ");
}

constexpr std::uint32_t kFirstMark = 4000000000;
constexpr std::string_view kAnyMark = "notification(40000";
constexpr std::string_view kEndOfMark = "invalid product id";

std::string MarkLine(std::uint32_t number) {
  return "notification(" + std::to_string(number) + ")\r\n";
}

// The whole lines of the text without marks and without those of scans that changed nothing.
// Standard output is in text mode, so each line feed has become CR LF.
std::string OwnLines(std::string_view text) {
  constexpr std::string_view kLineEnd = "\r\n";
  std::string kept;
  bool inMark = false;
  for (std::size_t end; (end = text.find(kLineEnd)) != std::string_view::npos;) {
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + kLineEnd.size());
    const bool endsMark = inMark && line == kEndOfMark;
    const bool beginsMark = line.starts_with(kAnyMark);
    inMark = beginsMark || (inMark && !endsMark);
    if (!beginsMark && !endsMark && !IsFoundAgain(line)) kept.append(line).append("\n");
  }
  return kept;
}

// The address at the beginning of a frame's packet.
std::string_view AddressOf(const device::Bytes& frame) {
  const auto* begin = reinterpret_cast<const char*>(frame.data()) + device::kFrameHeaderSize;
  const std::string_view packet(begin, frame.size() - device::kFrameHeaderSize);
  return packet.substr(0, packet.find('\0'));
}

}  // namespace

ConsoleView::ConsoleView(harness::Desk& observedDesk) : desk(observedDesk) { Restart(); }

void ConsoleView::Settle() const {
  static std::atomic<std::uint32_t> lastMark{kFirstMark};
  const std::uint32_t number = ++lastMark;
  desk.Control().Notify("null", number);
  const bool seen = desk.GetHost().GetProcess().WaitForOutput(
      [line = MarkLine(number)](const std::string& all) {
        const std::size_t mark = all.find(line);
        return mark != std::string::npos &&
               all.find("invalid product id\r\n", mark) != std::string::npos;
      },
      kPatience);
  if (!seen) throw std::runtime_error("the library does not print any more");
}

void ConsoleView::Restart() {
  Settle();
  start = desk.GetHost().Console().size();
}

std::string ConsoleView::Text() const {
  Settle();
  const std::string all = desk.GetHost().Console();
  return OwnLines(std::string_view(all).substr(start));
}

std::string ConsoleView::After(std::string_view expected) const {
  desk.GetHost().GetProcess().WaitForOutput(
      [&](const std::string& all) {
        return OwnLines(std::string_view(all).substr(start)).size() >= expected.size();
      },
      kPatience);
  return Text();
}

std::vector<LogLine> LinesOf(std::string_view log) {
  static const std::regex form(
      R"(\d{4}-[01]\d-[0-3]\d [0-2]\d:[0-5]\d:[0-5]\d \[(\d+)\] (ERROR|WARN|INFO|DEBUG) ([^]*))");
  std::vector<LogLine> lines;
  for (std::size_t end; (end = log.find('\n')) != std::string_view::npos;) {
    const std::string line(log.substr(0, end));
    std::smatch parts;
    if (std::regex_match(line, parts, form)) {
      lines.push_back({static_cast<std::uint32_t>(std::stoul(parts[1])), parts[2], parts[3]});
    } else {
      lines.push_back({0, "?", line});
    }
    log.remove_prefix(end + 1);
  }
  if (!log.empty()) lines.push_back({0, "?", std::string(log) + " (no line end)"});
  return lines;
}

std::vector<std::string> TextsOf(const std::vector<LogLine>& lines, std::size_t from) {
  std::vector<std::string> texts;
  for (std::size_t i = from; i < lines.size(); ++i) {
    texts.push_back(lines[i].level + " " + lines[i].message);
  }
  return texts;
}

std::vector<harness::CallEntry> CallsTo(harness::DeskControl& control,
                                        const std::vector<std::string>& functions) {
  std::vector<harness::CallEntry> calls = control.Calls();
  std::erase_if(calls, [&](const harness::CallEntry& call) {
    return std::find(functions.begin(), functions.end(), call.function) == functions.end();
  });
  return calls;
}

std::vector<std::string> NamesOf(const std::vector<harness::CallEntry>& calls) {
  std::vector<std::string> names;
  for (const harness::CallEntry& call : calls) names.push_back(call.function);
  return names;
}

std::vector<device::Bytes> FramesTo(const device::SimulatedDevice& app, std::string_view address) {
  std::vector<device::Bytes> found;
  for (const device::ReceivedFrame& frame : app.Record().Frames()) {
    if (AddressOf(frame.bytes) == address) found.push_back(frame.bytes);
  }
  return found;
}

bool WaitForMessagesTo(const device::SimulatedDevice& app, std::string_view address,
                       std::size_t count) {
  return app.Record().WaitFor(
      [&](const device::DeviceRecord::Messages& messages) {
        return static_cast<std::size_t>(
                   std::count_if(messages.begin(), messages.end(), [&](const auto& received) {
                     return received.message.address == address;
                   })) >= count;
      },
      kPatience);
}

TickWindow::TickWindow(harness::DeskControl& deskControl)
    : control(deskControl), first(deskControl.Ping() / kNanosecondsPerTick), last(first) {}

void TickWindow::Close() { last = control.Ping() / kNanosecondsPerTick; }

std::int64_t TickWindow::HostTimeAt(std::int64_t tick) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(tick) * 1000000000u) /
         kTicksPerSecond;
}

}  // namespace corvalint::windows_test

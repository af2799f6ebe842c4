#include "demo/osc_dump.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include "demo/osc_messages.h"
#include "demo/waiting.h"
#include "device/raw_time.h"

namespace corvalint::demo {

namespace {

constexpr std::string_view kMark = "/read";
constexpr std::chrono::milliseconds kBetweenLooks{100};

device::OscMessage Mark(std::int32_t number) { return {std::string(kMark), "i", {number}}; }

}  // namespace

OscDump::OscDump()
    : port(FreeUdpPort()),
      process(
          {.command = {"oscdump", "-L", std::to_string(port)}, .environment = {}, .directory = {}}),
      reader([this] { Read(); }) {
  try {
    Flush();
  } catch (...) {
    process.Kill();
    reader.join();
    throw;
  }
}

OscDump::~OscDump() {
  process.Kill();
  reader.join();
}

void OscDump::Flush() {
  Await("oscdump to print what it is sent", [this](std::chrono::milliseconds time) {
    const device::OscMessage mark = Mark(++marks);
    socket.Send(port, device::EncodeMessage(mark));
    std::unique_lock hold(mutex);
    changed.wait_for(hold, time, [&] { return ended || lastMark == DumpLine(mark); });
    if (!ended) return lastMark == DumpLine(mark);
    hold.unlock();
    CheckInterrupted();
    const std::optional<int> code = process.WaitForExit();
    throw std::runtime_error("oscdump (package liblo-tools) has ended, code " +
                             std::to_string(code.value_or(-1)) + " " + process.Errors());
  });
}

std::size_t OscDump::Count() {
  const std::lock_guard hold(mutex);
  return lines.size();
}

std::vector<OscDump::Line> OscDump::Lines() {
  const std::lock_guard hold(mutex);
  return lines;
}

void OscDump::Forget() {
  const std::lock_guard hold(mutex);
  lines.clear();
}

void OscDump::Read() {
  for (bool running = true; running;) {
    running = process.Running();  // asked first: what was printed until then is read below
    std::string fresh;
    process.WaitForOutput(
        [&](const std::string& all) {
          fresh.append(all, seen, std::string::npos);
          seen = all.size();
          return !fresh.empty();
        },
        kBetweenLooks);
    if (!fresh.empty()) Take(fresh, device::RawNow());
  }
  const std::lock_guard hold(mutex);
  ended = true;
  changed.notify_all();
}

void OscDump::Take(const std::string& text, std::int64_t ns) {
  partialLine += text;
  const std::lock_guard hold(mutex);
  std::size_t start = 0;
  for (std::size_t end = 0; (end = partialLine.find('\n', start)) != std::string::npos;) {
    std::string line = WithoutTime(partialLine.substr(start, end - start));
    start = end + 1;
    if (line.starts_with(kMark)) {
      lastMark = std::move(line);
    } else {
      lines.push_back({ns, std::move(line)});
    }
  }
  partialLine.erase(0, start);
  changed.notify_all();
}

}  // namespace corvalint::demo

#include "demo/progress.h"

#include <ostream>
#include <utility>

#include "demo/table.h"

namespace corvalint::demo {

namespace {

constexpr std::chrono::milliseconds kTerminalPace{100};
constexpr std::chrono::milliseconds kPlainPace{2000};

}  // namespace

Progress::Progress(std::ostream& stream, bool isTerminal, std::function<Time()> clock)
    : out(stream), terminal(isTerminal), now(std::move(clock)) {}

void Progress::Line(const std::string& text) {
  Erase();
  out << text << std::endl;
}

void Progress::Begin(const std::string& what, std::size_t expected) {
  step = what;
  total = expected;
  shown = now();
  if (!terminal) return;
  out << step << std::flush;
  open = true;
}

bool Progress::Due() const { return now() - shown >= (terminal ? kTerminalPace : kPlainPace); }

void Progress::Update(std::size_t sent, std::size_t arrived) {
  shown = now();
  Erase();
  out << step << Grouped(sent) << " sent, " << Grouped(arrived) << " of " << Grouped(total)
      << " arrived";
  if (terminal) {
    out << std::flush;
    open = true;
  } else {
    out << std::endl;
  }
}

void Progress::End(const std::string& result) {
  Line(step + result);
  step.clear();
}

void Progress::Abandon() {
  if (open) out << std::endl;
  open = false;
}

void Progress::Erase() {
  if (open) out << "\r\x1b[K";
  open = false;
}

}  // namespace corvalint::demo

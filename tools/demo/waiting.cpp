#include "demo/waiting.h"

#include <csignal>
#include <stdexcept>

namespace corvalint::demo {

namespace {

constexpr std::chrono::milliseconds kShortly{100};
constexpr std::chrono::seconds kLongest{20};

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

void NoteInterrupts() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(number, [](int) { interrupted = 1; });
  }
}

bool WasInterrupted() { return interrupted != 0; }

void CheckInterrupted() {
  if (WasInterrupted()) throw Interrupted();
}

void Await(const std::string& what,
           const std::function<bool(std::chrono::milliseconds)>& waitShortly) {
  const auto end = std::chrono::steady_clock::now() + kLongest;
  for (;;) {
    CheckInterrupted();
    if (waitShortly(kShortly)) return;
    if (std::chrono::steady_clock::now() < end) continue;
    throw std::runtime_error("waited " + std::to_string(kLongest.count()) + " s in vain for " +
                             what);
  }
}

}  // namespace corvalint::demo

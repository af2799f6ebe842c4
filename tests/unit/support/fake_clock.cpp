#include "support/fake_clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace corvalint::test {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10'000;

struct State {
  std::mutex mutex;
  std::condition_variable slept;
  std::int64_t ticks = 0;
  std::int64_t step = 0;
  LocalTime localTime{};
  std::function<void(std::uint32_t)> action;
  std::vector<std::uint32_t> sleeps;
  std::size_t sleepCount = 0;
  bool installed = false;
};

// Leaked, so that a thread that outlives a test finds it still.
State& TheState() {
  static auto* const state = new State;
  return *state;
}

std::int64_t Counter() {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  return std::exchange(state.ticks, state.ticks + state.step);
}

void Sleep(std::uint32_t milliseconds) {
  State& state = TheState();
  std::function<void(std::uint32_t)> action;
  {
    const std::lock_guard hold(state.mutex);
    state.ticks += milliseconds * kTicksPerMillisecond;
    state.sleeps.push_back(milliseconds);
    ++state.sleepCount;
    action = state.action;
    state.slept.notify_all();
  }
  if (action) action(milliseconds);
  // A loop that only sleeps must not keep the others from running.
  std::this_thread::sleep_for(std::chrono::microseconds(200));
}

LocalTime Now() {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  return state.localTime;
}

}  // namespace

FakeClock::FakeClock(std::int64_t ticks) {
  static constexpr ClockApi kApi{
      .counter = Counter,
      .frequency = [] { return 1000 * kTicksPerMillisecond; },
      .sleep = Sleep,
      .localTime = Now,
  };
  State& state = TheState();
  {
    const std::lock_guard hold(state.mutex);
    EXPECT_FALSE(std::exchange(state.installed, true)) << "a second fake clock";
    state.ticks = ticks;
    state.step = 0;
    state.localTime = {2026, 11, 16, 1, 48, 6};
    state.action = nullptr;
    state.sleeps.clear();
    state.sleepCount = 0;
  }
  Install<ClockApi>(&kApi);
}

FakeClock::~FakeClock() {
  Install<ClockApi>(nullptr);
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  state.action = nullptr;
  state.installed = false;
}

void FakeClock::SetTicks(std::int64_t ticks) {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  state.ticks = ticks;
}

void FakeClock::Advance(std::int64_t ticks) {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  state.ticks += ticks;
}

std::int64_t FakeClock::Ticks() const {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  return state.ticks;
}

void FakeClock::StepPerRead(std::int64_t ticks) {
  EXPECT_TRUE(ticks == 0 || ticks >= 10) << "too small a step";
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  state.step = ticks;
}

void FakeClock::SetLocalTime(const LocalTime& time) {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  state.localTime = time;
}

void FakeClock::WhenSleeping(std::function<void(std::uint32_t)> action) {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  state.action = std::move(action);
}

std::vector<std::uint32_t> FakeClock::TakeSleeps() {
  State& state = TheState();
  const std::lock_guard hold(state.mutex);
  return std::exchange(state.sleeps, {});
}

bool FakeClock::WaitForSleeps(std::size_t count) {
  State& state = TheState();
  std::unique_lock hold(state.mutex);
  const bool reached = state.slept.wait_for(hold, std::chrono::seconds(30),
                                            [&] { return state.sleepCount >= count; });
  EXPECT_TRUE(reached) << "nobody slept that often";
  return reached;
}

}  // namespace corvalint::test

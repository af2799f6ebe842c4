#include "simulated_time.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

#include "fault_plan.h"
#include "platform/clock.h"
#include "platform/native_mutex.h"

namespace corvalint::faults {

namespace {

using RealClock = std::chrono::steady_clock;

constexpr std::int64_t kTicksPerMillisecond = 10000;
constexpr std::chrono::seconds kHang{90};

enum class State { unused, running, sleeping, waiting, locking };

struct Slot {
  State state = State::unused;
  std::int64_t wakeAt = 0;
  int socket = 0;
  bool wantWritable = false;
  int waker = 0;
  NativeMutex* lock = nullptr;
  int thread = 0;
  ThreadProcedure procedure = nullptr;
  void* parameter = nullptr;
};

// Leaked: the library's threads use it until the process ends.
struct Time {
  std::mutex mutex;
  std::condition_variable woken;
  std::int64_t now = 5'000'000;
  std::array<Slot, 64> slots;
  std::function<bool()> whenIdle;
};
Time& TheTime() {
  static auto* const time = new Time;
  return *time;
}

thread_local Slot* ownSlot = nullptr;
thread_local bool driving = false;

void SetState(State state) {
  if (ownSlot == nullptr) return;
  const std::lock_guard hold(TheTime().mutex);
  ownSlot->state = state;
}

pthread_mutex_t* Native(NativeMutex& mutex) {
  return std::launder(reinterpret_cast<pthread_mutex_t*>(mutex.storage));
}

// The thread that holds a lock, 0 for none.
int HolderOf(NativeMutex& mutex) {
  return __atomic_load_n(&Native(mutex)->__data.__owner, __ATOMIC_ACQUIRE);
}

// Who waits for a lock that nobody holds, or that is its own by now, has only not noticed yet.
bool IsStuckAtLock(const Slot& slot) {
  const int holder = HolderOf(*slot.lock);
  return holder != 0 && holder != slot.thread;
}

std::array<pollfd, 2> PolledBy(const Slot& slot) {
  const auto events = static_cast<short>(POLLIN | POLLPRI | (slot.wantWritable ? POLLOUT : 0));
  return {pollfd{slot.socket > 0 ? slot.socket : -1, events, 0},
          pollfd{slot.waker > 0 ? slot.waker : -1, POLLIN, 0}};
}

bool CanRun(const Slot& slot) {
  switch (slot.state) {
    case State::unused:
    case State::sleeping:
      return false;
    case State::running:
      return true;
    case State::locking:
      return !IsStuckAtLock(slot);
    case State::waiting: {
      auto polled = PolledBy(slot);
      return poll(polled.data(), polled.size(), 0) != 0;
    }
  }
  return true;
}

bool AnybodyCanRun() {
  Time& time = TheTime();
  const std::lock_guard hold(time.mutex);
  for (const Slot& slot : time.slots) {
    if (CanRun(slot)) return true;
  }
  return false;
}

void ReportHang() {
  Complain("hang: some thread runs or waits for ever");
  std::abort();
}

void WaitForIdle() {
  const auto begin = RealClock::now();
  while (AnybodyCanRun()) {
    usleep(20);
    if (RealClock::now() - begin > kHang) ReportHang();
  }
}

// Moves on to the next sleeper's moment, at most to `limit`; false when there is none before it.
bool Advance(std::int64_t limit) {
  Time& time = TheTime();
  const std::lock_guard hold(time.mutex);
  std::int64_t next = limit;
  bool found = false;
  for (const Slot& slot : time.slots) {
    if (slot.state == State::sleeping && slot.wakeAt <= next) {
      next = slot.wakeAt;
      found = true;
    }
  }
  time.now = next > time.now ? next : time.now;
  for (Slot& slot : time.slots) {
    if (slot.state == State::sleeping && slot.wakeAt <= time.now) slot.state = State::running;
  }
  time.woken.notify_all();
  return found;
}

std::int64_t Now() {
  const std::lock_guard hold(TheTime().mutex);
  return TheTime().now;
}

bool RunUntilTick(const std::function<bool()>& condition, std::int64_t limit) {
  const OutsideScope outside;
  for (;;) {
    WaitForIdle();
    if (TheTime().whenIdle && TheTime().whenIdle()) continue;
    if (condition()) return true;
    if (!Advance(limit)) return condition();
  }
}

void Sleep(std::uint32_t milliseconds) {
  Time& time = TheTime();
  if (driving) {
    const std::int64_t wakeAt = Now() + milliseconds * kTicksPerMillisecond;
    RunUntilTick([=] { return Now() >= wakeAt; }, wakeAt);
    return;
  }
  std::unique_lock hold(time.mutex);
  if (ownSlot == nullptr) return;
  ownSlot->wakeAt = time.now + milliseconds * kTicksPerMillisecond;
  ownSlot->state = State::sleeping;
  time.woken.wait(hold, [] { return ownSlot->state == State::running; });
}

// Each read moves on a little, as a clock does.
std::int64_t Counter() {
  const std::lock_guard hold(TheTime().mutex);
  return TheTime().now += 10;
}

// --- locks

// Its holder may sleep, so the driving thread lets time pass while it waits.
void Enter(NativeMutex& mutex) {
  if (pthread_mutex_trylock(Native(mutex)) == 0) return;
  if (driving) {
    const auto begin = RealClock::now();
    while (pthread_mutex_trylock(Native(mutex)) != 0) {
      const OutsideScope outside;
      WaitForIdle();
      if (HolderOf(mutex) != 0) Advance(Now() + 1000 * kTicksPerMillisecond);
      if (RealClock::now() - begin > kHang) ReportHang();
    }
    return;
  }
  if (ownSlot != nullptr) {
    const std::lock_guard hold(TheTime().mutex);
    ownSlot->lock = &mutex;
    ownSlot->thread = gettid();
    ownSlot->state = State::locking;
  }
  pthread_mutex_lock(Native(mutex));
  SetState(State::running);
}

bool Initialise(NativeMutex& mutex, std::uint32_t spinCount) {
  const bool made = MutexApi::System().initialise(mutex, spinCount);
  return !Fails(Table::mutexes, "initialise") && made;
}

std::uint32_t RunThread(void* parameter) {
  ownSlot = static_cast<Slot*>(parameter);
  {
    const InsideScope inside;
    ownSlot->procedure(ownSlot->parameter);
  }
  SetState(State::unused);
  ownSlot = nullptr;
  return 0;
}

Slot& NewSlot(ThreadProcedure procedure, void* parameter) {
  Time& time = TheTime();
  const std::lock_guard hold(time.mutex);
  for (Slot& slot : time.slots) {
    if (slot.state != State::unused) continue;
    slot.procedure = procedure;
    slot.parameter = parameter;
    slot.state = State::running;
    return slot;
  }
  Complain("too many threads");
  std::abort();
}

}  // namespace

void UseSimulatedTime() {
  static constexpr ClockApi kClock{
      .counter = Counter,
      .frequency = [] { return 1000 * kTicksPerMillisecond; },
      .sleep = Sleep,
      .localTime = [] { return LocalTime{2026, 11, 16, 1, 48, 6}; },
  };
  static const MutexApi kMutexes{
      .initialise = Initialise,
      .destroy = MutexApi::System().destroy,
      .enter = Enter,
      .leave = MutexApi::System().leave,
  };
  driving = true;
  Install<ClockApi>(&kClock);
  Install<MutexApi>(&kMutexes);
}

void WhenIdle(std::function<bool()> action) { TheTime().whenIdle = std::move(action); }

bool RunUntil(const std::function<bool()>& condition, int seconds) {
  return RunUntilTick(condition, Now() + seconds * 1000 * kTicksPerMillisecond);
}

void RunFor(int seconds) {
  RunUntil([] { return false; }, seconds);
}

int LivingThreads() {
  int living = 0;
  const std::lock_guard hold(TheTime().mutex);
  for (const Slot& slot : TheTime().slots) living += slot.state != State::unused ? 1 : 0;
  return living;
}

ThreadHandle MakeThread(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  Slot& slot = NewSlot(procedure, parameter);
  const ThreadHandle handle = ThreadApi::System().create(RunThread, &slot, id);
  if (handle == nullptr) {
    const std::lock_guard hold(TheTime().mutex);
    slot.state = State::unused;
  }
  return handle;
}

// Told apart from the system's wait, which consumes the waker's signal before it says so.
SocketReadiness WaitForSocket(int socket, bool wantWritable, int waker) {
  if (ownSlot != nullptr && (socket > 0 || waker > 0)) {
    auto polled = [&] {
      const std::lock_guard hold(TheTime().mutex);
      ownSlot->socket = socket;
      ownSlot->wantWritable = wantWritable;
      ownSlot->waker = waker;
      ownSlot->state = State::waiting;
      return PolledBy(*ownSlot);
    }();
    poll(polled.data(), polled.size(), -1);
    SetState(State::running);
  }
  return SocketApi::System().wait(socket, wantWritable, waker);
}

}  // namespace corvalint::faults

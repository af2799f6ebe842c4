#include "service/cthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/thread.h"
#include "service/log.h"
#include "support/call_log.h"
#include "support/deferred_threads.h"
#include "support/fake_clock.h"
#include "support/fake_process.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::DeferredThreads;
using test::FakeClock;
using test::FakeProcess;
using Calls = CallLog::Calls;

class Worker : public CThread {
 public:
  explicit Worker(std::function<void()> newBody = {}) : body(std::move(newBody)) {}
  ~Worker() = default;

  std::uint32_t Run() override {
    ++runs;
    if (body) body();
    return 7;
  }

  std::uint32_t Id() const { return threadId; }
  ThreadHandle Handle() const { return threadHandle; }

  int runs = 0;

 private:
  const std::function<void()> body;
};

class Bare final : public CThread {
 public:
  ~Bare() = default;
};

// Gives its thread back at the end of its body, twice, as nobody should.
class Leaving final : public CThread {
 public:
  ~Leaving() = default;

  std::uint32_t Run() override {
    LeaveThread();
    LeaveThread();
    return 0;
  }
};

// Destroys itself on its own thread and then says so.
class SelfDestroying final : public CThread {
 public:
  explicit SelfDestroying(std::function<void()> end) : atEnd(std::move(end)) {}

  std::uint32_t Run() override {
    const auto end = atEnd;
    delete this;
    end();
    return 0;
  }

 private:
  ~SelfDestroying() = default;
  const std::function<void()> atEnd;
};

// What a body that outlives its object uses, as on a system that cannot end a thread.
struct Stay {
  void WaitUntil(const std::function<bool()>& reached) {
    std::unique_lock hold(mutex);
    EXPECT_TRUE(changed.wait_for(hold, std::chrono::seconds(30), reached));
  }

  std::mutex mutex;
  std::condition_variable changed;
  bool inside = false;
  bool mayLeave = false;
  bool left = false;
};
Stay* theStay = nullptr;

class Staying final : public CThread {
 public:
  ~Staying() = default;

  std::uint32_t Run() override {
    Stay& stay = *theStay;
    std::unique_lock hold(stay.mutex);
    stay.inside = true;
    stay.changed.notify_all();
    stay.changed.wait(hold, [&] { return stay.mayLeave; });
    stay.left = true;
    stay.changed.notify_all();
    return 0;
  }
};

class CThreadTest : public testing::Test {
 protected:
  CallLog calls;
  DeferredThreads threads{calls};
};

// The log of a test, in a folder of its own.
class LoggingCThreadTest : public CThreadTest {
 protected:
  LoggingCThreadTest() {
    LogResetForTest();
    LogInit("log");
    calls.Take();
  }
  ~LoggingCThreadTest() override { LogResetForTest(); }

  std::string Line(std::uint32_t thread, const std::string& text) const {
    return "2026-11-16 01:48:06 [" + std::to_string(thread) + "] " + text + "\n";
  }
  std::string LogText() const { return process.Folder().Read("log"); }

  FakeClock clock;
  FakeProcess process{calls};
};

// --- a fresh object

TEST_F(CThreadTest, HasNoThreadAndDoesNotRunWhenItIsMade) {
  {
    Worker worker;
    EXPECT_FALSE(worker.Running());
    EXPECT_FALSE(worker.HasThread());
    EXPECT_EQ(worker.Handle(), nullptr);
    EXPECT_EQ(worker.Id(), 0u);
  }
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(CThreadTest, HasABodyThatDoesNothing) {
  Bare bare;
  EXPECT_EQ(bare.Run(), 0u);
  EXPECT_FALSE(bare.Running());
}

// --- start

TEST_F(CThreadTest, IsStartedWithTheCommonProcedureAndItselfAsParameter) {
  Worker worker;
  worker.Start();
  EXPECT_TRUE(worker.Running());
  EXPECT_TRUE(worker.HasThread());
  EXPECT_EQ(calls.Take(), Calls{"create() = 1"});
  EXPECT_EQ(threads.ProcedureOf(1), &ThreadProc);
  EXPECT_EQ(threads.ParameterOf(1), static_cast<CThread*>(&worker));
  EXPECT_EQ(worker.Id(), DeferredThreads::IdOf(1));
  EXPECT_EQ(worker.Handle(), reinterpret_cast<ThreadHandle>(std::uintptr_t{1}));
  EXPECT_EQ(worker.runs, 0);
}

TEST_F(CThreadTest, IsNotStartedAgainWhileItRuns) {
  Worker worker;
  worker.Start();
  worker.Start();
  EXPECT_EQ(calls.Take(), Calls{"create() = 1"});
}

TEST_F(LoggingCThreadTest, StaysMarkedAsRunningWhenTheSystemRefusesAThread) {
  threads.Refuse();
  {
    Worker worker;
    worker.Start();
    EXPECT_TRUE(worker.Running());
    EXPECT_FALSE(worker.HasThread());
    EXPECT_EQ(worker.Handle(), nullptr);
    worker.Start();
  }
  // Tried once, and there is nothing to end or close.
  EXPECT_EQ(calls.Take(), Calls{"create() = none"});
  EXPECT_EQ(LogText(), Line(ThreadApi::System().currentId(), "ERROR thread could not be started"));
}

// --- the procedure

TEST_F(CThreadTest, RunsItsBodyOnceAndEndsWithZeroWhateverTheBodyReturns) {
  Worker worker;
  EXPECT_EQ(ThreadProc(static_cast<CThread*>(&worker)), 0u);
  EXPECT_EQ(worker.runs, 1);
}

TEST_F(LoggingCThreadTest, KeepsAnExceptionOfItsBodyToItself) {
  Worker worker([] { throw std::runtime_error("wrong argument 100%s"); });
  worker.Start();
  EXPECT_EQ(threads.Run(1), 0u);
  EXPECT_EQ(LogText(), Line(DeferredThreads::IdOf(1),
                            "ERROR thread ended by an exception: wrong argument 100%s"));
}

TEST_F(LoggingCThreadTest, KeepsAnythingElseThatIsThrownToItself) {
  Worker worker([] { throw 42; });
  worker.Start();
  EXPECT_EQ(threads.Run(1), 0u);
  EXPECT_EQ(LogText(),
            Line(DeferredThreads::IdOf(1), "ERROR thread ended by an unknown exception"));
}

// --- stop

TEST_F(CThreadTest, StopOnlyClearsTheFlag) {
  Worker worker;
  worker.Start();
  calls.Take();
  worker.Stop();
  EXPECT_FALSE(worker.Running());
  EXPECT_TRUE(worker.HasThread());
  EXPECT_EQ(worker.Id(), DeferredThreads::IdOf(1));
  EXPECT_NE(worker.Handle(), nullptr);
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(CThreadTest, StopChangesNothingWhenItDoesNotRun) {
  Worker worker;
  worker.Stop();
  EXPECT_FALSE(worker.Running());
  EXPECT_FALSE(worker.HasThread());
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(CThreadTest, StopIsSeenByTheBodysLoop) {
  Worker* self = nullptr;
  int rounds = 0;
  Worker worker([&] {
    while (self->Running()) {
      if (++rounds == 3) self->Stop();
    }
  });
  self = &worker;
  worker.Start();
  EXPECT_EQ(threads.Run(1), 0u);
  EXPECT_EQ(rounds, 3);
}

// --- the end of an object's life

TEST_F(CThreadTest, EndsAnotherThreadAndThenClosesItsHandleOnce) {
  {
    Worker worker;
    worker.Start();
    calls.Take();
    // The flag is down before the thread is ended.
    threads.WhenEnding(
        [thread = static_cast<const CThread*>(&worker)] { EXPECT_FALSE(thread->Running()); });
  }
  EXPECT_EQ(calls.Take(), (Calls{"terminate(1)", "close(1)"}));
}

TEST_F(CThreadTest, OnItsOwnThreadItOnlyClosesItsHandleAndReturns) {
  bool returned = false;
  auto* const object = new SelfDestroying([&returned] { returned = true; });
  object->Start();
  calls.Take();
  EXPECT_EQ(threads.Run(1), 0u);
  EXPECT_TRUE(returned);
  EXPECT_EQ(calls.Take(), Calls{"close(1)"});
}

// Whoever destroys it later must not end a thread that is just returning.
TEST_F(CThreadTest, OneThatHasLeftItsThreadHasNothingToEndOrClose) {
  auto worker = std::make_unique<Leaving>();
  worker->Start();
  calls.Take();
  threads.Run(1);
  EXPECT_EQ(calls.Take(), (Calls{"close(1)"}));
  EXPECT_TRUE(worker->HasThread());  // it had one
  worker.reset();
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST(CThreadEnd, NeverWaitsForABodyThatGoesOn) {
  Stay stay;
  theStay = &stay;
  auto object = std::make_unique<Staying>();
  object->Start();
  stay.WaitUntil([&] { return stay.inside; });
  object.reset();
  {
    const std::lock_guard hold(stay.mutex);
    EXPECT_FALSE(stay.left);
    stay.mayLeave = true;
    stay.changed.notify_all();
  }
  stay.WaitUntil([&] { return stay.left; });
}

// --- a thread that is quicker than its creator

struct Race {
  std::mutex mutex;
  std::condition_variable changed;
  bool bodyBegan = false;
  bool beganTooEarly = false;
  std::thread thread;
};
Race* race = nullptr;
thread_local bool isRacer = false;
constexpr std::uint32_t kRacerId = 4'000'000;

ThreadHandle CreateAndLinger(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  *id = kRacerId;
  race->thread = std::thread([=] {
    isRacer = true;
    procedure(parameter);
  });
  // The creator is held up here, with the new thread running already.
  std::unique_lock hold(race->mutex);
  race->beganTooEarly =
      race->changed.wait_for(hold, std::chrono::milliseconds(50), [] { return race->bodyBegan; });
  return race;
}

TEST(CThreadRace, TheBodyBeginsOnlyWhenTheObjectKnowsItsThread) {
  static constexpr ThreadApi kApi{
      .create = CreateAndLinger,
      .terminate = [](ThreadHandle handle) { EXPECT_EQ(handle, race); },
      .close = [](ThreadHandle handle) { EXPECT_EQ(handle, race); },
      .currentId = [] { return isRacer ? kRacerId : ThreadApi::System().currentId(); },
  };
  Race theRace;
  race = &theRace;
  Install<ThreadApi>(&kApi);
  bool knewItsThread = false;
  {
    Worker* self = nullptr;
    Worker worker([&] {
      knewItsThread = self->HasThread() && self->Handle() == &theRace;
      const std::lock_guard hold(theRace.mutex);
      theRace.bodyBegan = true;
      theRace.changed.notify_all();
    });
    self = &worker;
    worker.Start();
    theRace.thread.join();
  }
  Install<ThreadApi>(nullptr);
  EXPECT_TRUE(theRace.bodyBegan);
  EXPECT_FALSE(theRace.beganTooEarly);
  EXPECT_TRUE(knewItsThread);
}

TEST(CThreadRace, AThreadMayDestroyItsOwnObjectAtOnce) {
  constexpr int kRounds = 200;
  std::mutex mutex;
  std::condition_variable changed;
  int ended = 0;
  for (int round = 0; round < kRounds; ++round) {
    auto* const object = new SelfDestroying([&] {
      const std::lock_guard hold(mutex);
      ++ended;
      changed.notify_all();
    });
    object->Start();
  }
  std::unique_lock hold(mutex);
  EXPECT_TRUE(changed.wait_for(hold, std::chrono::seconds(30), [&] { return ended == kRounds; }));
}

}  // namespace
}  // namespace corvalint

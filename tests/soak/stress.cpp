// Everything at once on the whole library, from a seed: run under ThreadSanitizer it finds races
// and locks in a wrong order, and in any build what hangs, leaks or stops serving.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "soak/complaints.h"
#include "soak/desk_actors.h"
#include "soak/probe.h"
#include "soak/process_counts.h"
#include "soak/report.h"

namespace corvalint::soak {
namespace {

constexpr std::chrono::seconds kLongestStep{60};
constexpr std::chrono::seconds kBetweenReports{10};
constexpr std::size_t kUdpPrograms = 2;
constexpr std::size_t kOscPorts = 10;

using Clock = std::chrono::steady_clock;

struct Options {
  std::uint64_t seed =
      static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
  long seconds = 60;
};

class Stage {
 public:
  Stage(World& theWorld, std::uint64_t theSeed) : world(theWorld), seed(theSeed) {
    for (std::size_t i = 0; i < kOscPorts; ++i) around.oscPorts.push_back(FreeUdpPort());
    for (const UdpEnd& program : programs) around.programPorts.push_back(program.Port());
    EnterHost();
    EnterDesk();
    EnterDevices();
  }

  // False when somebody has been at one thing for too long.
  bool AllMove() {
    bool moving = true;
    for (Seen& actor : actors) {
      if (actor.actor->Steps() != actor.steps) {
        actor.steps = actor.actor->Steps();
        actor.since = Clock::now();
      } else if (Clock::now() - actor.since > kLongestStep) {
        std::fprintf(Report(), "%s is stuck: %s\n", actor.actor->Name().c_str(),
                     actor.actor->WhatHeDoes());
        moving = false;
      }
    }
    return moving;
  }

  std::uint64_t Steps() const {
    std::uint64_t all = 0;
    for (const Seen& actor : actors) all += actor.actor->Steps();
    return all;
  }

  // Ends everybody. Asked first and joined then, so that nobody waits for one who is idle.
  void End() {
    for (Seen& actor : actors) actor.actor->AskToEnd();
    for (Seen& actor : actors) {
      actor.actor->Join();
      std::fprintf(Report(), "  %-12s %10llu steps\n", actor.actor->Name().c_str(),
                   static_cast<unsigned long long>(actor.actor->Steps()));
      Expect(actor.actor->Steps() > 0, actor.actor->Name() + " did nothing");
    }
  }

 private:
  struct Seen {
    std::unique_ptr<Actor> actor;
    std::uint64_t steps = 0;
    Clock::time_point since = Clock::now();
  };

  void Enter(const std::string& name, std::uint64_t longestPause, Actor::Step step) {
    const std::uint64_t own = seed + 0x9E3779B97F4A7C15u * (actors.size() + 1);
    actors.push_back({std::make_unique<Actor>(name, own, longestPause, std::move(step))});
  }

  void EnterHost() {
    for (int i = 0; i < 2; ++i) {
      Enter("poll", 3000, [this](Random& r, Actor& a) { PollStep(around, r, a); });
    }
    Enter("toggle", 20000, [](Random& r, Actor& a) { ToggleStep(r, a); });
  }

  void EnterDesk() {
    for (int i = 0; i < 2; ++i) {
      Enter("keyboard", 5000, [this](Random& r, Actor& a) { KeyboardStep(world, r, a); });
      Enter("program", 5000, [this](Random& r, Actor& a) { ProgramStep(world, r, a); });
    }
    Enter("desk", 200000, [this](Random& r, Actor& a) { DeskStep(world, r, a); });
    for (const UdpEnd& program : programs) {
      Enter("udp", 5000, [this, &program](Random& r, Actor& a) { UdpStep(program, around, r, a); });
    }
  }

  void EnterDevices() {
    for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
      Enter("app " + std::to_string(i), 5000,
            [this, i](Random& r, Actor& a) { AppStep(world.Device(i), i, around, r, a); });
    }
    for (std::size_t i = 0; i < 2; ++i) {
      Enter("hub", 150000, [this, i](Random& r, Actor& a) { HubStep(world, i, 2, r, a); });
    }
  }

  World& world;
  const std::uint64_t seed;
  Surroundings around;
  const UdpEnd programs[kUdpPrograms];
  std::vector<Seen> actors;
};

void RunStage(World& world, const Options& options) {
  Stage stage(world, options.seed);
  const auto begin = Clock::now();
  auto nextReport = begin + kBetweenReports;
  while (Clock::now() - begin < std::chrono::seconds(options.seconds)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (!stage.AllMove()) std::_Exit(3);
    if (Clock::now() < nextReport) continue;
    nextReport += kBetweenReports;
    std::fprintf(
        Report(), "%4lld s: %llu steps, %llu clients, %zu ports, %llu threads made\n",
        static_cast<long long>(
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin).count()),
        static_cast<unsigned long long>(stage.Steps()),
        static_cast<unsigned long long>(world.Clients()), world.Driver().Names().size(),
        static_cast<unsigned long long>(world.Threads().Made()));
  }
  stage.End();
}

// A run in which devices hear little has shown little.
void ReportTraffic(World& world) {
  device::DeviceCounters all;
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    const device::DeviceCounters counters = world.Device(i).app.Record().Counters();
    all.streamsOpened += counters.streamsOpened;
    all.framesSent += counters.framesSent;
    all.framesReceived += counters.framesReceived;
  }
  std::fprintf(Report(), "%llu streams, %llu frames of devices, %llu frames to devices\n",
               static_cast<unsigned long long>(all.streamsOpened),
               static_cast<unsigned long long>(all.framesSent),
               static_cast<unsigned long long>(all.framesReceived));
  Expect(all.streamsOpened > world.DeviceCount(), "hardly a stream was opened");
  Expect(all.framesReceived > 1000, "the devices heard hardly anything");
}

void LetAllLeave(World& world) {
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    WorldDevice& device = world.Device(i);
    if (device.attached) world.Detach(device);
    // A cut that is planned still is put off for ever.
    device.app.CutAfterReceiving(std::numeric_limits<std::uint64_t>::max(), device::CutHow::kReset);
    device.app.SetClock(std::chrono::nanoseconds(0));
  }
  world.WaitUntilAllLeft();
}

void Run(const Options& options) {
  WorldOptions worldOptions;
  worldOptions.twoTransports = true;
  worldOptions.connectsFailSometimes = true;
  World world(worldOptions);
  FreeUdpPort();  // the first one keeps a descriptor, which must not count as left behind
  const ProcessCounts before = CountProcess();
  RunStage(world, options);
  ReportTraffic(world);
  LetAllLeave(world);
  ProbeEverything(world);
  const bool settled = Await([&] {
    const ProcessCounts after = CountProcess();
    return after.threads == before.threads && after.descriptors == before.descriptors;
  });
  if (settled) return;
  const ProcessCounts after = CountProcess();
  Complain("%llu threads and %llu descriptors before, %llu and %llu after",
           static_cast<unsigned long long>(before.threads),
           static_cast<unsigned long long>(before.descriptors),
           static_cast<unsigned long long>(after.threads),
           static_cast<unsigned long long>(after.descriptors));
}

bool Parse(int count, char** arguments, Options& options) {
  for (int i = 1; i + 1 < count; i += 2) {
    if (std::strcmp(arguments[i], "--seed") == 0) {
      options.seed = std::strtoull(arguments[i + 1], nullptr, 0);
    } else if (std::strcmp(arguments[i], "--seconds") == 0) {
      options.seconds = std::strtol(arguments[i + 1], nullptr, 10);
    } else {
      return false;
    }
  }
  return count % 2 == 1 && options.seconds > 0;
}

int Main(int count, char** arguments) {
  Options options;
  if (!Parse(count, arguments, options)) {
    std::fprintf(stderr, "usage: %s [--seed N] [--seconds S]\n", arguments[0]);
    return 2;
  }
  TakeStandardOutput();
  std::fprintf(Report(), "seed %llu, %ld seconds\n", static_cast<unsigned long long>(options.seed),
               options.seconds);
  Run(options);
  return ReportComplaints() ? 0 : 1;
}

}  // namespace
}  // namespace corvalint::soak

int main(int count, char** arguments) { return corvalint::soak::Main(count, arguments); }

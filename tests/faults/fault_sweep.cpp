// Runs the scenario once for each call that the library makes, with that call failing, and judges
// each run. A run is a process of its own, so that a crash is seen and nothing is left over.
//
//   fault_sweep               every k-th point, where k is such that it takes about a minute; which
//                             ones depends on the date and is printed
//   fault_sweep --all         every point
//   fault_sweep --offset N    as without arguments, beginning with the N-th point
//   fault_sweep TABLE MODE N  one point, with all that was printed

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bridge_scenario.h"
#include "fault_plan.h"
#include "known_lines.h"
#include "support/temp_folder.h"

namespace corvalint::faults {
namespace {

constexpr std::chrono::seconds kRunTimeOut{200};
constexpr Mode kModes[] = {Mode::once, Mode::lasting, Mode::function};

const char* NameOf(Mode mode) {
  switch (mode) {
    case Mode::none:
      return "none";
    case Mode::once:
      return "once";
    case Mode::lasting:
      return "lasting";
    case Mode::function:
      return "function";
  }
  return "";
}

std::string TextOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// One place where a run can happen: its folder, its report, its process.
class Runner {
 public:
  Runner() {
    void* const shared =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    report = static_cast<Report*>(shared);
  }

  bool Busy() const { return process > 0; }

  void Begin(const Plan& newPlan) {
    plan = newPlan;
    std::memset(static_cast<void*>(report), 0, sizeof *report);
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
      std::filesystem::remove_all(entry);
    }
    std::fflush(stdout);
    begun = std::chrono::steady_clock::now();
    process = fork();
    if (process == 0) RunAsChild();
  }

  // False while it runs.
  bool Ended() {
    int status = 0;
    if (waitpid(process, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() - begun < kRunTimeOut) return false;
      kill(process, SIGKILL);
      waitpid(process, &status, 0);
      wrong += "did not end\n";
    }
    process = 0;
    Judge(status);
    return true;
  }

  const Report& Result() const { return *report; }
  const Plan& Planned() const { return plan; }
  // What was wrong, empty when nothing was.
  std::string TakeWrong() { return std::exchange(wrong, {}); }
  std::string Printed() const { return TextOf(folder.PathOf("printed")); }
  std::string Logged() const { return TextOf(folder.PathOf("pellora.log")); }

 private:
  [[noreturn]] void RunAsChild() {
    const int file = open(folder.PathOf("printed").c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    close(file);
    RunScenario(plan, *report, folder.Path());
    std::fflush(nullptr);
    _exit(0);
  }

  void Judge(int status) {
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      wrong += WIFSIGNALED(status) ? "ended by a signal\n" : "ended by a sanitizer\n";
    }
    wrong += report->complaints.data();
    if (plan.mode == Mode::none && report->missed[0] != 0) wrong += report->missed.data();
    wrong += UnknownLines(*report, plan, Printed(), Logged());
    wrong += MissingLines(*report, Printed(), Logged());
  }

  const test::TempFolder folder;
  Report* report;
  Plan plan;
  pid_t process = 0;
  std::chrono::steady_clock::time_point begun;
  std::string wrong;
};

struct Tally {
  std::uint64_t points = 0, runs = 0, reached = 0, wrong = 0;

  void operator+=(const Tally& other) {
    points += other.points;
    runs += other.runs;
    reached += other.reached;
    wrong += other.wrong;
  }
};

class Sweep {
 public:
  // What a run without faults calls: the points. It is the first judged run.
  bool Count() {
    Runner& runner = runners.front();
    for (int i = 0; i < 3; ++i) {
      runner.Begin({});
      while (!runner.Ended()) usleep(500);
      if (!Show(runner)) return false;
      for (std::size_t t = 0; t < kTables; ++t) {
        calls[t] = std::max<std::uint64_t>(calls[t], runner.Result().calls[t]);
      }
    }
    return true;
  }

  // Every `stride`-th point from `offset` on.
  void Run(std::uint64_t stride, std::uint64_t offset) {
    std::uint64_t index = 0;
    for (const Mode mode : kModes) {
      for (std::size_t t = 0; t < kTables; ++t) {
        tallies[t].points = calls[t];
        const auto table = static_cast<Table>(t);
        if (!Sweeps(table, mode)) continue;
        for (std::uint64_t call = 1; call <= calls[t]; ++call) {
          if (index++ % stride == offset % stride) Dispatch({table, mode, call});
        }
      }
    }
    while (std::any_of(runners.begin(), runners.end(),
                       [](const Runner& runner) { return runner.Busy(); })) {
      Collect();
    }
  }

  bool RunOne(const Plan& plan) {
    Runner& runner = runners.front();
    runner.Begin(plan);
    while (!runner.Ended()) usleep(500);
    std::printf("%s--- log\n%s--- missed\n%s", runner.Printed().c_str(), runner.Logged().c_str(),
                runner.Result().missed.data());
    return Show(runner);
  }

  std::uint64_t Points() const {
    std::uint64_t points = 0;
    for (std::size_t t = 0; t < kTables; ++t) {
      for (const Mode mode : kModes) points += Sweeps(static_cast<Table>(t), mode) ? calls[t] : 0;
    }
    return points;
  }

  // False when something was wrong or the sweep has shrunk.
  bool Summary() const;

 private:
  // The heap has one function, so all of the table is all of that function.
  static bool Sweeps(Table table, Mode mode) {
    return table != Table::allocation || mode != Mode::function;
  }

  void Dispatch(const Plan& plan) {
    for (;;) {
      for (Runner& runner : runners) {
        if (runner.Busy()) continue;
        return runner.Begin(plan);
      }
      Collect();
    }
  }

  void Collect() {
    for (Runner& runner : runners) {
      if (!runner.Busy() || !runner.Ended()) continue;
      Tally& tally = tallies[static_cast<std::size_t>(runner.Planned().table)];
      ++tally.runs;
      if (runner.Result().failed > 0) ++tally.reached;
      if (!Show(runner)) ++tally.wrong;
    }
    usleep(500);
  }

  static bool Show(Runner& runner) {
    const std::string wrong = runner.TakeWrong();
    if (wrong.empty()) return true;
    const Plan& plan = runner.Planned();
    std::printf("WRONG: fault_sweep '%s' %s %llu (%s at \"%s\"):\n%s", faults::NameOf(plan.table),
                NameOf(plan.mode), static_cast<unsigned long long>(plan.call),
                runner.Result().function.data(), runner.Result().step.data(), wrong.c_str());
    const std::string printed = runner.Printed();
    const std::size_t report = printed.find("==ERROR");
    if (report != std::string::npos) std::printf("%s\n", printed.substr(report, 3000).c_str());
    return false;
  }

  std::vector<Runner> runners{std::max(1u, std::thread::hardware_concurrency())};
  std::array<std::uint64_t, kTables> calls{};
  std::array<Tally, kTables> tallies{};
};

// A sweep with fewer points than these has lost a part of the library or of the scenario.
constexpr std::array<std::uint64_t, kTables> kFewestCalls{75, 4,  52, 125, 11, 8,
                                                          8,  46, 4,  4,   31, 250};

void PrintTally(const Tally& tally, const char* of) {
  const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
  std::printf("swept %llu calls of %s: %llu runs, %llu met their fault, %llu wrong\n",
              number(tally.points), of, number(tally.runs), number(tally.reached),
              number(tally.wrong));
}

bool Sweep::Summary() const {
  bool good = true;
  Tally total;
  for (std::size_t t = 0; t < kTables; ++t) {
    const Tally& tally = tallies[t];
    PrintTally(tally, faults::NameOf(static_cast<Table>(t)));
    total += tally;
    if (tally.wrong > 0) good = false;
    if (tally.reached * 10 < tally.runs * 9) {
      std::puts("that many runs without a fault show nothing");
      good = false;
    }
    if (tally.points < kFewestCalls[t]) {
      std::printf("that is fewer than %llu\n", static_cast<unsigned long long>(kFewestCalls[t]));
      good = false;
    }
  }
  PrintTally(total, "all tables");
  return good;
}

bool ParsePlan(char** arguments, Plan& plan) {
  bool tableKnown = false, modeKnown = false;
  for (std::size_t t = 0; t < kTables; ++t) {
    if (std::strcmp(arguments[0], faults::NameOf(static_cast<Table>(t))) != 0) continue;
    plan.table = static_cast<Table>(t);
    tableKnown = true;
  }
  for (const Mode mode : {Mode::none, Mode::once, Mode::lasting, Mode::function}) {
    if (std::strcmp(arguments[1], NameOf(mode)) != 0) continue;
    plan.mode = mode;
    modeKnown = true;
  }
  plan.call = std::strtoull(arguments[2], nullptr, 10);
  return tableKnown && modeKnown;
}

int Main(int argc, char** argv) {
  constexpr std::uint64_t kRunsInAMinute = 500;
  Sweep sweep;
  Plan plan;
  if (argc == 4 && ParsePlan(argv + 1, plan)) return sweep.RunOne(plan) ? 0 : 1;
  const bool all = argc == 2 && std::strcmp(argv[1], "--all") == 0;
  const bool from = argc == 3 && std::strcmp(argv[1], "--offset") == 0;
  if (argc != 1 && !all && !from) {
    std::fputs("usage: fault_sweep [--all | --offset N | TABLE MODE CALL]\n", stderr);
    return 2;
  }
  if (!sweep.Count()) return 1;
  const std::uint64_t stride = all ? 1 : sweep.Points() / kRunsInAMinute + 1;
  const std::uint64_t offset = from
                                   ? std::strtoull(argv[2], nullptr, 10)
                                   : static_cast<std::uint64_t>(std::time(nullptr)) / 3600 % stride;
  std::printf("%llu injection points", static_cast<unsigned long long>(sweep.Points()));
  if (all) {
    std::puts(", all of them");
  } else {
    std::printf(", every %llu. of them from --offset %llu\n",
                static_cast<unsigned long long>(stride), static_cast<unsigned long long>(offset));
  }
  sweep.Run(stride, offset);
  return sweep.Summary() ? 0 : 1;
}

}  // namespace
}  // namespace corvalint::faults

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return corvalint::faults::Main(argc, argv);
}

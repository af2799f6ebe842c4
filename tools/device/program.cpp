#include "device/program.h"

#include <atomic>
#include <csignal>
#include <ctime>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "device/json_line.h"
#include "device/player.h"
#include "device/simulated_device.h"
#include "device/song.h"

namespace corvalint::device {
namespace {

constexpr std::uint64_t kRubbishPackets = 1000;
constexpr int kTimingUpdates = 3;
constexpr std::chrono::milliseconds kTimingTimeout{2000};
constexpr std::chrono::milliseconds kLookAround{100};
constexpr std::uint64_t kMostQueued = 1 << 20;  // bytes; a fast song waits above it

// Lines of several threads, each in one piece and at once.
class Printer {
 public:
  void Line(const std::string& text) {
    const std::lock_guard lock(mutex);
    std::cout << text << std::endl;
  }

 private:
  std::mutex mutex;
};

// The file of --record, if there is one.
class Recorder {
 public:
  // Throws std::runtime_error.
  explicit Recorder(const std::optional<std::string>& path) {
    if (!path) return;
    file.open(*path);
    if (!file) throw std::runtime_error(*path + ": cannot be written");
  }
  void Add(const ReceivedMessage& received) {
    const std::lock_guard lock(mutex);
    if (file.is_open()) file << ToJsonLine(received) << '\n' << std::flush;
  }
  // Whether everything is on disk.
  bool Complete() {
    const std::lock_guard lock(mutex);
    return !file.is_open() || file.good();
  }

 private:
  std::mutex mutex;
  std::ofstream file;
};

// Ctrl-C and a request to end, taken as events. Must be made before any other thread.
class EndSignals {
 public:
  EndSignals() {
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  }
  // Whether one came within the time.
  bool WaitFor(std::chrono::milliseconds time) const {
    const timespec wait{time.count() / 1000, time.count() % 1000 * 1'000'000};
    return sigtimedwait(&signals, nullptr, &wait) > 0;
  }

 private:
  sigset_t signals{};
};

class Program {
 public:
  explicit Program(const ProgramOptions& programOptions)
      : options(programOptions), recorder(programOptions.recordFile), device(MakeDeviceOptions()) {
    if (options.songFile) song = ReadSong(*options.songFile);
    device.SetReadRate(options.slow);
    device.SetPieceSize(options.pieces);
    if (options.stallAfter) device.StallAfterFrames(*options.stallAfter);
    if (options.cutAfter) device.CutAfterReceiving(*options.cutAfter, options.cutHow);
  }

  int Run(const EndSignals& signals);

 private:
  DeviceOptions MakeDeviceOptions();
  void OnMessage(const ReceivedMessage& received);
  void Serve();
  bool ServeStream(std::uint64_t number);
  void PlaySong();
  void PrintSummary();

  const ProgramOptions options;
  Printer printer;
  Recorder recorder;
  Song song;
  SimulatedDevice device;
  Player player;
  std::atomic<bool> stopping = false;
  std::atomic<bool> done = false;
};

DeviceOptions Program::MakeDeviceOptions() {
  DeviceOptions made;
  made.port = options.port;
  made.keepRecord = false;
  made.clock = std::chrono::milliseconds(options.clockMilliseconds.value_or(0));
  for (const NamedEndpoint& source : options.sources) {
    made.greeting.AddPacket(EncodeEndpoint("/add_remote_source", source.name, source.id));
  }
  for (const NamedEndpoint& destination : options.destinations) {
    made.greeting.AddPacket(
        EncodeEndpoint("/add_remote_destination", destination.name, destination.id));
  }
  made.onMessage = [this](const ReceivedMessage& received) { OnMessage(received); };
  made.onNotice = [this](const std::string& line) { printer.Line(line); };
  return made;
}

void Program::OnMessage(const ReceivedMessage& received) {
  if (options.verbose || received.message.address != "/midi") {
    printer.Line("received " + Describe(received.message));
  }
  recorder.Add(received);
}

int Program::Run(const EndSignals& signals) {
  printer.Line("listening on 127.0.0.1:" + std::to_string(device.Port()) + " as " + options.name +
               " (" + options.udid + ")");
  std::thread server(&Program::Serve, this);
  while (!done && device.Failure().empty() && !signals.WaitFor(kLookAround)) {
  }
  stopping = true;
  player.Stop();
  server.join();
  PrintSummary();
  if (!recorder.Complete()) {
    std::cerr << "corvalint-device: " << *options.recordFile << ": could not be written fully\n";
    return 1;
  }
  return device.Failure().empty() && device.Record().Counters().violations == 0 ? 0 : 1;
}

// Each stream in turn, until the program stops.
void Program::Serve() {
  std::uint64_t number = 1;
  while (!stopping) {
    if (!device.WaitForStream(number, kLookAround)) continue;
    // Streams that came and went meanwhile have nobody to play to.
    number = device.Record().Counters().streamsOpened;
    const bool played = ServeStream(number);
    while (!stopping && !(options.once && played) &&
           !device.WaitForStreamEnd(number, kLookAround)) {
    }
    if (options.once) break;
    ++number;
  }
  done = true;
}

// Gives true when a song was played to its end.
bool Program::ServeStream(std::uint64_t number) {
  for (const NamedEndpoint& source : options.sources) {
    printer.Line("announced source " + source.name + " (" + std::to_string(source.id) + ")");
  }
  for (const NamedEndpoint& destination : options.destinations) {
    printer.Line("announced destination " + destination.name + " (" +
                 std::to_string(destination.id) + ")");
  }
  if (device.AlignClockAndWait(kTimingUpdates, kTimingTimeout)) {
    printer.Line("clock aligned");
  } else {
    printer.Line("clock not aligned: no reply");
  }
  if (options.rubbishSeed) {
    const bool sent = device.SendRubbish(*options.rubbishSeed + number - 1, kRubbishPackets,
                                         RubbishKind::kPackets);
    printer.Line((sent ? "sending rubbish, packets: " : "no stream to send rubbish to, packets: ") +
                 std::to_string(kRubbishPackets));
  }
  if (!options.songFile || stopping) return false;
  PlaySong();
  return device.WaitUntilSent(kTimingTimeout);
}

void Program::PlaySong() {
  const std::int32_t id = options.songId ? *options.songId : options.sources.front().id;
  std::string name = song.title;
  for (const NamedEndpoint& source : options.sources) {
    if (source.id == id) name = source.name;
  }
  printer.Line("playing " + song.title + " (" + std::to_string(song.events.size()) +
               " events) as " + name + " (" + std::to_string(id) + ")");
  PlayOptions how;
  how.fast = options.fast;
  if (options.seconds) how.seconds = *options.seconds;
  const std::size_t played = player.Play(song, how, [&](const SongEvent& event, std::size_t) {
    while (device.Queued() > kMostQueued && !stopping && !device.WaitUntilSent(kLookAround)) {
    }
    return device.SendMidi(name, id, event.bytes);
  });
  printer.Line("played " + std::to_string(played) + " events");
}

void Program::PrintSummary() {
  const DeviceCounters counters = device.Record().Counters();
  const std::string failure = device.Failure();
  if (!failure.empty()) printer.Line("the device failed: " + failure);
  printer.Line("received " + std::to_string(counters.framesReceived) + " frames, " +
               std::to_string(counters.messagesReceived) + " messages, " +
               std::to_string(counters.bytesReceived) + " bytes; sent " +
               std::to_string(counters.framesSent) + " frames, " +
               std::to_string(counters.bytesSent) + " bytes, dropped " +
               std::to_string(counters.bytesDropped) + "; connections " +
               std::to_string(counters.streamsOpened) + ", violations " +
               std::to_string(counters.violations));
}

}  // namespace

int RunProgram(const ProgramOptions& options) {
  const EndSignals signals;
  Program program(options);
  return program.Run(signals);
}

}  // namespace corvalint::device

// How long one message takes, with the machine to itself and while others play.
#include <sys/prctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/arrivals.h"
#include "bench/bridge.h"
#include "bench/desk.h"
#include "bench/osc_load.h"
#include "bench/results.h"
#include "bench/stamp.h"
#include "bench/watched_threads.h"
#include "bench/ways.h"
#include "clients/big_endian.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kOthers = 8;
constexpr std::size_t kSysexDevice = kOthers + 1;
constexpr std::size_t kOscDevice = 1;
constexpr int kPhases = 8;
constexpr int kPairs = 400;  // of one message of ours and a bare one, in a phase
constexpr int kWarmUpPairs = 50;
constexpr int kSlices = 8;           // of a phase whose loads take turns
constexpr std::size_t kSlice = 150;  // notes in each
constexpr std::size_t kSliceWarmUp = 10;
constexpr int kShortestPause = 350;  // microseconds
constexpr int kLongestPause = 650;
constexpr std::chrono::milliseconds kLatest{2};

// A note that is timed. Its data bytes are its number; no other note has this status.
constexpr std::uint8_t kTimed = 0x9F;
constexpr std::size_t kNumbers = 1 << 14;

// When the timed messages were sent and when they came. Written by the sender before and by the
// receiver after a message has crossed a socket.
class Crossings {
 public:
  void Sent(std::size_t number) {
    came[number].store(0, std::memory_order_relaxed);
    sent[number].store(WallNanoseconds(), std::memory_order_relaxed);
  }
  void Came(const std::uint8_t* note) {
    came[note[1] | std::size_t{note[2]} << 7].store(WallNanoseconds(), std::memory_order_release);
  }
  double Microseconds(std::size_t number) {
    Await("a timed message", [&] { return came[number].load(std::memory_order_acquire) != 0; });
    return static_cast<double>(came[number] - sent[number]) / 1000;
  }

 private:
  std::array<std::atomic<std::int64_t>, kNumbers> sent{};
  std::array<std::atomic<std::int64_t>, kNumbers> came{};
};

Crossings crossings;

struct AtDriver final : ArrivalListener {
  void Arrived(const std::uint8_t* data, std::uint32_t) override {
    if (data[0] == kTimed) crossings.Came(data);
  }
};

// A thread that waits for frames in plain receives and looks for timed notes. `otherEnd` of the
// connection is where its end comes from.
class Receiver {
 public:
  Receiver(int socketToRead, int otherEndOfIt)
      : socket(socketToRead), otherEnd(otherEndOfIt), thread([this] {
          RunAsMeasured(0);
          Run();
        }) {}
  ~Receiver() {
    done = true;
    const auto last = TimingFrame();
    WriteAll(otherEnd, last.data(), last.size());
    thread.join();
  }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

 private:
  void Run() {
    std::vector<char> buffer(1 << 18);
    std::size_t end = 0;
    while (!done) {
      const ssize_t count = recv(socket, buffer.data() + end, buffer.size() - end, 0);
      if (count <= 0) return;
      end += static_cast<std::size_t>(count);
      end = TakeFrames(buffer, end);
    }
  }

  // Moves what is left to the front; its size.
  static std::size_t TakeFrames(std::vector<char>& buffer, std::size_t end) {
    std::size_t begin = 0;
    while (end - begin >= 12) {
      const std::size_t size = 12 + ReadBigEndian32(buffer.data() + begin);
      if (end - begin < size) break;
      begin += size;
      const auto* const note = reinterpret_cast<const std::uint8_t*>(buffer.data()) + begin - 4;
      if (*note == kTimed) crossings.Came(note);
    }
    std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(begin),
              buffer.begin() + static_cast<std::ptrdiff_t>(end), buffer.begin());
    return end - begin;
  }

  const int socket;
  const int otherEnd;
  std::atomic<bool> done{false};
  std::thread thread;
};

// Devices 1 to 8 send a message each millisecond for as long as it lives.
class Streams {
 public:
  Streams(const Bridge& bridge, const std::vector<std::vector<char>>& frames)
      : thread([this, &bridge, &frames] {
          prctl(PR_SET_TIMERSLACK, 1);
          auto next = std::chrono::steady_clock::now();
          while (!done) {
            std::this_thread::sleep_until(next += std::chrono::milliseconds(1));
            // What a busy machine did not let go out is not caught up with.
            next = std::max(next, std::chrono::steady_clock::now() - kLatest);
            for (std::size_t i = 0; i < frames.size(); ++i) {
              WriteAll(bridge.Link(1 + i).device, frames[i].data(), frames[i].size());
            }
          }
        }) {}
  ~Streams() {
    done = true;
    thread.join();
  }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

 private:
  std::atomic<bool> done{false};
  std::thread thread;
};

std::vector<std::uint8_t> TimedNote(std::size_t number) {
  return {kTimed, static_cast<std::uint8_t>(number & 0x7F), static_cast<std::uint8_t>(number >> 7)};
}

// Sends a timed note in a frame that is made before the clock is read.
void SendTimed(int socket, const MidiAddress& address, std::size_t number) {
  const auto frame = MidiFrame(address, TimedNote(number));
  crossings.Sent(number);
  WriteAll(socket, frame.data(), frame.size());
}

// One direction, ours and bare; both send the note of that number and the same bytes. For the time
// of a phase a receiver waits at `receiver`, whose other end is `sender`.
struct Way {
  std::string name;
  std::function<void(std::size_t)> ours;
  std::function<void(std::size_t)> bare;
  int receiver;
  int sender;
};

// What else goes on while messages are timed.
struct Condition {
  std::string name;
  std::function<void()> begin;
  std::function<void()> end;
};

// Pairs of one message of ours and a bare one, so that whatever else the machine does meets both.
// Which comes first and how long the pauses are is thrown by dice: something that happens each
// millisecond must not always meet the same one. Even numbers are ours.
void PlayPairs(const Way& way, std::minstd_rand& dice, Result& result) {
  constexpr std::size_t kMessages = 2 * (kWarmUpPairs + kPairs);
  std::uniform_int_distribution pause(kShortestPause, kLongestPause);
  auto next = std::chrono::steady_clock::now();
  for (std::size_t pair = 0; pair < kMessages; pair += 2) {
    const std::size_t first = dice() & 1;
    for (const std::size_t number : {pair + first, pair + 1 - first}) {
      std::this_thread::sleep_until(next += std::chrono::microseconds(pause(dice)));
      (number % 2 == 0 ? way.ours : way.bare)(number);
    }
  }
  for (std::size_t i = 0; i < kMessages; ++i) {
    const double took = crossings.Microseconds(i);
    if (i >= 2 * kWarmUpPairs) (i % 2 == 0 ? result.ours : result.limit).push_back(took);
  }
}

// Only ours, or only bare ones.
void PlayAlone(const std::function<void(std::size_t)>& send, std::minstd_rand& dice,
               std::vector<double>& took) {
  std::uniform_int_distribution pause(kShortestPause, kLongestPause);
  auto next = std::chrono::steady_clock::now();
  for (std::size_t number = 0; number < kSliceWarmUp + kSlice; ++number) {
    std::this_thread::sleep_until(next += std::chrono::microseconds(pause(dice)));
    send(number);
  }
  for (std::size_t i = 0; i < kSliceWarmUp + kSlice; ++i) {
    const double each = crossings.Microseconds(i);
    if (i >= kSliceWarmUp) took.push_back(each);
  }
}

class Scene {
 public:
  Scene() {
    bridge.Attach(1);
    RunAsMeasured(WatchedThreads().back().id);
    RunBesideTheMeasured(0);
    bridge.PublishSource(0, source);
    arrivalListener = &atDriver;
  }

  void Measure() {
    Measure({{"alone", [] {}, [] {}}});
    AttachOthers();
    Measure(WithOthers());
    MeasureOscPorts();
  }

 private:
  // Phases of each condition take turns.
  void Measure(const std::vector<Condition>& conditions) {
    const auto ways = Ways();
    std::vector<Result> results(ways.size() * conditions.size());
    for (int phase = 0; phase < kPhases; ++phase) {
      auto result = results.begin();
      for (const Condition& condition : conditions) {
        for (const Way& way : ways) {
          result->measure = way.name + ", " + condition.name;
          {
            const Receiver receiver(way.receiver, way.sender);
            condition.begin();
            PlayPairs(way, dice, *result++);
            condition.end();
          }
          // Whatever is still on its way belongs to this condition and not to the next one.
          Settle();
        }
      }
    }
    TellAll(results);
  }

  void Settle() {
    for (std::size_t i = 0; i < bridge.Attached(); ++i) bridge.Flush(i);
    bridge.DrainAll();
  }

  static void TellAll(std::vector<Result>& results) {
    for (Result& result : results) {
      result.unit = "us";
      result.phases = kPhases;
      Tell(result);
    }
  }

  // Ours while the library serves the ports of another device, and bare ones while sockets alone
  // do as much, in short turns.
  void MeasureOscPorts() {
    const LibraryOscPorts library(bridge, kOscDevice);
    const BareOscPorts bare(library);
    const auto ways = Ways();
    std::vector<Result> results(ways.size());
    for (int phase = 0; phase < kPhases; ++phase) {
      for (std::size_t i = 0; i < ways.size(); ++i) {
        results[i].measure = ways[i].name + ", a device streams on 64 OSC ports";
        const Receiver receiver(ways[i].receiver, ways[i].sender);
        for (int slice = 0; slice < kSlices; ++slice) {
          PlayBeside(library.Numbers(), bridge.Link(kOscDevice).device, library, ways[i].ours,
                     results[i].ours);
          PlayBeside(bare.Numbers(), bare.Stream(), library, ways[i].bare, results[i].limit);
        }
      }
      Settle();
    }
    TellAll(results);
  }

  void PlayBeside(const std::vector<std::uint16_t>& numbers, int stream,
                  const LibraryOscPorts& library, const std::function<void(std::size_t)>& send,
                  std::vector<double>& took) {
    {
      const OscTraffic traffic(numbers, stream, library.Frames());
      PlayAlone(send, dice, took);
    }
    const std::size_t toPrograms = library.Programs().Drain();
    if (Drain(stream) == 0 || toPrograms == 0) GiveUp("the OSC ports did not stream");
  }

  void AttachOthers() {
    bridge.Attach(kSysexDevice + 1);
    for (std::size_t i = 1; i <= kOthers; ++i) {
      const MidiAddress port{"Port of device no. " + std::to_string(i),
                             static_cast<std::int32_t>(100 + i)};
      bridge.PublishSource(i, port);
      toPorts.push_back(MidiFrame(port, MidiOf(3)));
      toOutput.push_back(MidiFrame({kOutput, bridge.OutputId()}, MidiOf(3)));
    }
  }

  std::vector<Way> Ways() {
    const Loopback device = bridge.Link(0);
    return {{"device to driver",
             [this, device](std::size_t number) { SendTimed(device.device, source, number); },
             [this](std::size_t number) { SendTimed(bareLink.device, source, number); },
             bareLink.library, bareLink.device},
            {"input to device",
             [](std::size_t number) {
               const auto note = TimedNote(number);
               crossings.Sent(number);
               PlayShort(note[0] | std::uint32_t{note[1]} << 8 | std::uint32_t{note[2]} << 16);
             },
             [this, device](std::size_t number) { SendTimed(device.library, keys, number); },
             device.device, device.library}};
  }

  std::vector<Condition> WithOthers() {
    const auto quiet = [this] { streams.reset(); };
    return {{"others silent", [] {}, [] {}},
            {"8 devices stream to an output",
             [this] { streams = std::make_unique<Streams>(bridge, toOutput); }, quiet},
            {"8 devices stream to their ports",
             [this] { streams = std::make_unique<Streams>(bridge, toPorts); }, quiet},
            {"64 KB to a slow output",
             [this] { WriteAll(bridge.Link(kSysexDevice).device, sysex.data(), sysex.size()); },
             [this] {
               EndSlowBlock();
               bridge.Flush(kSysexDevice);
             }}};
  }

  Bridge bridge{kSysexDevice + 1, Buffers::large};
  const Loopback bareLink = MakeLoopback(Buffers::large);
  const MidiAddress source{"Bench sequencer, out", 77};
  const MidiAddress keys{kKeys, bridge.KeysId()};
  const std::vector<char> sysex = MidiFrame({kSlowOutput, bridge.SlowOutputId()}, MidiOf(65536));
  std::vector<std::vector<char>> toOutput;
  std::vector<std::vector<char>> toPorts;
  AtDriver atDriver;
  std::minstd_rand dice;
  std::unique_ptr<Streams> streams;
};

}  // namespace

void MeasureLatency() {
  prctl(PR_SET_TIMERSLACK, 1);
  WatchThreads();
  Scene scene;
  scene.Measure();
}

}  // namespace corvalint::bench

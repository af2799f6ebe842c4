// A device that stops reading in the middle of a large message and reads on later, beside one that
// reads all the time. A stall is measured in what is sent meanwhile, not in time: nothing here
// depends on how long it lasts.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "clients/big_endian.h"
#include "ports/desktop_names.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/heap_bytes.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/stream_peer.h"
#include "support/test_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using namespace test;
using Time = std::chrono::steady_clock::time_point;

constexpr std::size_t kSysexSize = 65536;
constexpr int kSysexEvery = 10;
constexpr int kMessages = 600;      // of one part: 60 SysEx of 64 KiB, almost 4 MiB
constexpr int kOnTheirWay = 6;      // at most so many wait for the device that reads
constexpr int kStallAt = 50;        // the message in whose middle a part's stall begins
constexpr std::int64_t kLast = -1;  // the time stamp that ends a device's reading
constexpr std::chrono::seconds kPatience{30};

// Message number n: a SysEx of 64 KiB or a note, both told apart by n.
std::string MidiOf(std::int64_t number) {
  const auto letter = static_cast<char>(number % 127);
  if (number % kSysexEvery != 0) return {'\x90', letter, '\x40'};
  std::string sysex(kSysexSize, letter);
  sysex.front() = '\xF0';
  sysex.back() = '\xF7';
  return sysex;
}

std::int64_t SysexAfter(std::size_t number) {
  return static_cast<std::int64_t>((number + kSysexEvery - 1) / kSysexEvery * kSysexEvery);
}

bool WaitUntil(const std::function<bool()>& condition) {
  const Time end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  return true;
}

// A connected device: the library's client with its thread, and a thread that reads at the other
// end, checks every frame and notes when it came.
class ReadingDevice {
 public:
  ReadingDevice(TestServer& server, ExternalMidiManager& manager, int buffer)
      : client(server, manager), peer(client.Prepare(buffer)) {
    client.OpenNow();
    server.clients.Append(client);
    serving = std::thread([this] { client.RunToTheEnd(); });
    reading = std::thread([this] { ReadAll(); });
  }
  // A device that was not joined, in a test that failed, loses its stream.
  ~ReadingDevice() {
    if (!reading.joinable()) return;
    stalled = false;
    client.CloseStream();
    Join();
  }
  // After a message with the time stamp kLast, or a reset.
  void Join() {
    reading.join();
    peer->Close();
    serving.join();
  }

  // Stops reading in the middle of this SysEx, until GoOn.
  void StallAt(std::int64_t number) { stallAt = number; }
  bool WaitUntilStalled() {
    return WaitUntil([this] { return stalled.load(); });
  }
  void GoOn() { stalled = false; }
  // What has not been read is lost, and the library sees a broken stream.
  void ResetWhileStalled() {
    resets = true;
    stalled = false;
  }

  int Received() const { return received; }
  bool WaitForReceived(int count) {
    return WaitUntil([&] { return received >= count; });
  }
  // Of all messages so far, in their order.
  const std::vector<std::int64_t>& Numbers() const { return numbers; }
  const std::vector<Time>& Times() const { return times; }

 private:
  // "/midi" ",sihb" "Keys" and the id stand before the time stamp.
  static constexpr std::size_t kTimeAt = 28;

  void ReadAll() {
    numbers.reserve(4 * kMessages);
    times.reserve(4 * kMessages);
    for (;;) {
      const std::string header = peer->Receive(12);
      if (header.size() < 12) return;
      const std::size_t length = ReadBigEndian32(header.data());
      if (length <= kTimeAt + 8 || length > kMaximumPayload) {
        ADD_FAILURE() << "no frame boundary: length " << length << " after " << received;
        return;
      }
      std::string payload = peer->Receive(kTimeAt + 8);
      if (payload.size() < kTimeAt + 8) return;
      const std::int64_t number = NumberIn(payload);
      if (number == stallAt) {
        payload += peer->Receive(length / 2);
        stallAt = -2;
        stalled = true;
        WaitUntil([this] { return !stalled; });
        if (resets) return peer->Reset();
      }
      payload += peer->Receive(length - payload.size());
      if (number == kLast) return;
      const bool asSent = header + payload == FrameOf(MidiBytes(number));
      EXPECT_TRUE(asSent) << "message " << number << " is not what was sent";
      numbers.push_back(number);
      times.push_back(std::chrono::steady_clock::now());
      ++received;
    }
  }

  static std::int64_t NumberIn(const std::string& payload) {
    const std::uint64_t high = ReadBigEndian32(payload.data() + kTimeAt);
    return static_cast<std::int64_t>(high << 32 | ReadBigEndian32(payload.data() + kTimeAt + 4));
  }
  static std::string MidiBytes(std::int64_t number) {
    return MidiMessage("Keys", 7, number, MidiOf(number));
  }

  TestClient client;
  std::unique_ptr<StreamPeer> peer;
  std::atomic<std::int64_t> stallAt{-2};
  std::atomic<bool> stalled{false};
  std::atomic<bool> resets{false};
  std::atomic<int> received{0};
  std::vector<std::int64_t> numbers;  // by the reading thread; read it after a wait for its count
  std::vector<Time> times;
  std::thread serving;
  std::thread reading;
};

class DeviceStall : public testing::Test {
 protected:
  void Send(std::int64_t number) {
    const std::string midi = number == kLast ? "\xF8" : MidiOf(number);
    sentAt.push_back(std::chrono::steady_clock::now());
    server.SendMidiToAll(reinterpret_cast<const std::uint8_t*>(midi.data()),
                         static_cast<std::uint32_t>(midi.size()), "Keys", 7, number);
  }

  // One part: kMessages messages, none of which goes out before these devices have taken those
  // before it but a few. So nothing gets on while one of them is kept waiting.
  void SendPart(const std::vector<ReadingDevice*>& devices) {
    const auto wait = [&](int onTheirWay) {
      for (ReadingDevice* device : devices) {
        ASSERT_TRUE(device->WaitForReceived(static_cast<int>(sentAt.size()) - onTheirWay));
      }
    };
    for (int i = 0; i < kMessages; ++i) {
      ASSERT_NO_FATAL_FAILURE(wait(kOnTheirWay));
      Send(static_cast<std::int64_t>(sentAt.size()));
    }
    ASSERT_NO_FATAL_FAILURE(wait(0));
  }

  // The way of notes to the device that reads, in microseconds; 99 of 100 took no longer.
  std::int64_t NinetyNineOfHundred(std::size_t from) const {
    std::vector<std::int64_t> ways;
    for (std::size_t i = from; i < from + kMessages; ++i) {
      if (i % kSysexEvery == 0) continue;
      const auto way = reader.Times().at(i) - sentAt.at(i);
      ways.push_back(std::chrono::duration_cast<std::chrono::microseconds>(way).count());
    }
    const auto place = ways.begin() + static_cast<std::ptrdiff_t>(ways.size() * 99 / 100);
    std::nth_element(ways.begin(), place, ways.end());
    return *place;
  }

  // The counts in the lines about losses, one line a stall.
  std::vector<int> Losses() const {
    constexpr std::string_view kLead = "DEBUG the device did not read: ";
    std::vector<int> counts;
    for (const std::string& line : log.Lines()) {
      if (!line.starts_with(kLead)) continue;
      counts.push_back(std::stoi(line.substr(kLead.size())));
      EXPECT_EQ(line, std::string(kLead) + std::to_string(counts.back()) + " frames dropped");
    }
    return counts;
  }
  bool WaitForLosses(std::size_t lines) {
    return WaitUntil([&] { return Losses().size() >= lines; });
  }

  FakeClock clock;
  ConsoleCapture console;
  LogCapture log;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  std::vector<Time> sentAt;
  ReadingDevice sleeper{server, manager, 4096};
  ReadingDevice reader{server, manager, 0};
};

TEST_F(DeviceStall, LosesWholeFramesOnlyIsCountedOnceAndDelaysNobody) {
  constexpr std::int64_t kSlackOfHeap = 512 * 1024;
  ASSERT_NO_FATAL_FAILURE(SendPart({&reader, &sleeper}));
  const std::int64_t undisturbed = NinetyNineOfHundred(0);
  int expected = kMessages;
  std::vector<std::int64_t> disturbed;
  for (std::size_t stall = 1; stall <= 2; ++stall) {
    const std::size_t from = sentAt.size();
    sleeper.StallAt(SysexAfter(from + kStallAt));
    const std::int64_t heap = HeapBytes();
    ASSERT_NO_FATAL_FAILURE(SendPart({&reader}));
    ASSERT_TRUE(sleeper.WaitUntilStalled());
    const std::int64_t grown = HeapBytes() - heap;
    disturbed.push_back(NinetyNineOfHundred(from));
    EXPECT_LT(grown, kSlackOfHeap) << "bytes of memory for what waits";
    EXPECT_EQ(Losses().size(), stall - 1) << "told before it was over";

    sleeper.GoOn();
    ASSERT_TRUE(WaitForLosses(stall));
    Send(static_cast<std::int64_t>(sentAt.size()));  // the first after the stall arrives
    const int lost = Losses().at(stall - 1);
    EXPECT_GT(lost, 0);
    expected += kMessages + 1 - lost;
    ASSERT_TRUE(sleeper.WaitForReceived(expected));
    ASSERT_TRUE(reader.WaitForReceived(static_cast<int>(sentAt.size())));
    EXPECT_EQ(sleeper.Received(), expected);
    std::fprintf(stderr, "stall %zu: %d of %d messages lost, %lld bytes of heap more\n", stall,
                 lost, kMessages, static_cast<long long>(grown));
  }
  std::fprintf(
      stderr, "p99 of notes to the other device: %lld us undisturbed, %lld and %lld us in stalls\n",
      static_cast<long long>(undisturbed), static_cast<long long>(disturbed[0]),
      static_cast<long long>(disturbed[1]));

  Send(kLast);
  sleeper.Join();
  reader.Join();
  EXPECT_EQ(Losses().size(), 2u);
  EXPECT_EQ(reader.Received(), static_cast<int>(sentAt.size()) - 1);
  const auto& got = sleeper.Numbers();
  EXPECT_EQ(std::adjacent_find(got.begin(), got.end(), std::greater_equal<>()), got.end())
      << "not in order";
}

// Its losses are told too, once, and what waited for it does not reach its next stream.
TEST_F(DeviceStall, AStallThatEndsWithTheCableIsCountedOnce) {
  sleeper.StallAt(kStallAt);
  ASSERT_NO_FATAL_FAILURE(SendPart({&reader}));
  ASSERT_TRUE(sleeper.WaitUntilStalled());
  sleeper.ResetWhileStalled();
  ASSERT_TRUE(WaitForLosses(1));
  sleeper.Join();
  Send(kLast);
  reader.Join();
  ASSERT_EQ(Losses().size(), 1u);
  EXPECT_GT(Losses()[0], 0);
  EXPECT_LT(Losses()[0], kMessages - sleeper.Received());
  EXPECT_EQ(reader.Received(), kMessages);
  EXPECT_EQ(sleeper.Received(), kStallAt);
}

}  // namespace
}  // namespace corvalint

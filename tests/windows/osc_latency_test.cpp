// One device streams on 64 loopback OSC ports while another one plays: its MIDI arrives whole and
// in order. How long it takes is printed beside what it takes on a quiet desktop, and judged by the
// bench.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

#include "device/raw_time.h"
#include "harness/latencies.h"
#include "windows/support/osc_ports.h"
#include "windows/support/serving.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;

constexpr std::size_t kPorts = 64;
constexpr std::size_t kDatagram = 200;
constexpr std::size_t kAtOnce = 8;
constexpr std::chrono::microseconds kBetweenBursts{2500};  // so each port has 50 a second
constexpr std::size_t kNotes = 1000;
constexpr std::chrono::microseconds kBetweenNotes{2000};

// How long messages took, in nanoseconds.
struct Latencies {
  std::vector<std::int64_t> toOutput;
  std::vector<std::int64_t> toDevice;
};

std::string Told(const std::vector<std::int64_t>& latencies) {
  const auto microseconds = [&](double percent) {
    return std::to_string(harness::Percentile(latencies, percent) / 1000) + " us";
  };
  return "p50 " + microseconds(50) + ", p99 " + microseconds(99);
}

// Which differ from their neighbours, so that a loss or a swap shows.
std::vector<Bytes> Notes() {
  std::vector<Bytes> notes;
  for (std::size_t i = 0; i < kNotes; ++i) {
    notes.push_back({0x90, static_cast<std::uint8_t>(i % 128), static_cast<std::uint8_t>(i / 128)});
  }
  return notes;
}

// All ports of a device, with programs that send through them. The device sends every datagram back
// to the program at the port's destination.
class Stream {
 public:
  explicit Stream(PluggedDevice& app) {
    for (std::size_t i = 0; i < kPorts; ++i) ports.push_back(std::make_unique<OscPort>(app));
    for (const auto& port : ports) {
      if (!port->Create()) throw std::runtime_error("no port");
    }
  }
  ~Stream() { Stop(); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  void Start() {
    threads.emplace_back([this] { Send(); });
    threads.emplace_back([this] { Receive(); });
  }
  void Stop() {
    done = true;
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }
  std::uint64_t Sent() const { return sent; }
  std::uint64_t Returned() const { return returned; }
  // Ports whose program has had something back.
  std::size_t PortsHeard() const {
    return static_cast<std::size_t>(std::count(heard.begin(), heard.end(), true));
  }
  // The packet that sends a datagram of a port back, by the key under which it came.
  Bytes Echo(const device::OscMessage& message) const {
    for (const auto& port : ports) {
      if (port->BindKey() == message.Argument<std::string>(0)) {
        return DataPacket(port->DestinationKey(), message.Argument<Bytes>(1));
      }
    }
    return {};
  }

 private:
  void Send() {
    const UdpProgram program;
    const Bytes datagram(kDatagram, 0x55);
    auto next = std::chrono::steady_clock::now();
    while (!done) {
      for (std::size_t i = 0; i < kPorts; ++i) {
        if (i % kAtOnce == 0) std::this_thread::sleep_until(next += kBetweenBursts);
        program.Send(ports[i]->Bind(), datagram);
        ++sent;
      }
    }
  }
  void Receive() {
    while (!done) {
      for (std::size_t i = 0; i < kPorts; ++i) {
        while (ports[i]->Program().Receive(std::chrono::milliseconds(0))) {
          ++returned;
          heard[i] = true;
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  std::vector<std::unique_ptr<OscPort>> ports;
  std::vector<bool> heard = std::vector<bool>(kPorts);
  std::atomic<std::uint64_t> sent{0};
  std::atomic<std::uint64_t> returned{0};
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
};

class OscLatency : public testing::Test {
 protected:
  // Plays both ways at once, a note every two milliseconds, and expects every one in its place.
  Latencies Play() {
    const std::vector<Bytes> notes = Notes();
    bridge.Control().ForgetRecorded();
    player->App().Record().Clear();
    std::vector<harness::InputItem> items;
    for (const Bytes& note : notes) items.push_back(harness::ItemOf(note));
    const int job = bridge.Control().Inject(bridge.Input("Keys"), items,
                                            {.paceUs = kBetweenNotes.count(), .stamps = true});
    std::vector<std::int64_t> sentAt;
    auto next = std::chrono::steady_clock::now();
    for (const Bytes& note : notes) {
      sentAt.push_back(device::RawNow());
      EXPECT_TRUE(player->App().SendMidi("Synth", synth, note));
      std::this_thread::sleep_until(next += kBetweenNotes);
    }
    // On a loaded machine the streaming leaves it a small part of the time.
    EXPECT_TRUE(bridge.Control().WaitForJob(job, 4 * kPatience).has_value());
    const int output = bridge.Output("Synth");
    EXPECT_TRUE(bridge.Control().WaitForOutputMessages(output, kNotes));
    EXPECT_TRUE(WaitForMidiOf(*player, keys, kNotes));
    EXPECT_TRUE(player->Flush());

    Latencies latencies;
    const auto atOutput = bridge.Control().OutputMessages(output);
    std::vector<Bytes> played;
    for (const auto& message : atOutput) played.push_back(message.bytes);
    EXPECT_TRUE(played == notes) << played.size() << " of " << kNotes << " at the output";
    for (std::size_t i = 0; i < std::min(atOutput.size(), sentAt.size()); ++i) {
      latencies.toOutput.push_back(atOutput[i].ns - sentAt[i]);
    }
    EXPECT_TRUE(BytesOf(player->Midi(), keys) == notes);
    const auto given = bridge.Control().InputStamps(bridge.Input("Keys"));
    const auto atDevice = player->App().Record().MessagesTo("/midi");
    EXPECT_EQ(given.size(), atDevice.size());
    for (std::size_t i = 0; i < std::min(given.size(), atDevice.size()); ++i) {
      latencies.toDevice.push_back(atDevice[i].arrival - given[i]);
    }
    return latencies;
  }

  Bridge bridge{{"Keys"}, {"Synth"}};
  const std::unique_ptr<PluggedDevice> player{bridge.Plug("player")};
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
};

TEST_F(OscLatency, EveryNoteArrivesInItsPlaceWhileAnotherDeviceStreamsOnSixtyFourPorts) {
  std::atomic<Stream*> stream{nullptr};
  PluggedDevice* streamer = nullptr;
  device::DeviceOptions options;
  options.onMessage = [&](const device::ReceivedMessage& received) {
    Stream* const echoing = stream;
    if (echoing == nullptr || received.message.address != "/osc") return;
    streamer->App().SendPacket(echoing->Echo(received.message));
  };
  const auto plugged = bridge.Plug("streamer", options);
  streamer = plugged.get();
  Stream theStream(*plugged);
  ASSERT_TRUE(plugged->Flush() && player->Flush());

  const Latencies quiet = Play();
  stream = &theStream;
  theStream.Start();
  const auto start = std::chrono::steady_clock::now();
  const Latencies busy = Play();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  const std::uint64_t sent = theStream.Sent();
  const std::uint64_t returned = theStream.Returned();
  theStream.Stop();
  stream = nullptr;
  ASSERT_TRUE(plugged->Flush());

  EXPECT_EQ(theStream.PortsHeard(), kPorts);
  std::cout << "64 ports streaming: " << sent << " datagrams to the device, " << returned
            << " back, in " << took.count() << " s\n"
            << "device to output: quiet " << Told(quiet.toOutput) << "; streaming "
            << Told(busy.toOutput) << "\ninput to device: quiet " << Told(quiet.toDevice)
            << "; streaming " << Told(busy.toDevice) << '\n';
  ExpectClean(bridge, {player.get(), plugged.get()});
}

}  // namespace
}  // namespace corvalint::windows_test

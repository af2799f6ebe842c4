// The ways through the shipped DLL at the simulated desk under Wine. The desk and the device are
// programs of their own there, so these figures are told and not compared with anything.
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

#include "bench/results.h"
#include "device/raw_time.h"
#include "windows/support/serving.h"

namespace corvalint::bench {
namespace {

using device::Bytes;
using windows_test::Bridge;
using windows_test::PluggedDevice;

constexpr std::int32_t kAppId = 77;
constexpr std::size_t kTimedNotes = 1000;
constexpr std::chrono::microseconds kBetweenNotes{1000};

struct Load {
  const char* name;
  std::size_t midi;
  std::size_t messages;
};
constexpr Load kLoads[] = {{"3 bytes", 3, 5000}, {"1 KiB", 1024, 2000}, {"64 KiB", 65500, 100}};

void Must(bool happened, const char* what) {
  if (!happened) throw std::runtime_error(what);
}

Bytes MidiOf(std::size_t count) {
  if (count == 3) return {0x90, 0x3C, 0x64};
  Bytes midi(count, 0x11);
  midi.front() = 0xF0;
  midi.back() = 0xF7;
  return midi;
}

// Nanoseconds for each message but the first, from the first one's time to the last one's.
template <class Messages, class TimeOf>
double Each(const Messages& messages, const TimeOf& timeOf) {
  return static_cast<double>(timeOf(messages.back()) - timeOf(messages.front())) /
         static_cast<double>(messages.size() - 1);
}

class DllWays {
 public:
  DllWays() { port = player->PublishSource("App", kAppId).id; }

  void Measure() {
    for (const Load& load : kLoads) {
      Receive(load, "a port", kAppId);
      Receive(load, "an output", synth);
    }
    for (const Load& load : kLoads) Play(load);
    TimeNotes();
  }

 private:
  void Forget() {
    Must(player->Flush(), "the device is not served");
    bridge.Control().ForgetRecorded();
    player->App().Record().Clear();
  }

  void Receive(const Load& load, const char* where, std::int32_t id) {
    Result result;
    result.measure = std::string("DLL under Wine: receive ") + load.name + " to " + where;
    for (int round = 0; round < 3; ++round) {
      Forget();
      for (std::size_t i = 0; i < load.messages; ++i) {
        Must(player->App().SendMidi("App", id, MidiOf(load.midi)), "the stream is gone");
      }
      auto& control = bridge.Control();
      const int output = bridge.Output("Synth");
      const bool toPort = id == kAppId;
      Must(toPort ? control.WaitForPortMessages(port, load.messages)
                  : control.WaitForOutputMessages(output, load.messages),
           "messages are missing at the desk");
      const auto arrived = toPort ? control.PortMessages(port) : control.OutputMessages(output);
      result.ours.push_back(Each(arrived, [](const auto& message) { return message.ns; }));
    }
    Tell(result);
  }

  void Play(const Load& load) {
    Result result;
    result.measure = std::string("DLL under Wine: input of ") + load.name + " to 1 device";
    const std::vector<Bytes> messages(load.messages, MidiOf(load.midi));
    for (int round = 0; round < 3; ++round) {
      Forget();
      bridge.Inject("Keys", messages);
      Must(windows_test::WaitForMidiOf(*player, keys, load.messages), "the device misses messages");
      const auto arrived = player->App().Record().MessagesTo("/midi");
      result.ours.push_back(Each(arrived, [](const auto& message) { return message.arrival; }));
    }
    Tell(result);
  }

  void TimeNotes() {
    Result toOutput;
    toOutput.measure = "DLL under Wine: device to output, paced";
    Result toDevice;
    toDevice.measure = "DLL under Wine: input to device, paced";
    Forget();
    std::vector<std::int64_t> sentAt;
    auto next = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < kTimedNotes; ++i) {
      std::this_thread::sleep_until(next += kBetweenNotes);
      sentAt.push_back(device::RawNow());
      Must(player->App().SendMidi("Synth", synth, MidiOf(3)), "the stream is gone");
    }
    const int output = bridge.Output("Synth");
    Must(bridge.Control().WaitForOutputMessages(output, kTimedNotes), "notes are missing");
    const auto atOutput = bridge.Control().OutputMessages(output);
    for (std::size_t i = 0; i < kTimedNotes; ++i) {
      toOutput.ours.push_back(static_cast<double>(atOutput[i].ns - sentAt[i]) / 1000);
    }

    Forget();
    const std::vector<harness::InputItem> items(kTimedNotes, harness::ItemOf(MidiOf(3)));
    const int job = bridge.Control().Inject(bridge.Input("Keys"), items,
                                            {.paceUs = kBetweenNotes.count(), .stamps = true});
    Must(bridge.Control().WaitForJob(job).has_value(), "the keys do not play to their end");
    Must(windows_test::WaitForMidiOf(*player, keys, kTimedNotes), "the device misses notes");
    const auto given = bridge.Control().InputStamps(bridge.Input("Keys"));
    const auto arrived = player->App().Record().MessagesTo("/midi");
    for (std::size_t i = 0; i < kTimedNotes; ++i) {
      toDevice.ours.push_back(static_cast<double>(arrived.at(i).arrival - given.at(i)) / 1000);
    }
    for (Result* result : {&toOutput, &toDevice}) {
      result->unit = "us";
      result->phases = 1;
      Tell(*result);
    }
  }

  Bridge bridge{{"Keys"}, {"Synth"}};
  const std::unique_ptr<PluggedDevice> player{bridge.Plug("player")};
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
  int port = 0;
};

}  // namespace
}  // namespace corvalint::bench

int main() try {
  corvalint::bench::TakeStandardOutput();
  corvalint::bench::DllWays().Measure();
  return 0;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "bench: the DLL's ways: %s\n", failure.what());
  return 1;
}

// What the shipped DLL answers devices while the host's counter, which it reads from a file of this
// test, runs, jumps and stands still.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <fstream>

#include "device/descriptor.h"
#include "harness/temp_folder.h"
#include "timing/clock_scenes.h"
#include "windows/support/bridge.h"
#include "windows/support/observers.h"
#include "windows/support/serving.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using timing::ClockScene;
using timing::ClockStep;

const Bytes kClockByte{0xF8};

// The file counter.bin: first as the host finds it, then in the running host's folder.
class Counter {
 public:
  Counter() { Write(temp.Path() / kName, 0); }
  ~Counter() {
    if (shown != nullptr) ::munmap(shown, sizeof *shown);
  }
  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  std::filesystem::path File() const { return temp.Path() / kName; }
  // From now on Show changes what the host in that folder reads.
  void Join(const std::filesystem::path& folder) {
    const device::Descriptor file(::open((folder / kName).c_str(), O_RDWR | O_CLOEXEC));
    void* const view =
        ::mmap(nullptr, sizeof *shown, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (view == MAP_FAILED) throw std::runtime_error("the counter cannot be mapped");
    shown = static_cast<std::int64_t*>(view);
  }
  void Show(std::int64_t ticks) { std::atomic_ref(*shown).store(ticks); }

 private:
  static constexpr const char* kName = "counter.bin";
  static void Write(const std::filesystem::path& path, std::int64_t ticks) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(&ticks), sizeof ticks);
  }

  harness::TempFolder temp;
  std::int64_t* shown = nullptr;
};

harness::DeskOptions WithCounter(const Counter& counter) {
  harness::DeskOptions options;
  options.program = "tests/windows/corvalint-clocked-host.exe";
  options.files = {"corvalint_wrapper.dll", counter.File()};
  return options;
}

Bytes Answer(const ClockStep& step) {
  if (step.kind == ClockStep::kInit) {
    return Framed({OscText("/init_timing"), OscText(",hi"), BigEndian(step.offset),
                   BigEndian(std::uint64_t{210}, 4)});
  }
  return Framed({OscText("/update_timing"), OscText(",dh"), BigEndian(step.drift, 8),
                 BigEndian(step.offset)});
}

std::vector<Bytes> BytesOfFrames(const PluggedDevice& plugged) {
  std::vector<Bytes> all;
  for (const auto& frame : plugged.App().Record().Frames()) all.push_back(frame.bytes);
  return all;
}

class Time : public testing::Test {
 protected:
  Time() { counter.Join(bridge.GetDesk().Folder()); }

  // The device sends the scene's messages, each while the counter stands where the scene says.
  void Play(const ClockScene& scene, PluggedDevice& plugged) {
    std::vector<Bytes> answers;
    std::vector<Bytes> relayed;
    plugged.App().Record().Clear();
    listener->App().Record().Clear();
    for (const ClockStep& step : scene.steps) {
      counter.Show(step.ticks);
      const char* const address = step.kind == ClockStep::kInit ? "/init_timing" : "/update_timing";
      ASSERT_TRUE(plugged.App().SendPacket(device::EncodeTiming(address, step.deviceTime)));
      ASSERT_TRUE(plugged.App().SendMidi("Piano", 5, step.deviceTime, kClockByte));
      answers.push_back(Answer(step));
      relayed.push_back(MidiFrame("Piano", 5, step.relayed, kClockByte));
      ASSERT_TRUE(plugged.App().Record().WaitForMessages(answers.size(), kPatience));
      ASSERT_TRUE(listener->App().Record().WaitForMessages(relayed.size(), kPatience));
    }
    EXPECT_EQ(BytesOfFrames(plugged), answers);
    EXPECT_EQ(BytesOfFrames(*listener), relayed);
  }

  Counter counter;
  Bridge bridge{{}, {}, WithCounter(counter)};
  std::unique_ptr<PluggedDevice> listener = bridge.Plug("listener");
};

TEST_F(Time, EveryClockIsAnsweredBitForBit) {
  std::size_t steps = 0;
  for (const ClockScene& scene : timing::ClockScenes()) {
    SCOPED_TRACE(scene.name);
    const auto plugged = bridge.Plug(scene.name);
    ASSERT_NO_FATAL_FAILURE(Play(scene, *plugged));
    plugged->Detach();
    ExpectClean(bridge, {plugged.get(), listener.get()});
    steps += scene.steps.size();
  }
  std::printf("%zu scenes with %zu timing messages\n", timing::ClockScenes().size(), steps);
}

// A keyboard is heard while the counter stands still, and after it went back by eight hours.
TEST_F(Time, MidiGoesOnWhateverTheCounterShows) {
  const int input = bridge.Control().AddInput("Keys");
  const auto keys = bridge.GetHost().WaitForSource("Keys", kPatience);
  ASSERT_TRUE(keys.has_value());
  bridge.GetHost().ToggleSource(keys->id);
  ASSERT_TRUE(bridge.Control().WaitForInputStarted(input));
  ASSERT_TRUE(listener->Flush());
  listener->App().Record().Clear();
  std::vector<Bytes> expected;
  constexpr std::int64_t kEightHours = 8 * 3600 * std::int64_t{10'000'000};
  for (const std::int64_t ticks : {kEightHours, kEightHours, std::int64_t{0}, std::int64_t{-1}}) {
    counter.Show(ticks);
    bridge.Control().Inject(input, {{harness::InputItem::Kind::kShort, {0x90, 1, 2}}});
    expected.push_back(MidiFrame("Keys", keys->id, TickWindow::HostTimeAt(ticks), {0x90, 1, 2}));
    ASSERT_TRUE(listener->App().Record().WaitForMessages(expected.size(), kPatience));
  }
  EXPECT_EQ(BytesOfFrames(*listener), expected);
  bridge.GetHost().ToggleSource(keys->id);
  ExpectClean(bridge, {listener.get()});
}

}  // namespace
}  // namespace corvalint::windows_test

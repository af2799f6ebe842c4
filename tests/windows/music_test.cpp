// Whole songs through the shipped DLL, as fast as it goes: nothing lost, changed or reordered.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "device/song.h"
#include "windows/support/two_playing_devices.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::IsEmpty;

// The shorter songs of the collection, and its longest.
const std::vector<std::string> kShortTitles = {"coconut_run2", "train_filled_with_cash",
                                               "ultimate_run", "5432gone_redfarn", "chuggachugga"};
const std::vector<std::string> kLongTitles = {"tttheme2", "keep_on_rolling"};

std::vector<Bytes> EventsOf(const std::string& title) {
  for (const std::filesystem::path& path : device::FindSongs()) {
    if (path.stem() != title) continue;
    std::vector<Bytes> events;
    for (device::SongEvent& event : device::ReadSong(path).events) {
      events.push_back(std::move(event.bytes));
    }
    if (!events.empty()) return events;
  }
  throw std::runtime_error("no song " + title + "; is openttd-openmsx installed?");
}

// Equal, and if not, where the first difference is: a diff of thousands of events helps nobody.
testing::AssertionResult Same(const std::vector<Bytes>& received, const std::vector<Bytes>& song) {
  const auto [mine, its] =
      std::mismatch(received.begin(), received.end(), song.begin(), song.end());
  if (mine == received.end() && its == song.end()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << received.size() << " events instead of " << song.size()
                                     << ", the first difference is at " << mine - received.begin();
}

device::FrameBatch FramesOf(const std::vector<Bytes>& events, std::string_view name,
                            std::int32_t id) {
  device::FrameBatch batch;
  std::int64_t time = 0;
  for (const Bytes& event : events) batch.AddMidi(name, id, ++time, event);
  return batch;
}

// The MIDI that a device received, by endpoint id.
std::map<std::int32_t, std::vector<Bytes>> MidiById(const PluggedDevice& plugged) {
  std::map<std::int32_t, std::vector<Bytes>> lists;
  for (device::MidiMessage& message : plugged.Midi()) {
    lists[message.id].push_back(std::move(message.data));
  }
  return lists;
}

class Music : public TwoPlayingDevices, public testing::WithParamInterface<std::string> {
 protected:
  static constexpr std::int32_t kAppId = 77;

  static void SetUpTestSuite() {
    TwoPlayingDevices::SetUpTestSuite();
    port = a->PublishSource("App", kAppId).id;
  }

  const std::vector<Bytes> song = EventsOf(GetParam());
  inline static int port = 0;
};

TEST_P(Music, PlaysFromADeviceToADesktopOutput) {
  ASSERT_TRUE(a->App().SendBatch(FramesOf(song, "Synth", synth)));
  const int output = bridge->Output("Synth");
  EXPECT_TRUE(bridge->Control().WaitForOutputMessages(output, song.size(), kPatience));
  ASSERT_TRUE(a->Flush());
  EXPECT_TRUE(Same(BytesOf(bridge->Control().OutputMessages(output)), song));
}

TEST_P(Music, PlaysFromADeviceToItsPortAndToTheOtherDevice) {
  ASSERT_TRUE(a->App().SendBatch(FramesOf(song, "App", kAppId)));
  EXPECT_TRUE(bridge->Control().WaitForPortMessages(port, song.size(), kPatience));
  EXPECT_TRUE(b->App().Record().WaitForMessages(song.size(), kPatience));
  ASSERT_TRUE(a->Flush());
  EXPECT_TRUE(Same(BytesOf(bridge->Control().PortMessages(port)), song));
  EXPECT_TRUE(Same(MidiById(*b)[kAppId], song));
}

TEST_P(Music, PlaysFromAKeyboardToTwoDevices) {
  bridge->Inject("Keys", song);
  for (const auto* plugged : {a.get(), b.get()}) {
    EXPECT_TRUE(plugged->App().Record().WaitForMessages(song.size(), kPatience));
    EXPECT_TRUE(Same(MidiById(*plugged)[keys], song));
  }
}

// A test's name may not begin with a digit.
std::string TestName(const testing::TestParamInfo<std::string>& title) {
  return "song_" + title.param;
}

INSTANTIATE_TEST_SUITE_P(Short, Music, testing::ValuesIn(kShortTitles), TestName);
INSTANTIATE_TEST_SUITE_P(Long, Music, testing::ValuesIn(kLongTitles), TestName);

// Four keyboards, four outputs and eight published ports, all playing at the same time.
class Orchestra : public testing::Test {
 protected:
  static constexpr std::size_t kDevices = 8;
  static constexpr std::size_t kKeyboards = 4;
  static constexpr std::size_t kOutputs = 4;
  static constexpr std::int32_t kFirstAppId = 100;

  Orchestra() {
    for (const std::string& title : kShortTitles) songs.push_back(EventsOf(title));
    for (std::size_t i = 0; i < kKeyboards; ++i) {
      keyboardIds.push_back(bridge.SwitchSourceOn(Keyboard(i)));
    }
    for (std::size_t i = 0; i < kOutputs; ++i) {
      outputIds.push_back(bridge.SwitchDestinationOn(Output(i)));
    }
    for (std::size_t i = 0; i < kDevices; ++i) {
      apps.push_back(bridge.Plug("device-" + std::to_string(i)));
      ports.push_back(apps[i]->PublishSource(App(i), AppId(i)).id);
    }
    for (const auto& app : apps) {
      if (!app->Flush()) throw std::runtime_error("a device is not served");
    }
    for (const auto& app : apps) app->App().Record().Clear();
  }

  static std::vector<std::string> Names(std::string (*name)(std::size_t), std::size_t count) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) names.push_back(name(i));
    return names;
  }
  static std::string Keyboard(std::size_t i) { return "Keys " + std::to_string(i); }
  static std::string Output(std::size_t i) { return "Synth " + std::to_string(i); }
  static std::string App(std::size_t i) { return "App " + std::to_string(i); }
  static std::int32_t AppId(std::size_t i) { return kFirstAppId + static_cast<std::int32_t>(i); }

  // Which song sounds where.
  const std::vector<Bytes>& PortSong(std::size_t device) const {
    return songs[device % songs.size()];
  }
  const std::vector<Bytes>& OutputSong(std::size_t output) const {
    return songs[(output + 1) % songs.size()];
  }
  const std::vector<Bytes>& KeyboardSong(std::size_t keyboard) const {
    return songs[(keyboard + 2) % songs.size()];
  }

  // What a device hears: all keyboards, and what the other devices play into their ports.
  std::size_t HeardBy(std::size_t device) const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < kKeyboards; ++i) count += KeyboardSong(i).size();
    for (std::size_t i = 0; i < kDevices; ++i) count += i == device ? 0 : PortSong(i).size();
    return count;
  }

  std::vector<int> PlayAll() {
    std::vector<int> jobs;
    for (std::size_t i = 0; i < kKeyboards; ++i) {
      std::vector<harness::InputItem> items;
      for (const Bytes& event : KeyboardSong(i)) items.push_back(harness::ItemOf(event));
      jobs.push_back(bridge.Control().Inject(bridge.Input(Keyboard(i)), items));
    }
    for (std::size_t i = 0; i < kDevices; ++i) {
      EXPECT_TRUE(apps[i]->App().SendBatch(FramesOf(PortSong(i), App(i), AppId(i))));
      if (i >= kOutputs) continue;
      EXPECT_TRUE(apps[i]->App().SendBatch(FramesOf(OutputSong(i), Output(i), outputIds[i])));
    }
    return jobs;
  }

  std::vector<std::vector<Bytes>> songs;
  Bridge bridge{Names(Keyboard, kKeyboards), Names(Output, kOutputs)};
  std::vector<std::int32_t> keyboardIds;
  std::vector<std::int32_t> outputIds;
  std::vector<std::unique_ptr<PluggedDevice>> apps;
  std::vector<int> ports;
};

TEST_F(Orchestra, SixteenEndpointsAndEightDevicesPlayAtOnce) {
  const std::vector<int> jobs = PlayAll();
  for (const int job : jobs) {
    const auto result = bridge.Control().WaitForJob(job, 2 * kPatience);
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->dropped, 0u);
  }
  for (std::size_t i = 0; i < kDevices; ++i) {
    SCOPED_TRACE(App(i));
    EXPECT_TRUE(apps[i]->App().Record().WaitForMessages(HeardBy(i), 2 * kPatience));
  }
  for (const auto& app : apps) ASSERT_TRUE(app->Flush());

  for (std::size_t i = 0; i < kDevices; ++i) {
    SCOPED_TRACE(App(i));
    EXPECT_TRUE(Same(BytesOf(bridge.Control().PortMessages(ports[i])), PortSong(i)));
    auto heard = MidiById(*apps[i]);
    for (std::size_t other = 0; other < kDevices; ++other) {
      const std::vector<Bytes> nothing;
      EXPECT_TRUE(Same(heard[AppId(other)], other == i ? nothing : PortSong(other))) << other;
    }
    for (std::size_t keyboard = 0; keyboard < kKeyboards; ++keyboard) {
      EXPECT_TRUE(Same(heard[keyboardIds[keyboard]], KeyboardSong(keyboard))) << keyboard;
    }
    EXPECT_EQ(heard.size(), kDevices + kKeyboards);
    EXPECT_THAT(apps[i]->App().Record().Violations(), IsEmpty());
  }
  for (std::size_t i = 0; i < kOutputs; ++i) {
    SCOPED_TRACE(Output(i));
    const auto played = bridge.Control().OutputMessages(bridge.Output(Output(i)));
    EXPECT_TRUE(Same(BytesOf(played), OutputSong(i)));
  }
  EXPECT_THAT(bridge.Control().Violations(), IsEmpty());
}

}  // namespace
}  // namespace corvalint::windows_test

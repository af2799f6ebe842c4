// Where MIDI and announcements go, through the shipped DLL.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/bridge.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::ElementsAre;

const Bytes kNoteOn{0x90, 0x3C, 0x64};

TEST(Routing, InputGoesToEveryDevice) {
  Bridge bridge({"Keys"}, {});
  const auto a = bridge.Plug("device-a");
  const auto b = bridge.Plug("device-b");
  const std::int32_t id = bridge.SwitchSourceOn("Keys");
  EXPECT_TRUE(a->WaitForAnnouncement("/add_remote_source", "Keys", id));
  EXPECT_TRUE(b->WaitForAnnouncement("/add_remote_source", "Keys", id));
  bridge.Inject("Keys", {kNoteOn});
  for (const auto* plugged : {a.get(), b.get()}) {
    ASSERT_TRUE(plugged->WaitForMidi(1));
    const auto midi = plugged->Midi();
    ASSERT_EQ(midi.size(), 1u);
    EXPECT_EQ(midi[0].name, "Keys");
    EXPECT_EQ(midi[0].id, id);
    EXPECT_EQ(midi[0].data, kNoteOn);
  }
}

TEST(Routing, DeviceReachesOutputAndItsOwnPort) {
  Bridge bridge({}, {"Synth"});
  const auto a = bridge.Plug("device-a");
  const std::int32_t id = bridge.SwitchDestinationOn("Synth");
  ASSERT_TRUE(a->WaitForAnnouncement("/add_remote_destination", "Synth", id));
  const auto port = a->PublishSource("App", 77);
  ASSERT_TRUE(a->App().SendMidi("Synth", id, kNoteOn));
  ASSERT_TRUE(a->App().SendMidi("App", 77, {0x80, 1, 2}));
  ASSERT_TRUE(bridge.Control().WaitForOutputMessages(bridge.Output("Synth"), 1));
  ASSERT_TRUE(bridge.Control().WaitForPortMessages(port.id, 1));
  EXPECT_EQ(bridge.Control().OutputMessages(bridge.Output("Synth"))[0].bytes, kNoteOn);
  EXPECT_EQ(bridge.Control().PortMessages(port.id)[0].bytes, (Bytes{0x80, 1, 2}));
}

}  // namespace
}  // namespace corvalint::windows_test

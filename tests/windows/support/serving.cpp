#include "windows/support/serving.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace corvalint::windows_test {

using device::Bytes;
using testing::IsEmpty;

namespace {

const Bytes kNoteOn{0x90, 0x3C, 0x64};
const Bytes kNoteOff{0x80, 0x3C, 0x00};

}  // namespace

std::vector<Bytes> BytesOf(const std::vector<device::MidiMessage>& midi, std::int32_t id) {
  std::vector<Bytes> list;
  for (const auto& message : midi) {
    if (message.id == id) list.push_back(message.data);
  }
  return list;
}

bool WaitForMidiOf(const PluggedDevice& plugged, std::int32_t id, std::size_t count,
                   std::chrono::milliseconds limit) {
  return plugged.App().Record().WaitFor(
      [&](const device::DeviceRecord::Messages& messages) {
        const auto found =
            std::count_if(messages.begin(), messages.end(), [id](const auto& received) {
              const auto midi = device::AsMidi(received.message);
              return midi && midi->id == id;
            });
        return static_cast<std::size_t>(found) >= count;
      },
      limit);
}

void ExpectServed(Bridge& bridge, PluggedDevice& plugged, const std::string& name, std::int32_t id,
                  const std::string& output, std::int32_t outputId) {
  ASSERT_TRUE(plugged.App().AnnounceSource(name, id));
  ASSERT_TRUE(plugged.App().AnnounceDestination(name, id + 1));
  const auto port = bridge.Control().WaitForPort(harness::Widened(name), kAtOnce);
  ASSERT_TRUE(port.has_value());
  ASSERT_TRUE(plugged.Flush());

  const int outputNumber = bridge.Output(output);
  const std::size_t before = bridge.Control().OutputMessageCount(outputNumber);
  ASSERT_TRUE(plugged.App().SendMidi(name, id, kNoteOn));
  ASSERT_TRUE(plugged.App().SendMidi(output, outputId, kNoteOff));
  EXPECT_TRUE(bridge.Control().WaitForPortMessages(port->id, 1, kAtOnce));
  ASSERT_TRUE(bridge.Control().WaitForOutputMessages(outputNumber, before + 1, kAtOnce));
  EXPECT_EQ(bridge.Control().OutputMessages(outputNumber).at(before).bytes, kNoteOff);

  bridge.Control().Play(port->id, {kNoteOff});
  ASSERT_TRUE(WaitForMidiOf(plugged, id + 1, 1, kAtOnce));
  EXPECT_THAT(BytesOf(plugged.Midi(), id + 1), testing::ElementsAre(kNoteOff));
}

void ExpectClean(Bridge& bridge, const std::vector<PluggedDevice*>& devices) {
  EXPECT_TRUE(bridge.GetHost().Running());
  EXPECT_THAT(bridge.Control().Violations(), IsEmpty());
  for (const PluggedDevice* plugged : devices) {
    EXPECT_THAT(plugged->App().Record().Violations(), IsEmpty());
  }
}

}  // namespace corvalint::windows_test

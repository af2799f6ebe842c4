#include "windows/support/travellers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvalint::windows_test {

namespace {

using device::Bytes;

constexpr std::int32_t kId = 5;
constexpr std::size_t kNotesFromKeyboard = 20;
const Bytes kNoteOn{0x90, 0x3C, 0x64};
const Bytes kNoteOff{0x80, 0x3C, 0x00};

}  // namespace

std::size_t CountOf(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

Travellers::Travellers(Bridge& theBridge, std::size_t count, std::int32_t outputId)
    : bridge(theBridge), synth(outputId) {
  for (std::size_t i = 0; i < count; ++i) {
    devices.push_back(
        std::make_unique<PluggedDevice>(bridge.Control(), "traveller-" + std::to_string(i)));
    oscPorts.push_back(std::make_unique<OscPort>(*devices.back()));
  }
}

void Travellers::Journey() {
  ++journeys;
  ASSERT_NO_FATAL_FAILURE(ArriveAndPlay());
  Leave();
}

void Travellers::ArriveAndPlay() {
  for (const auto& traveller : devices) bridge.Control().Attach(traveller->Name());
  for (const auto& traveller : devices) {
    ASSERT_TRUE(traveller->App().WaitForStream(journeys, kPatience));
    traveller->App().Record().Clear();
    ASSERT_TRUE(traveller->App().AnnounceSource(traveller->Name(), kId));
    ASSERT_TRUE(traveller->App().SendMidi(traveller->Name(), kId, kNoteOn));
    ASSERT_TRUE(traveller->App().SendMidi("Synth", synth, kNoteOff));
    ASSERT_TRUE(traveller->Flush());
  }
  for (const auto& port : oscPorts) {
    ASSERT_TRUE(port->Create());
    ASSERT_TRUE(port->ToDevice(kNoteOn));
    ASSERT_TRUE(port->ToProgram(kNoteOff));
  }
  bridge.Inject("Keys", std::vector<Bytes>(kNotesFromKeyboard, kNoteOn));
  for (const auto& traveller : devices) {
    ASSERT_TRUE(traveller->WaitForMidi(kNotesFromKeyboard));
    ASSERT_THAT(traveller->App().Record().Violations(), testing::IsEmpty());
  }
}

void Travellers::Leave() {
  for (std::size_t i = 1; i < devices.size(); ++i) {
    devices[i]->App().Cut(i % 2 == 0 ? device::CutHow::kReset : device::CutHow::kFinish);
  }
  for (std::size_t i = 1; i < devices.size(); ++i) {
    ASSERT_TRUE(devices[i]->App().WaitForStreamEnd(journeys, kPatience));
  }
  for (std::size_t i = devices.size(); i-- > 0;) bridge.Control().Detach(devices[i]->Name());
  ASSERT_TRUE(bridge.Control().WaitForNotifications(3 * kPatience));
  ASSERT_TRUE(devices[0]->App().WaitForStreamEnd(journeys, kPatience));
  // Had a cut device been connected to again, the journeys could not be told apart.
  for (const auto& traveller : devices) {
    ASSERT_EQ(traveller->App().Record().Counters().streamsOpened, journeys);
  }
}

std::string Told(const harness::ProcessCounts& counts) {
  return std::to_string(counts.threads) + " threads, " + std::to_string(counts.handles) +
         " handles, " + std::to_string(counts.sockets) + " sockets, " +
         std::to_string(counts.workingSet / 1024) + " KiB";
}

bool SameCounts(const harness::ProcessCounts& one, const harness::ProcessCounts& other) {
  return one.threads == other.threads && one.handles == other.handles &&
         one.sockets == other.sockets;
}

}  // namespace corvalint::windows_test

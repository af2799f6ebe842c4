#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/process.h"
#include "ports/virtual_midi_port.h"
#include "support/fake_virtual_midi.h"

namespace corvalint::test {

// What one delivery carried.
struct Delivery {
  std::vector<std::uint8_t> bytes;
  std::string name;
  std::uint32_t id;
  std::uint32_t secondWord;
  std::int64_t timestamp;
  std::string key;

  bool operator==(const Delivery&) const = default;
};

inline void PrintTo(const Delivery& delivery, std::ostream* out) {
  *out << delivery.bytes.size() << " bytes for " << delivery.name << " " << delivery.id << " word "
       << delivery.secondWord << " at " << delivery.timestamp << " key " << delivery.key;
}

// The owner of a port, which notes what it is handed.
class RecordingOwner final : public VirtualMidiDestinationDelegate {
 public:
  void MidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& name,
                    std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                    const std::string& deviceKey) override {
    deliveries.push_back({{data, data + count}, name, id, secondWord, timestamp, deviceKey});
    lastData = data;
    if (whenReceived) whenReceived();
  }

  std::vector<Delivery> deliveries;
  const std::uint8_t* lastData = nullptr;
  std::function<void()> whenReceived;
};

// A scripted driver and clock, and an owner for the ports.
class VirtualMidiPortTest : public ::testing::Test {
 protected:
  VirtualMidiPortTest() : clock(ClockApi::System()), process(ProcessApi::System()) {
    clock.counter = [] { return ticks.load(); };
    ticks = 12345;
    Install<ClockApi>(&clock);
  }
  ~VirtualMidiPortTest() override {
    Install<ClockApi>(nullptr);
    Install<ProcessApi>(nullptr);
  }

  // What the clock reads.
  static inline std::atomic<std::int64_t> ticks{0};
  ClockApi clock;
  ProcessApi process;
  FakeVirtualMidi driver;
  DesktopNames names;
  RecordingOwner owner;
};

}  // namespace corvalint::test

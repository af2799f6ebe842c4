#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "windows/support/bridge.h"

// Whether the library still serves, for tests that made its life hard.
namespace corvalint::windows_test {

// What "at once" means for a person who waits, on a machine that is busy with other tests.
inline constexpr std::chrono::milliseconds kAtOnce{3000};

// The data of the messages with that endpoint id, in order.
std::vector<device::Bytes> BytesOf(const std::vector<device::MidiMessage>& midi, std::int32_t id);

// Until the device has received so many "/midi" messages with that endpoint id.
bool WaitForMidiOf(const PluggedDevice& plugged, std::int32_t id, std::size_t count,
                   std::chrono::milliseconds limit = kPatience);

// Expects that a device is served at once in every way: it publishes a source and a destination of
// that name (ids `id` and `id + 1`), plays into its port and to a desktop output that is on, and
// hears what a desktop program writes into the port.
void ExpectServed(Bridge& bridge, PluggedDevice& plugged, const std::string& name, std::int32_t id,
                  const std::string& output, std::int32_t outputId);

// Expects that the host runs and that nobody saw anything that must never happen.
void ExpectClean(Bridge& bridge, const std::vector<PluggedDevice*>& devices);

}  // namespace corvalint::windows_test

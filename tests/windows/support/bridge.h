#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "device/simulated_device.h"
#include "harness/desk.h"

namespace corvalint::windows_test {

inline constexpr std::chrono::milliseconds kPatience{20000};

// A simulated device that is plugged in at the desk. `name` is its identifier.
class PluggedDevice {
 public:
  PluggedDevice(harness::DeskControl& control, std::string name,
                device::DeviceOptions options = {});

  // Returns when the library has opened its stream.
  void Attach();
  // Returns when the library has handled the departure.
  void Detach();

  device::SimulatedDevice& App() { return app; }
  const device::SimulatedDevice& App() const { return app; }
  const std::string& Name() const { return name; }

  // Announce an endpoint and wait until its port stands on the desktop.
  harness::Port PublishSource(std::string_view endpoint, std::int32_t id);
  harness::Port PublishDestination(std::string_view endpoint, std::int32_t id);

  // "/midi" messages received since the last Clear, as values.
  std::vector<device::MidiMessage> Midi() const;
  bool WaitForMidi(std::size_t count) const;
  // Until a message with that address, name and id has arrived.
  bool WaitForAnnouncement(std::string_view address, std::string_view endpoint,
                           std::int32_t id) const;
  // Returns when everything that was sent before has been handled: asks for a timing reply.
  bool Flush();

 private:
  harness::DeskControl& control;
  const std::string name;
  device::SimulatedDevice app;
  std::uint64_t streams = 0;
};

// A host with the shipped DLL at a desk with some MIDI devices, ready and scanned.
class Bridge {
 public:
  explicit Bridge(const std::vector<std::string>& inputs = {},
                  const std::vector<std::string>& outputs = {},
                  const harness::DeskOptions& options = {});

  harness::Desk& GetDesk() { return desk; }
  harness::DeskControl& Control() { return desk.Control(); }
  harness::Host& GetHost() { return desk.GetHost(); }

  // Switches an endpoint on and returns its unique id.
  std::int32_t SwitchSourceOn(std::string_view name);
  std::int32_t SwitchDestinationOn(std::string_view name);

  // The desk's own number of a MIDI device, by name.
  int Input(std::string_view name) const { return inputIds.at(std::string(name)); }
  int Output(std::string_view name) const { return outputIds.at(std::string(name)); }

  // Injects into an open input and waits until all is delivered.
  void Inject(std::string_view input, const std::vector<harness::Bytes>& messages,
              const harness::Pacing& pacing = {});

  std::unique_ptr<PluggedDevice> Plug(const std::string& name, device::DeviceOptions options = {});

 private:
  harness::Desk desk;
  std::map<std::string, int> inputIds;
  std::map<std::string, int> outputIds;
};

}  // namespace corvalint::windows_test

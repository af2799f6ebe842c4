#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "demo/progress.h"
#include "device/simulated_device.h"
#include "harness/desk.h"

namespace corvalint::demo {

// A simulated device with the name that a person reads.
struct NamedDevice {
  explicit NamedDevice(std::string deviceName) : name(std::move(deviceName)) {}

  const std::string name;
  device::SimulatedDevice app;
};

// The stage: the shipped DLL in the console host at the simulated desk, with a keyboard, pedals and
// a synthesizer, and an iPad and an iPhone on their cables. Everything ends with this object. For
// one thread.
class Scenario {
 public:
  explicit Scenario(Progress& shown) : progress(shown) {}

  // Sets everything up and shows it. Throws std::runtime_error with what did not come about.
  void Start();
  // Unplugs the devices and ends the host. Throws std::runtime_error if it does not end well.
  void Finish();

  harness::DeskControl& Control() { return desk->Control(); }
  NamedDevice& IPad() { return *devices.at(0); }
  NamedDevice& IPhone() { return *devices.at(1); }

  // The endpoints' ids for "/midi", and the desk's own numbers.
  std::int32_t KeyboardId() const { return keyboardId; }
  std::int32_t SynthesizerId() const { return synthesizerId; }
  int KeyboardInput() const { return keyboardInput; }
  int SynthesizerOutput() const { return synthesizerOutput; }
  const harness::Port& SequencerPort() const { return sequencerPort; }

  // Returns when the library has handled all that a device has sent it, and the device all that the
  // library had sent it before.
  void Flush(NamedDevice& device);

  // Things that were done at the desk or sent to a device and must never be.
  std::vector<std::string> Complaints();

  // What the library has printed since the last call.
  std::string NewConsoleText();

  // The code with which the host has ended, empty while it runs.
  std::optional<int> HostEnded();

  // Whether there is anything to save.
  bool Started() const { return desk != nullptr; }
  // Writes log, console texts and the desk's events into the folder. For a started desk.
  void SaveEvidence(const std::filesystem::path& folder);

  static constexpr std::string_view kKeyboard = "Stage Piano";
  static constexpr std::string_view kSynthesizer = "Synthesizer";
  static constexpr std::string_view kSequencer = "Sequencer";
  static constexpr std::int32_t kSequencerId = 4711;  // the iPad's own

 private:
  void StartDesk();
  void PlugDevices();
  void SwitchOn();
  void Publish();
  void ShowEndpoints();
  void AwaitAnnouncement(const NamedDevice& device, std::string_view address, std::string_view name,
                         std::int32_t id);

  Progress& progress;
  std::unique_ptr<harness::Desk> desk;
  std::vector<std::unique_ptr<NamedDevice>> devices;  // end before the desk
  int keyboardInput = 0;
  int synthesizerOutput = 0;
  std::int32_t keyboardId = 0;
  std::int32_t synthesizerId = 0;
  harness::Port sequencerPort;
  std::size_t consoleShown = 0;
};

}  // namespace corvalint::demo

#include "soak/probe.h"

#include "soak/complaints.h"
#include "soak/desk_view.h"
#include "soak/traffic.h"

namespace corvalint::soak {

namespace {

constexpr const char* kKeys = "Probe keys";
constexpr const char* kSynth = "Probe synth";

// What the apps announced, and what came about by their rubbish. An id that is unknown to a
// device's manager does nothing there.
void WithdrawEverything(World& world) {
  const auto published = world.Published();
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    device::SimulatedDevice& app = world.Device(i).app;
    for (const PublishedEndpoint& endpoint : published) {
      const auto id = static_cast<std::int32_t>(endpoint.id);
      if (endpoint.kind == EndpointKind::source) {
        app.WithdrawSource("any", id);
      } else {
        app.WithdrawDestination("any", id);
      }
    }
    Expect(app.AlignClockAndWait(0, kPatience), "a device cannot withdraw its endpoints");
  }
  Expect(world.Published().empty(), "endpoints are left after all were withdrawn");
}

void ProbeDevices(World& world, int source, int destination) {
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    if (!world.AttachAndWait(world.Device(i))) return;
  }
  WithdrawEverything(world);
  Expect(world.Driver().Names().empty(), "ports are left after all were withdrawn");
  SwitchOn(kSources, source);
  SwitchOn(kDestinations, destination);
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    PlayBothWays(world, i, destination);
    UseOsc(world.Device(i), true);
    WithdrawPort(world, i);
  }
  HearKeyboard(world);
  Expect(world.Driver().Names().empty(), "ports are left after the probe");
  SwitchOff(kSources, source);
  SwitchOff(kDestinations, destination);
  Expect(world.Winmm().OpenDevices() == 0, "devices of the desktop are open after all were off");
}

// A stream that ends in the middle of a frame is the way of a cable.
void ExpectUnharmed(const WorldDevice& device, std::size_t number) {
  for (const device::Violation& violation : device.app.Record().Violations()) {
    if (violation.what == "the stream ended inside this frame") continue;
    Complain("device %zu was sent what must not be: %s", number, violation.what.c_str());
  }
  Expect(device.app.Failure().empty(), "a device broke down: " + device.app.Failure());
}

}  // namespace

void ProbeEverything(World& world) {
  world.Winmm().FailNextOpen(false);  // nobody may have opened anything since it was to fail
  world.Winmm().Plug({kKeys}, {kSynth});
  const auto source = WaitForOnly(kSources, kKeys);
  const auto destination = WaitForOnly(kDestinations, kSynth);
  if (!source || !destination) return;
  ProbeDevices(world, *source, *destination);
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    WorldDevice& device = world.Device(i);
    if (device.attached) world.Detach(device);
    ExpectUnharmed(device, i);
  }
  world.WaitUntilAllLeft();
}

}  // namespace corvalint::soak

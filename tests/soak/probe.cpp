#include "soak/probe.h"

#include <optional>
#include <stdexcept>

#include "corvalint_wrapper.h"
#include "soak/complaints.h"

namespace corvalint::soak {

namespace {

using device::Bytes;

constexpr const char* kKeys = "Probe keys";
constexpr const char* kSynth = "Probe synth";

std::string NameOf(int id, unsigned (*length)(int), char (*byte)(int, int)) {
  std::string name;
  for (unsigned i = 0; i < length(id); ++i) name += byte(id, static_cast<int>(i));
  return name;
}

// The id of the one source or destination, once a scan has found it and nothing else.
std::optional<int> OnlyOne(const char* name, corvalint_int64 (*count)(), int (*idAt)(int),
                           unsigned (*length)(int), char (*byte)(int, int)) {
  std::optional<int> found;
  const bool came = Await([&] {
    try {
      if (count() != 1) return false;
      const int id = idAt(0);
      if (NameOf(id, length, byte) != name) return false;
      found = id;
      return true;
    } catch (const std::out_of_range&) {
      return false;
    }
  });
  Expect(came, std::string("the host does not see only ") + name);
  return found;
}

std::optional<int> ProbeSource() {
  return OnlyOne(kKeys, corvalintServerGetCountOfSources, get_unique_id_source,
                 get_source_name_length, corvalintServerGetActiveMIDISourceName);
}

std::optional<int> ProbeDestination() {
  return OnlyOne(kSynth, corvalintServerGetCountOfDestinations, get_unique_id_destination,
                 get_dest_name_length, corvalintServerGetActiveMIDIDestName);
}

Bytes Numbered(std::size_t number, std::uint8_t way) {
  return {0xF0, way, static_cast<std::uint8_t>(number), 0xF7};
}

void ProbeMidi(World& world, std::size_t number, int synth) {
  WorldDevice& device = world.Device(number);
  const std::string name = "Probe port " + std::to_string(number);
  const auto id = static_cast<std::int32_t>(9000 + number);
  device.app.AnnounceSource(name, id);
  device.app.AnnounceDestination(name, id);

  world.Driver().Sent().LookFor(Numbered(number, 1));
  device.app.SendMidi(name, id, Numbered(number, 1));
  Expect(world.Driver().Sent().Wait(), "a device cannot play into its port");

  world.Winmm().Sent().LookFor(Numbered(number, 2));
  device.app.SendMidi(kSynth, synth, Numbered(number, 2));
  Expect(world.Winmm().Sent().Wait(), "a device cannot play to the desktop");

  device.midi.LookFor(Numbered(number, 3));
  Expect(world.Driver().WriteTo(name, Numbered(number, 3)), "a device's port is not there");
  Expect(device.midi.Wait(), "a device does not hear its port");

  device.app.WithdrawSource(name, id);
  device.app.WithdrawDestination(name, id);
}

void ProbeKeyboard(World& world) {
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    world.Device(i).midi.LookFor({0x91, 0x11, 0x22});
  }
  Expect(world.Winmm().PlayShort(0, 0x221191), "the keyboard is not open");
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    Expect(world.Device(i).midi.Wait(), "a device does not hear the keyboard");
  }
}

void ProbeOsc(WorldDevice& device) {
  const UdpEnd program;
  const std::int32_t bindPort = FreeUdpPort();
  const std::int32_t destination = program.Port();
  const std::string host = "127.0.0.1";
  device.app.SendPacket(
      device::EncodeMessage({"/osc/create_port", "", {destination, bindPort, host}}));

  device.datagrams.LookFor({1, 2, 3, 4});
  device.app.AlignClockAndWait(0, kPatience);
  const bool heard = Await([&] {
    program.Send(static_cast<std::uint16_t>(bindPort), {1, 2, 3, 4});
    return device.datagrams.WaitBriefly();
  });
  Expect(heard, "a device does not hear its OSC port");

  device.app.SendPacket(
      device::EncodeMessage({"/osc", "", {host + std::to_string(destination), Bytes{5, 6, 7, 8}}}));
  Expect(Await([&] {
           return program.Receive() == Bytes{5, 6, 7, 8};
         }),
         "a device cannot send through its OSC port");
  device.app.SendPacket(
      device::EncodeMessage({"/osc/remove_port", "", {destination, bindPort, host}}));
}

void SwitchOn(int source, int destination) {
  if (!get_source_status(source)) set_source_status(static_cast<unsigned>(source));
  if (!get_destination_status(destination)) {
    set_destination_status(static_cast<unsigned>(destination));
  }
  Expect(get_source_status(source) == 1, "the keyboard cannot be switched on");
  Expect(get_destination_status(destination) == 1, "the sound module cannot be switched on");
}

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
  SwitchOn(source, destination);
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    ProbeMidi(world, i, destination);
    ProbeOsc(world.Device(i));
    Expect(world.Device(i).app.AlignClockAndWait(0, kPatience), "a device is not served any more");
  }
  ProbeKeyboard(world);
  Expect(world.Driver().Names().empty(), "ports are left after the probe");
  set_source_status(static_cast<unsigned>(source));
  set_destination_status(static_cast<unsigned>(destination));
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
  world.Winmm().Plug({kKeys}, {kSynth});
  const auto source = ProbeSource();
  const auto destination = ProbeDestination();
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

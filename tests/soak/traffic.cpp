#include "soak/traffic.h"

#include "soak/complaints.h"

namespace corvalint::soak {

namespace {

using device::Bytes;

Bytes Numbered(std::size_t number, std::uint8_t way) {
  return {0xF0, way, static_cast<std::uint8_t>(number), 0xF7};
}

std::string PortOf(std::size_t number) { return "Own port " + std::to_string(number); }

std::int32_t IdOf(std::size_t number) { return static_cast<std::int32_t>(9000 + number); }

}  // namespace

void PlayBothWays(World& world, std::size_t number, int outputId) {
  WorldDevice& device = world.Device(number);
  const std::string name = PortOf(number);
  device.app.AnnounceSource(name, IdOf(number));
  device.app.AnnounceDestination(name, IdOf(number));

  world.Driver().Sent().LookFor(Numbered(number, 1));
  device.app.SendMidi(name, IdOf(number), Numbered(number, 1));
  Expect(world.Driver().Sent().Wait(), "a device cannot play into its port");

  world.Winmm().Sent().LookFor(Numbered(number, 2));
  device.app.SendMidi("any", outputId, Numbered(number, 2));
  Expect(world.Winmm().Sent().Wait(), "a device cannot play to the desktop");

  device.midi.LookFor(Numbered(number, 3));
  Expect(world.Driver().WriteTo(name, Numbered(number, 3)), "a device's port is not there");
  Expect(device.midi.Wait(), "a device does not hear its port");
}

void WithdrawPort(World& world, std::size_t number) {
  device::SimulatedDevice& app = world.Device(number).app;
  app.WithdrawSource(PortOf(number), IdOf(number));
  app.WithdrawDestination(PortOf(number), IdOf(number));
  Expect(app.AlignClockAndWait(0, kPatience), "a device is not served any more");
}

void HearKeyboard(World& world) {
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    world.Device(i).midi.LookFor({0x91, 0x11, 0x22});
  }
  Expect(world.Winmm().PlayShort(0, 0x221191), "the keyboard is not open");
  for (std::size_t i = 0; i < world.DeviceCount(); ++i) {
    if (!world.Device(i).attached) continue;
    Expect(world.Device(i).midi.Wait(), "a device does not hear the keyboard");
  }
}

void UseOsc(WorldDevice& device, bool remove) {
  const UdpEnd program;
  const std::int32_t bindPort = FreeUdpPort();
  const std::int32_t destination = program.Port();
  const std::string host = "127.0.0.1";
  const std::string bindKey = host + std::to_string(bindPort);
  device.readyPorts.LookFor(Bytes(bindKey.begin(), bindKey.end()));
  device.app.SendPacket(
      device::EncodeMessage({"/osc/create_port", "", {destination, bindPort, host}}));
  Expect(device.readyPorts.Wait(), "a device's OSC port is not ready");

  device.datagrams.LookFor({1, 2, 3, 4});
  program.Send(static_cast<std::uint16_t>(bindPort), {1, 2, 3, 4});
  Expect(device.datagrams.Wait(), "a device does not hear its OSC port");

  device.app.SendPacket(
      device::EncodeMessage({"/osc", "", {host + std::to_string(destination), Bytes{5, 6, 7, 8}}}));
  Expect(Await([&] {
           return program.Receive() == Bytes{5, 6, 7, 8};
         }),
         "a device cannot send through its OSC port");
  if (!remove) return;
  device.app.SendPacket(
      device::EncodeMessage({"/osc/remove_port", "", {destination, bindPort, host}}));
}

}  // namespace corvalint::soak

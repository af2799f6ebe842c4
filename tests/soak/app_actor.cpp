#include "soak/app_actor.h"

#include <array>

namespace corvalint::soak {

namespace {

using device::Bytes;
using device::CutHow;

// Each app has so many ids, from 100 times its number on; half of what it announces has ids that
// the others use as well.
constexpr std::uint64_t kIdsOfApp = 6;

// Shared by all apps, so that ports of the same name are refused, joined and told apart.
std::string NameOf(Random& random) {
  static const std::array<std::string, 7> kNames{"Lead",
                                                 "Pads",
                                                 "Drums",
                                                 "Bass",
                                                 "Strings that have a very long name indeed",
                                                 std::string(200, 'x'),
                                                 std::string(4200, 'y')};
  // The longest name fits no announcement.
  const std::uint64_t rare = Roll(random, 40) == 0 ? kNames.size() : 4;
  return kNames[Roll(random, rare)];
}

std::int32_t IdOf(std::size_t number, Random& random) {
  const auto id = static_cast<std::int32_t>(Roll(random, kIdsOfApp));
  return Roll(random, 2) == 0 ? id : static_cast<std::int32_t>(number) * 100 + id;
}

Bytes MidiOf(Random& random) {
  if (Roll(random, 20) != 0) return {0x90, static_cast<std::uint8_t>(Roll(random, 128)), 0x40};
  Bytes sysex(1 + Roll(random, 20000), 0x22);
  sysex.front() = 0xF0;
  sysex.push_back(0xF7);
  return sysex;
}

std::uint16_t AnyOf(const std::vector<std::uint16_t>& ports, Random& random) {
  return ports[Roll(random, ports.size())];
}

void Announce(device::SimulatedDevice& app, std::size_t number, Random& random) {
  const std::string name = NameOf(random);
  const std::int32_t id = IdOf(number, random);
  switch (Roll(random, 4)) {
    case 0:
      app.AnnounceSource(name, id);
      break;
    case 1:
      app.AnnounceDestination(name, id);
      break;
    case 2:
      app.WithdrawSource(name, id);
      break;
    default:
      app.WithdrawDestination(name, id);
  }
}

void Play(device::SimulatedDevice& app, std::size_t number, const Surroundings& around,
          Random& random) {
  const std::int32_t id = Roll(random, 3) == 0 ? around.destinationId.load() : IdOf(number, random);
  for (std::uint64_t i = Roll(random, 8); i > 0; --i) app.SendMidi("any", id, MidiOf(random));
}

// Ports belong to an app mostly; sometimes two apps want the same number.
void UseOsc(device::SimulatedDevice& app, std::size_t number, const Surroundings& around,
            Random& random) {
  const std::size_t own = number % around.oscPorts.size();
  const std::int32_t bindPort =
      Roll(random, 8) == 0 ? AnyOf(around.oscPorts, random) : around.oscPorts[own];
  const std::int32_t destination = AnyOf(around.programPorts, random);
  const std::string host = Roll(random, 30) == 0 ? "no address" : "127.0.0.1";
  switch (Roll(random, 6)) {
    case 0:
      app.SendPacket(
          device::EncodeMessage({"/osc/create_port", "", {destination, bindPort, host}}));
      break;
    case 1:
      app.SendPacket(
          device::EncodeMessage({"/osc/remove_port", "", {destination, bindPort, host}}));
      break;
    default:
      app.SendPacket(device::EncodeMessage(
          {"/osc", "", {host + std::to_string(destination), Bytes(1 + Roll(random, 3000), 7)}}));
  }
}

void SendRubbish(device::SimulatedDevice& app, Random& random) {
  // Rubbish in the stream costs the connection, so that is the rare kind.
  const bool lost = Roll(random, 12) == 0;
  app.SendRubbish(random(), 1 + Roll(random, 4),
                  lost ? device::RubbishKind::kStream : device::RubbishKind::kPackets);
}

void TouchCable(device::SimulatedDevice& app, std::size_t number, Random& random) {
  const CutHow how = Roll(random, 2) == 0 ? CutHow::kReset : CutHow::kFinish;
  switch (Roll(random, 4)) {
    case 0:
      app.Cut(how);
      break;
    case 1: {
      const Bytes frame =
          device::EncodeFrame(device::EncodeMidi("any", IdOf(number, random), 0, MidiOf(random)));
      app.SendAndCut(frame, Roll(random, frame.size()), how);
      break;
    }
    case 2:
      app.CutAfterReceiving(Roll(random, 5000), how);
      break;
    default:  // the app ends, and is started again a little later
      app.RefuseConnections();
      app.Cut(how);
      std::this_thread::sleep_for(std::chrono::milliseconds(Roll(random, 30)));
      app.AcceptConnections();
  }
}

void StopReading(device::SimulatedDevice& app, Random& random) {
  app.Stall();
  std::this_thread::sleep_for(std::chrono::milliseconds(Roll(random, 60)));
  app.Resume();
}

}  // namespace

void AppStep(WorldDevice& device, std::size_t number, const Surroundings& around, Random& random,
             Actor& actor) {
  device::SimulatedDevice& app = device.app;
  const std::uint64_t roll = Roll(random, 200);
  if (roll < 70) {
    actor.Doing("announcing");
    Announce(app, number, random);
  } else if (roll < 120) {
    actor.Doing("playing");
    Play(app, number, around, random);
  } else if (roll < 170) {
    actor.Doing("using OSC ports");
    UseOsc(app, number, around, random);
  } else if (roll < 185) {
    actor.Doing("aligning the clock");
    if (Roll(random, 2) == 0) app.SetClock(std::chrono::nanoseconds(random()));
    Roll(random, 3) == 0 ? app.InitTiming() : app.UpdateTiming();
  } else if (roll < 192) {
    actor.Doing("sending rubbish");
    SendRubbish(app, random);
  } else if (roll < 196) {
    actor.Doing("not reading");
    StopReading(app, random);
  } else {
    actor.Doing("at the cable");
    TouchCable(app, number, random);
  }
}

}  // namespace corvalint::soak

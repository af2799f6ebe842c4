#include "soak/desk_actors.h"

#include <algorithm>
#include <stdexcept>

#include "soak/complaints.h"
#include "soak/desk_view.h"

namespace corvalint::soak {

namespace {

const SmallWinmm::Names kInputs{"Keys", "Pads", "Faders", "Wheel", "Twin", "Twin"};
const SmallWinmm::Names kOutputs{"Synth", "Sampler", "Mixer", "Lights", "Twin", "Twin"};

// Anything else would be a port that a device has published. An endpoint that went since the last
// question has no name any more, and zeroes for its bytes.
bool OnTheDesk(const std::string& name) {
  return name.empty() || name.find('\0') != std::string::npos ||
         std::count(kInputs.begin(), kInputs.end(), name) > 0 ||
         std::count(kOutputs.begin(), kOutputs.end(), name) > 0;
}

// A device may vanish between the questions: what is out of range then is no complaint.
std::int32_t PollOne(const Exports& exports, int position) {
  const int id = exports.idAt(position);
  const std::string name = NameOf(exports, id);
  if (!OnTheDesk(name)) Complain("the host sees '%s'", name.c_str());
  if (exports.status(id) > 1 || exports.available(id) > 1) Complain("a truth that is no byte");
  return id;
}

SmallWinmm::Names SomeOf(const SmallWinmm::Names& all, Random& random) {
  SmallWinmm::Names some;
  for (const std::string& name : all) {
    if (Roll(random, 4) != 0) some.push_back(name);
  }
  return some;
}

}  // namespace

void PollStep(Surroundings& around, Random& /*random*/, Actor& actor) {
  for (const Exports* exports : {&kSources, &kDestinations}) {
    actor.Doing(exports == &kSources ? "asking for sources" : "asking for destinations");
    try {
      const corvalint_int64 count = exports->count();
      for (corvalint_int64 i = 0; i < count; ++i) {
        const std::int32_t id = PollOne(*exports, static_cast<int>(i));
        if (exports == &kDestinations) around.destinationId = id;
      }
    } catch (const std::out_of_range&) {
    }
  }
  if (corvalintServerUSBClients() > 64) Complain("too many clients");
}

void ToggleStep(Random& random, Actor& actor) {
  const Exports& exports = Roll(random, 2) == 0 ? kSources : kDestinations;
  actor.Doing("switching an endpoint");
  try {
    const corvalint_int64 count = exports.count();
    if (count == 0) return;
    const auto position = static_cast<int>(Roll(random, static_cast<std::uint64_t>(count)));
    exports.toggle(static_cast<unsigned>(exports.idAt(position)));
  } catch (const std::out_of_range&) {
  }
}

void KeyboardStep(World& world, Random& random, Actor& actor) {
  if (Roll(random, 8) != 0) {
    actor.Doing("playing a note");
    world.Winmm().PlayShort(random(), static_cast<std::uint32_t>(random()));
    return;
  }
  actor.Doing("playing a long message");
  SmallWinmm::Bytes sysex(Roll(random, 30000), 0x11);
  world.Winmm().PlayLong(random(), sysex);
}

void ProgramStep(World& world, Random& random, Actor& actor) {
  actor.Doing("playing into a port");
  world.Driver().Write(random(), SmallDriver::Bytes(1 + Roll(random, 200), 0x33));
}

void DeskStep(World& world, Random& random, Actor& actor) {
  actor.Doing("plugging");
  world.Winmm().Plug(SomeOf(kInputs, random), SomeOf(kOutputs, random));
  if (Roll(random, 5) == 0) world.Winmm().FailNextOpen(true);
}

void UdpStep(const UdpEnd& program, const Surroundings& around, Random& random, Actor& actor) {
  actor.Doing("sending datagrams");
  for (std::uint64_t i = Roll(random, 6); i > 0; --i) {
    program.Send(around.oscPorts[Roll(random, around.oscPorts.size())],
                 UdpEnd::Bytes(Roll(random, 4000), 0x44));
  }
  actor.Doing("reading datagrams");
  while (program.Receive()) {
  }
}

void HubStep(World& world, std::size_t first, std::size_t step, Random& random, Actor& actor) {
  const std::size_t choices = (world.DeviceCount() - first + step - 1) / step;
  WorldDevice& device = world.Device(first + step * Roll(random, choices));
  if (device.attached) {
    actor.Doing("telling of a departure");
    world.Detach(device);
  } else {
    actor.Doing("telling of an arrival");
    world.Attach(device);
  }
}

}  // namespace corvalint::soak

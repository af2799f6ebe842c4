#include <dirent.h>
#include <unistd.h>

#include "bridge.h"
#include "failing_tables.h"
#include "host_view.h"
#include "service/log.h"
#include "support/osc_bytes.h"

namespace corvalint::faults {

using test::EndpointMessage;
using test::MidiMessage;

std::size_t OpenDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  std::size_t count = 0;
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

void Bridge::ProbeDesktop() {
  for (const char* name : {"Keys", "Pads"}) SwitchOn(kSources, name);
  for (const char* name : {"Synth", "Drums"}) SwitchOn(kDestinations, name);
  Require("the inputs are on", [] { return IsOn(kSources, "Keys") && IsOn(kSources, "Pads"); });
  Require("the outputs are on",
          [] { return IsOn(kDestinations, "Synth") && IsOn(kDestinations, "Drums"); });
}

void Bridge::ProbeDevice(AppOnDevice& app, AppOnDevice& other) {
  if (!Require("the device is connected", [&] { return app.Connected(); })) return;
  app.Forget();
  other.Forget();
  winmm.PlayShort("Keys", 0x515093);
  Require("a note reaches the device", [&] { return app.Heard("/midi", "\x93\x50\x51"); });
  const char mark = static_cast<char>(app.connectionId);
  const std::string own = std::string("\x94\x51") + mark;
  app.Send(MidiMessage("Synth", IdOf(kDestinations, "Synth"), 5, own));
  Require("the device reaches an output", [&] { return OutputWasSent("Synth", own); });
  app.Send(MidiMessage("nobody's", 4711, 5, own));
  Require("the device reaches the other one", [&] { return other.Heard("/midi", own); });
}

// A port that the driver once refused stays without it, and so does one whose name another manager
// has, for a device whose identifier could not be had.
void Bridge::ProbePorts() {
  if (plan.table == Table::virtualMidi || plan.table == Table::mobileDevice) return;
  pad.Send(MidiMessage("Pad Out", 11, 6, "\x95\x41\x42"));
  Require("the device reaches its port", [&] { return PortWasSent("95 41 42"); });
  const int port = PortNamed(u"Pad In");
  if (port == 0 || !ports.Write(port, {0x96, 0x41, 0x43})) Complain("a port is not open");
  Require("a program reaches the device", [&] { return pad.Heard("/midi", "\x96\x41\x43"); });
}

// A name that a published port had, and has no more, is free for a device of the desktop.
void Bridge::ProbeNames() {
  pad.Send(EndpointMessage("/remove_remote_source", kLone, 31));
  RunFor(1);
  winmm.SetInputs({"Keys", "Pads", kLone});
  Require("a name is free again", [] { return IdOf(kSources, kLone) != 0; });
}

// What is off is closed, and nothing is open that nobody knows of. A driver that has once refused a
// close may keep its device.
void Bridge::ExpectDevicesClosed() {
  for (const char* name : {"Keys", "Pads"}) SwitchOff(kSources, name);
  for (const char* name : {"Synth", "Drums"}) SwitchOff(kDestinations, name);
  if (plan.table == Table::winMidi) return;
  for (const std::string& name : winmm.OpenDevices()) Complain("left open: %s", name.c_str());
}

// With nothing failing any more a device that is plugged in anew is served in full.
void Bridge::RecoverAndJudge() {
  EndFaults();
  RunFor(30);
  if (library.Subscribed()) {
    for (AppOnDevice* app : {&pad, &phone}) NotifyOf(*app, kDeparture);
    RunFor(20);
    if (corvalintServerUSBClients() != 0) Complain("clients are left without devices");
    ProbeDesktop();
    for (AppOnDevice* app : {&pad, &phone}) {
      app->Forget();
      NotifyOf(*app, kArrival);
    }
    RunFor(7);
    ProbeDevice(pad, phone);
    ProbeDevice(phone, pad);
    pad.Forget();
    pad.Send(PortMessage("/osc/create_port"));
    RunFor(7);
    ProgramSends("/probe");
    Require("OSC reaches the device", [&] { return pad.Heard("/osc", "/probe"); });
    ProbePorts();
    ProbeNames();
    for (AppOnDevice* app : {&pad, &phone}) NotifyOf(*app, kDeparture);
    RunFor(20);
    ExpectDevicesClosed();
  } else if (!startMissed) {
    Complain("the subscription is gone");
  }
}

void Bridge::ExpectNothingLeft(std::size_t descriptorsBefore) {
  pad.EndStream();
  phone.EndStream();
  while (const int stream = TakeStream(kPadConnection)) close(stream);
  while (const int stream = TakeStream(kPhoneConnection)) close(stream);
  RunFor(1);
  if (corvalintServerUSBClients() != 0) Complain("clients are left at the end");
  // The service's and the server's.
  const int living = LivingThreads();
  if (living > 2 || (living < 2 && !startMissed)) Complain("%d threads are left", living);
  LogResetForTest();
  const std::size_t descriptors = OpenDescriptors();
  if (descriptors != descriptorsBefore) {
    Complain("%zu descriptors were open at first, %zu at the end", descriptorsBefore, descriptors);
  }
}

}  // namespace corvalint::faults

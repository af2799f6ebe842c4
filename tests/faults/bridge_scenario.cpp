#include "bridge_scenario.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>

#include "bridge.h"
#include "failing_tables.h"
#include "host_view.h"
#include "support/osc_bytes.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace corvalint::faults {

namespace {

using test::EndpointMessage;
using test::MidiMessage;
using test::OscBlobBytes;
using test::OscInt32;
using test::OscInt64;
using test::OscMessage;
using test::OscText;

std::string LongSysex(std::size_t size) {
  std::string bytes(size, '\x11');
  bytes.front() = static_cast<char>(0xF0);
  bytes.back() = static_cast<char>(0xF7);
  return bytes;
}

constexpr Needs kDesktop = Need(0, Table::winMidi);
constexpr Needs kPad = Need(kPadConnection, Table::mobileDevice, Table::sockets);
constexpr Needs kPhone = Need(kPhoneConnection, Table::mobileDevice, Table::sockets);
constexpr Needs kBothDevices = Need(0, Table::mobileDevice, Table::sockets);
constexpr Needs kPadAndDesktop =
    Need(kPadConnection, Table::mobileDevice, Table::sockets, Table::winMidi);
constexpr Needs kPhoneAndDesktop =
    Need(kPhoneConnection, Table::mobileDevice, Table::sockets, Table::winMidi);
constexpr Needs kPadAndPorts =
    Need(kPadConnection, Table::mobileDevice, Table::sockets, Table::virtualMidi);
constexpr Needs kPadAndOsc =
    Need(kPadConnection, Table::mobileDevice, Table::sockets, Table::datagrams);

}  // namespace

void Bridge::Start() {
  SetStep("start");
  {
    const InsideScope inside;
    corvalintServerStart();
  }
  Await("the first scan", kDesktop,
        [] { return IdOf(kSources, "Pads") != 0 && IdOf(kDestinations, "Drums") != 0; });
  startMissed = !Await("the subscription", Need(0, Table::mobileDevice),
                       [this] { return library.Subscribed(); });
  SwitchOn(kSources, "Keys");
  Await("a source is on", kDesktop, [] { return IsOn(kSources, "Keys"); });
}

void Bridge::Arrive() {
  SetStep("arrival of the pad");
  NotifyOf(pad, kArrival);
  Await("the pad is connected", kPad, [this] { return pad.Connected(); });
  Await("the pad hears of the source", kPadAndDesktop,
        [this] { return pad.Heard("/add_remote_source", "Keys"); });
  SetStep("arrival of the phone");
  NotifyOf(phone, kArrival);
  Await("the phone is connected", kPhone, [this] { return phone.Connected(); });
  Await("the phone hears of the pad", kBothDevices,
        [this] { return phone.Heard("/add_remote_source", "Pad Out"); });
  Await("the pad hears of the phone", kBothDevices,
        [this] { return pad.Heard("/add_remote_source", "Tune"); });
  SetStep("toggles");
  SwitchOn(kSources, "Pads");
  SwitchOn(kDestinations, "Synth");
  SwitchOn(kDestinations, "Drums");
  Await("the phone hears of an output", kPhoneAndDesktop,
        [this] { return phone.Heard("/add_remote_destination", "Drums"); });
}

void Bridge::MidiFromDesktop() {
  SetStep("a note from the desktop");
  winmm.PlayShort("Keys", 0x643C90);
  Await("the pad hears the note", kPadAndDesktop,
        [this] { return pad.Heard("/midi", "\x90\x3C\x64"); });
  Await("the phone hears the note", kPhoneAndDesktop,
        [this] { return phone.Heard("/midi", "\x90\x3C\x64"); });
  const std::string sysex = LongSysex(3000);
  winmm.PlayLong("Pads", BytesOf(sysex));
  Await("the phone hears the long message", kPhoneAndDesktop,
        [&] { return phone.Heard("/midi", sysex); });
}

void Bridge::MidiFromDevices() {
  SetStep("MIDI from the pad");
  pad.Send(MidiMessage("Synth", IdOf(kDestinations, "Synth"), 5, "\xB0\x07\x11"));
  Await("an output plays", kPadAndDesktop,
        [this] { return OutputWasSent("Synth", "\xB0\x07\x11"); });
  pad.Send(MidiMessage("Pad Out", 11, 6, "\x91\x40\x22"));
  Await("a published port plays", kPadAndPorts, [this] { return PortWasSent("91 40 22"); });
  Await("the phone hears the pad", kBothDevices,
        [this] { return phone.Heard("/midi", "\x91\x40\x22"); });
  pad.Send(EndpointMessage("/add_remote_source", kLone, 31));
  pad.Send(MidiMessage("Tune", 22, 6, LongSysex(2000)));
  Await("the phone is sent to", kBothDevices,
        [this] { return phone.Heard("/midi", LongSysex(2000)); });
  if (const int port = PortNamed(u"Pad In")) ports.Write(port, {0x92, 0x41, 0x33});
  Await("the pad hears a program", kPadAndPorts,
        [this] { return pad.Heard("/midi", "\x92\x41\x33"); });
}

void Bridge::Timing() {
  pad.Send(OscMessage("/init_timing", "h", OscInt64(1000)));
  Await("the clock is answered", kPad, [this] { return pad.Heard("/init_timing"); });
  const std::string update = OscMessage("/update_timing", "h", OscInt64(2000));
  pad.Send(test::OscBundle(1, {update, test::OscBundle(1, {update})}));
  Await("the clock in a bundle is answered", kPad, [this] { return pad.Heard("/update_timing"); });
}

void Bridge::Osc() {
  Await("the port is ready", kPadAndOsc,
        [this] { return pad.Heard("/osc/port_creation_report", OscInt32(1)); });
  pad.Send(OscMessage("/osc", "sb", OscText(OscKey()) + OscBlobBytes("/fader 1")));
  Await("a program hears OSC", kPadAndOsc, [this] { return ProgramHears("/fader 1"); });
  ProgramSends("/meter 2");
  Await("the pad hears OSC", kPadAndOsc, [this] { return pad.Heard("/osc", "/meter 2"); });
  pad.Forget();
  pad.Send(PortMessage("/osc/remove_port"));
  pad.Send(PortMessage("/osc/create_port"));
  Await("the port is there again", kPadAndOsc,
        [this] { return pad.Heard("/osc/port_creation_report"); });
}

// The pad does not read for a while, in which more comes than the system takes.
void Bridge::Stall() {
  SetStep("the pad does not read");
  pad.SetReading(false);
  phone.Forget();
  const std::string sysex = LongSysex(65536);
  for (int i = 0; i < 6; ++i) winmm.PlayLong("Pads", BytesOf(sysex));
  winmm.PlayShort("Keys", 0x555595);
  Await("the phone does not wait for it", kPhoneAndDesktop,
        [this] { return phone.Heard("/midi", "\x95\x55\x55"); });
  pad.SetReading(true);
  Await("the pad hears what was kept", kPadAndDesktop,
        [this] { return pad.Heard("/midi", "\x95\x55\x55"); });
}

void Bridge::LostStream() {
  SetStep("the stream is lost");
  pad.Forget();
  pad.EndStream();
  Await(
      "the pad is connected again", kPad, [this] { return pad.Connected(); }, 12);
  Await("the pad is told again", kPadAndDesktop,
        [this] { return pad.Heard("/add_remote_destination", "Drums"); });
  Await("the port is ready again", kPadAndOsc,
        [this] { return pad.Heard("/osc/port_creation_report"); });
}

void Bridge::Withdraw() {
  SetStep("endpoints are withdrawn");
  pad.Send(EndpointMessage("/remove_remote_source", "Pad Out", 11));
  pad.Send(EndpointMessage("/remove_remote_destination", "Pad In", 12));
  Await("the phone hears of the withdrawal", kBothDevices, [this] {
    return phone.Heard("/remove_remote_source", "Pad Out") &&
           phone.Heard("/remove_remote_destination", "Pad In");
  });
  pad.Send(EndpointMessage("/remove_remote_source", kLone, 31));
  Await("the long name is withdrawn", kBothDevices,
        [this] { return phone.Heard("/remove_remote_source", kLone); });
  SetStep("toggles off");
  SwitchOff(kSources, "Pads");
  SwitchOff(kDestinations, "Drums");
  Await("the phone hears what is off", kPhoneAndDesktop, [this] {
    return phone.Heard("/remove_remote_source", "Pads") &&
           phone.Heard("/remove_remote_destination", "Drums");
  });
}

void Bridge::DesktopChanges() {
  SetStep("desktop devices vanish");
  winmm.SetInputs({"Wind"});
  winmm.SetOutputs({"Bass"});
  Await("the new input is listed", kDesktop, [] { return IdOf(kSources, "Wind") != 0; });
  Await("the phone hears of the vanished", kPhoneAndDesktop, [this] {
    return phone.Heard("/remove_remote_source", "Keys") &&
           phone.Heard("/remove_remote_destination", "Synth");
  });
  SetStep("desktop devices return");
  winmm.SetInputs({"Keys", "Pads"});
  winmm.SetOutputs({"Synth", "Drums"});
  Await("the input is back", kDesktop, [] { return IdOf(kSources, "Keys") != 0; });
}

void Bridge::PhoneComesAndGoes() {
  SetStep("the phone leaves");
  NotifyOf(phone, kDeparture);
  Await("the phone's stream has ended", kPhone, [this] { return !phone.Connected(); });
  RunFor(7);
  SetStep("the phone returns");
  phone.Forget();
  NotifyOf(phone, kArrival);
  Await("the phone is back", kPhone, [this] { return phone.Connected(); });
  SwitchOn(kSources, "Keys");
  Await("the phone hears of the source", kPhoneAndDesktop,
        [this] { return phone.Heard("/add_remote_source", "Keys"); });
}

void Bridge::RunAll() {
  Start();
  Arrive();
  MidiFromDesktop();
  MidiFromDevices();
  Timing();
  Osc();
  Stall();
  LostStream();
  Withdraw();
  DesktopChanges();
  PhoneComesAndGoes();
}

void RunScenario(const Plan& plan, Report& report, const std::string& folder) {
  SetHostFolder(folder);
  std::FILE* const configuration = std::fopen((folder + "/pellora.conf").c_str(), "w");
  std::fputs("; of the host\nkey = value\nother=value\n", configuration);
  std::fclose(configuration);

  Begin(plan, report);
  UseSimulatedTime();
  auto* const bridge = new Bridge(plan);
  const std::size_t descriptors = OpenDescriptors();
  WrapDeviceLibraries();
  WrapSystem();
  WhenIdle([bridge] { return bridge->Pump(); });
  try {
    bridge->RunAll();
  } catch (const std::exception& failure) {
    Complain("an exception reached the host: %s", failure.what());
  }
  bridge->RecoverAndJudge();
  bridge->ExpectNothingLeft(descriptors);
  if (testing::UnitTest::GetInstance()->Failed()) Complain("a fake complains");
#if defined(__SANITIZE_ADDRESS__)
  if (__lsan_do_recoverable_leak_check() != 0) Complain("memory leaks");
#endif
}

}  // namespace corvalint::faults

#include "bridge_scenario.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "app_on_device.h"
#include "corvalint_wrapper.h"
#include "failing_tables.h"
#include "service/log.h"
#include "simulated_time.h"
#include "support/call_log.h"
#include "support/fake_library.h"
#include "support/fake_mobile_device.h"
#include "support/fake_registry.h"
#include "support/fake_virtual_midi.h"
#include "support/fake_winmm.h"
#include "support/osc_bytes.h"
#include "support/udp_program.h"

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

constexpr std::uint32_t kArrival = 1, kDeparture = 2;
constexpr std::uint16_t kOscPort = 9001;
constexpr int kPadConnection = 7, kPhoneConnection = 9;

const std::string kSupportKey = "SOFTWARE\\Apple Inc.\\Apple Application Support";
const std::string kDeviceKey = "SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared";

// A port that the pad publishes for a while. The name is too long for a string's own room.
const std::string kLone = "A port that comes and goes";

std::string LongSysex(std::size_t size) {
  std::string bytes(size, '\x11');
  bytes.front() = static_cast<char>(0xF0);
  bytes.back() = static_cast<char>(0xF7);
  return bytes;
}

test::FakeWinmm::Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

std::size_t OpenDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  std::size_t count = 0;
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

// One side of the desktop's endpoints as the host sees it.
struct Side {
  corvalint_int64 (*count)();
  int (*idAt)(int);
  unsigned int (*nameLength)(int);
  char (*nameByte)(int, int);
  void (*toggle)(unsigned int);
  corvalint_bool (*isOn)(int);
};
constexpr Side kSources{
    corvalintServerGetCountOfSources,       get_unique_id_source, get_source_name_length,
    corvalintServerGetActiveMIDISourceName, set_source_status,    get_source_status};
constexpr Side kDestinations{
    corvalintServerGetCountOfDestinations, get_unique_id_destination, get_dest_name_length,
    corvalintServerGetActiveMIDIDestName,  set_destination_status,    get_destination_status};

// The id of the endpoint of that name, 0 when there is none.
int IdOf(const Side& side, const std::string& name) {
  const InsideScope inside;
  for (int i = 0; i < side.count(); ++i) {
    const int id = side.idAt(i);
    std::size_t equal = 0;
    const unsigned int length = side.nameLength(id);
    while (equal < length && equal < name.size() &&
           side.nameByte(id, static_cast<int>(equal)) == name[equal]) {
      ++equal;
    }
    if (equal == length && length == name.size()) return id;
  }
  return 0;
}

bool IsOn(const Side& side, const std::string& name) {
  const int id = IdOf(side, name);
  const InsideScope inside;
  return id != 0 && side.isOn(id) != 0;
}

void Toggle(const Side& side, const std::string& name) {
  const int id = IdOf(side, name);
  const InsideScope inside;
  side.toggle(static_cast<unsigned int>(id));
}

void SwitchOn(const Side& side, const std::string& name) {
  if (!IsOn(side, name)) Toggle(side, name);
}

void SwitchOff(const Side& side, const std::string& name) {
  if (IsOn(side, name)) Toggle(side, name);
}

// What a step needs: tables, and one device or (0) more than one or none. Everything needs threads
// and memory.
struct Needs {
  TableSet tables;
  int device;
};
template <class... Tables>
constexpr Needs Need(int device, Tables... tables) {
  return {SetOf(Table::threads, Table::allocation, tables...), device};
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

// The fakes are never destroyed: the library's threads run until the process ends.
class Bridge {
 public:
  explicit Bridge(const Plan& newPlan) : plan(newPlan) {
    registry.SetValue(kSupportKey, "InstallDir", "C:\\Support");
    registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", "C:\\Device\\device.dll");
    winmm.SetInputs({"Keys", "Pads"});
    winmm.SetOutputs({"Synth", "Drums"});
  }

  void RunAll();
  void RecoverAndJudge();

 private:
  // A step that must come to its end unless something fails that it needs.
  bool Await(const char* step, const Needs& needs, const std::function<bool()>& condition,
             int seconds = 7) {
    SetStep(step);
    if (RunUntil(condition, seconds)) return true;
    Miss(step);
    if (plan.mode != Mode::none && !MayBeMissed(needs)) Complain("not served: %s", step);
    return false;
  }
  bool MayBeMissed(const Needs& needs) const {
    if ((needs.tables & SetOf(plan.table)) == 0) return false;
    const int touched = TouchedDevice();
    const bool oneCall = plan.mode == Mode::once;
    return !oneCall || needs.device == 0 || touched == 0 || touched == needs.device;
  }
  // Afterwards nothing fails, and it must.
  bool Require(const char* what, const std::function<bool()>& condition, int seconds = 12) {
    SetStep(what);
    if (RunUntil(condition, seconds)) return true;
    Complain("after the fault: %s", what);
    return false;
  }

  void Start();
  void Arrive();
  void MidiFromDesktop();
  void MidiFromDevices();
  void Timing();
  void Osc();
  void Stall();
  void LostStream();
  void Withdraw();
  void DesktopChanges();
  void PhoneComesAndGoes();

  void ProbeDesktop();
  void ProbeNames();
  void ExpectDevicesClosed();
  void ProbeDevice(AppOnDevice& app, AppOnDevice& other);
  void ExpectNothingLeft(std::size_t descriptorsBefore);

  bool Pump() {
    bool any = pad.Pump();
    any = phone.Pump() || any;
    return any;
  }
  void NotifyOf(const AppOnDevice& app, std::uint32_t kind) {
    if (library.Subscribed()) library.Notify(app.handle, kind);
  }
  std::string CreatePort() const {
    return OscMessage("/osc/create_port", "iis",
                      OscInt32(std::int32_t{program.Port()}) + OscInt32(std::int32_t{kOscPort}) +
                          OscText("127.0.0.1"));
  }
  std::string OscKey() const { return "127.0.0.1" + std::to_string(program.Port()); }
  void ProgramSends(const std::string& bytes) {
    const std::uint16_t port = PortOnThisMachine(kOscPort);
    if (port == 0) return;
    program.Send(port, bytes);
    usleep(1000);  // a datagram may take a moment where everything else is there at once
  }
  bool ProgramHears(const std::string& bytes) {
    while (!program.Silent()) {
      if (program.Receive() == bytes) return true;
    }
    return false;
  }
  // The library's port of that name at the driver, 0 for none; the newest counts.
  int PortNamed(const std::u16string& name) {
    for (int number = portsMade(); number > 0; --number) {
      if (ports.Created(number).name == name) return number;
    }
    return 0;
  }
  int portsMade() {
    for (const std::string& call : ports.TakeCalls()) {
      if (call.rfind("create(", 0) == 0) ++made;
      portCalls.push_back(call);
    }
    return made;
  }
  bool PortWasSent(const std::string& hex) {
    portsMade();
    for (const std::string& call : portCalls) {
      if (call.rfind("send(", 0) == 0 && call.find(hex) != std::string::npos) return true;
    }
    return false;
  }
  bool OutputWasSent(const std::string& output, const std::string& bytes) const {
    const auto sent = winmm.Sent(output);
    return std::find(sent.begin(), sent.end(), BytesOf(bytes)) != sent.end();
  }

  const Plan plan;
  test::CallLog calls;
  test::FakeRegistry registry{calls};
  test::FakeLibrary libraries{calls};
  test::FakeWinmm winmm;
  test::FakeVirtualMidi ports;
  test::FakeMobileDevice library;
  test::UdpProgram program;
  int made = 0;
  std::vector<std::string> portCalls;
  bool startMissed = true;

  AppOnDevice pad{library.AddDevice("pad", kPadConnection),
                  kPadConnection,
                  {EndpointMessage("/add_remote_source", "Pad Out", 11),
                   EndpointMessage("/add_remote_destination", "Pad In", 12),
                   EndpointMessage("/add_remote_destination", "Pad Out", 13), CreatePort()}};
  AppOnDevice phone{library.AddDevice("phone", kPhoneConnection),
                    kPhoneConnection,
                    {EndpointMessage("/add_remote_source", "Tune", 21),
                     EndpointMessage("/add_remote_destination", "Tune", 22)}};

  friend void corvalint::faults::RunScenario(const Plan&, Report&, const std::string&);
};

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
  pad.Send(OscMessage("/osc/remove_port", "iis",
                      OscInt32(std::int32_t{program.Port()}) + OscInt32(std::int32_t{kOscPort}) +
                          OscText("127.0.0.1")));
  pad.Send(CreatePort());
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

// --- afterwards

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
    pad.Send(CreatePort());
    RunFor(7);
    ProgramSends("/probe");
    Require("OSC reaches the device", [&] { return pad.Heard("/osc", "/probe"); });
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

}  // namespace

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

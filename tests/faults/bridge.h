#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "app_on_device.h"
#include "fault_plan.h"
#include "simulated_time.h"
#include "support/call_log.h"
#include "support/fake_library.h"
#include "support/fake_mobile_device.h"
#include "support/fake_registry.h"
#include "support/fake_virtual_midi.h"
#include "support/fake_winmm.h"
#include "support/udp_program.h"

namespace corvalint::faults {

inline constexpr std::uint32_t kArrival = 1, kDeparture = 2;
inline constexpr int kPadConnection = 7, kPhoneConnection = 9;
// A port that the pad publishes for a while. The name is too long for a string's own room.
inline const std::string kLone = "A port that comes and goes";

inline test::FakeWinmm::Bytes BytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

// How many descriptors the process has open.
std::size_t OpenDescriptors();

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
// The library between its fakes, two devices and a program. Never destroyed: the library's threads
// run until the process ends.
class Bridge {
 public:
  explicit Bridge(const Plan& newPlan);

  // Everything once, while calls may fail.
  void RunAll();
  // The same again as far as it must work, with nothing failing any more.
  void RecoverAndJudge();
  void ExpectNothingLeft(std::size_t descriptorsBefore);

  // Lets the devices take what there is; false when there was nothing.
  bool Pump() {
    bool any = pad.Pump();
    any = phone.Pump() || any;
    return any;
  }

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
    // A device waits for the output that it plays; with one that plays for ever, until it is
    // closed.
    const bool waits = plan.mode == Mode::function && FirstFailed("midiOutUnprepareHeader");
    if (waits && (needs.tables & SetOf(Table::mobileDevice)) != 0) return true;
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
  void ProbePorts();
  void ProbeNames();
  void ExpectDevicesClosed();
  void ProbeDevice(AppOnDevice& app, AppOnDevice& other);

  void NotifyOf(const AppOnDevice& app, std::uint32_t kind) {
    if (library.Subscribed()) library.Notify(app.handle, kind);
  }
  std::string PortMessage(const std::string& address) const;
  std::string OscKey() const;
  void ProgramSends(const std::string& bytes);
  bool ProgramHears(const std::string& bytes);
  // Takes the driver's calls into `portCalls`; how many ports it was asked for so far.
  int PortsMade();
  // The library's port of that name at the driver, 0 for none; the newest counts.
  int PortNamed(const std::u16string& name);
  bool PortWasSent(const std::string& hex);
  bool OutputWasSent(const std::string& output, const std::string& bytes) const;

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

  AppOnDevice pad, phone;
};

}  // namespace corvalint::faults

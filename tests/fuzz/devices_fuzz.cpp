// Input: what happens to some devices, step by step: their messages, desktop programs that write
// into their ports, outputs that are switched, devices that come and go, loopback ports whose
// threads get their turn. After each step everything that can be seen is compared with a model
// (support/device_model.h).

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/support/bench_server.h"
#include "fuzz/support/check.h"
#include "fuzz/support/compare_devices.h"
#include "fuzz/support/desk_midi.h"
#include "fuzz/support/device_model.h"
#include "fuzz/support/device_values.h"
#include "fuzz/support/inline_threads.h"
#include "fuzz/support/input.h"
#include "fuzz/support/listed_device.h"
#include "fuzz/support/osc_build.h"
#include "fuzz/support/port_driver.h"
#include "fuzz/support/quiet.h"
#include "fuzz/support/wire.h"
#include "ports/leaving_udp_ports.h"
#include "winmidi/midi_link_controller.h"

namespace corvalint::fuzz {

namespace {

constexpr int kMostSteps = 100;
constexpr int kDeepest = 6;  // ports that wait at once

class Desk {
 public:
  static Desk& Get() {
    static auto* const desk = new Desk;
    return *desk;
  }

  void Run(Input newInput) {
    Begin();
    input = &newInput;
    steps = 0;
    RunSteps();
    End();
  }

 private:
  Desk() {
    for (std::size_t i = 0; i < kManagers; ++i) {
      managers[i] = std::make_unique<ExternalMidiManager>(server, server.Lock(), names);
      managers[i]->SetDeviceKey(DeviceModel().managers[i].key);
      managers[i]->SetDelegate(&GetMidiLinkController());
    }
    CriticalSectionScope hold(registry.listLock);
    for (const ModelOutput& output : DeviceModel().outputs) {
      registry.destinations.push_back(std::make_shared<MidiDestinationEndpoint>());
      registry.destinations.back()->name = output.name;
      registry.destinations.back()->uniqueId = output.id;
    }
    for (std::size_t i = 0; i < kDevices; ++i) {
      devices[i] = std::make_unique<Device>(server, *managers[DeviceModel().devices[i].manager]);
    }
    wakers = wire.wakers;
  }

  void Begin() {
    model = std::make_unique<DeviceModel>();
    midi.Reset(0, static_cast<std::uint32_t>(model->outputs.size()));
    wire.Reset(wakers);
    wire.whenWaitingForDatagrams = [] { Get().PortWaits(); };
    driver.Reset();
    threads.Reset();
    sleptMilliseconds = 0;
    ForgetTimes();
    CriticalSectionScope deviceHold(registry.deviceLock);
    registry.outputsAtScan = midi.outputs;
    CriticalSectionScope hold(registry.listLock);
    std::uint32_t number = 0;
    for (const auto& output : registry.destinations) {
      output->off = true;
      output->available = true;
      output->handle = nullptr;
      output->deviceIndex = number++;
    }
    for (const auto& device : devices) {
      server.clients.Remove(*device);
      server.clients.Append(*device);
    }
    Clear();
  }

  // All clocks begin at zero, as those of new clients do: the second look at the host's clock gives
  // its zero.
  void ForgetTimes() {
    for (std::size_t i = 0; i < kDevices; ++i) {
      clockTicks = -20;
      Dispatch(i, OscBuilder("/init_timing").Int64(0).Packet());
      Check(devices[i]->Clock().clockOffset == 0 && devices[i]->Clock().initHostTime == 0,
            "a clock that does not begin at zero");
    }
  }

  void End() {
    model->effects = {};
    for (std::size_t i = 0; i < kDevices; ++i) {
      devices[i]->OscPorts().RemoveAll();
      model->StopOscPorts(i);
    }
    while (!threads.waiting.empty()) RunThread(0, 0);
    for (const auto& manager : managers) Withdraw(*manager);
    Clear();
  }

  void Clear() {
    console.out.clear();
    console.error.clear();
    driver.sent.clear();
    midi.sent.clear();
    wire.datagramsSent.clear();
    for (const auto& device : devices) device->packets.clear();
    model->effects = {};
  }

  // Steps until the input ends, or until one gives a waiting port's thread something to do.
  void RunSteps() {
    while (!input->Done() && steps++ < kMostSteps) {
      const std::size_t depth = running.size();
      if (Step()) return;
      Check(depth == running.size(), "a port's thread that was lost");
      Compare();
    }
  }

  // True when the innermost waiting port's thread goes on.
  bool Step() {
    const std::uint8_t choice = input->Byte();
    const std::size_t device = (choice >> 4) % kDevices;
    clockTicks = static_cast<std::int64_t>(input->Byte()) << 40;
    switch (choice & 15) {
      case 0:
      case 1:
        return Announce(device, (choice & 1) != 0, true), false;
      case 2:
      case 3:
        return Announce(device, (choice & 1) != 0, false), false;
      case 4:
        return Midi(device), false;
      case 5:
        return Timing(device, choice >= 128), false;
      case 6:
        return DesktopWrites(), false;
      case 7:
        return ToggleOutput(), false;
      case 8:
        return ToggleListed(device), false;
      case 9:
        return CreateOscPort(device), false;
      case 10:
        return RemoveOscPort(device), false;
      case 11:
        return OscMessage(device, choice >= 128), false;
      case 12:
        return StartThread(), false;
      case 13:
        return Deliver();
      case 14:
        return Wrong(device), false;
      default:
        return Circumstance(device, choice), false;
    }
  }

  // One packet from a device. A message whose announcement fits no packet fails its dispatch.
  void Dispatch(std::size_t device, const std::string& packet, bool works = true) {
    bool worked = true;
    try {
      devices[device]->ProcessPacket(packet.data(), packet.size(), {});
    } catch (const std::exception& failure) {
      worked = false;
      CheckSame(failure.what(), "out of buffer memory", "failure of a message");
    }
    Check(worked == works, works ? "a message failed" : "a message did not fail");
  }

  void Announce(std::size_t device, bool isSource, bool isAddition) {
    static constexpr const char* kWhat[4] = {"/remove_remote_destination", "/remove_remote_source",
                                             "/add_remote_destination", "/add_remote_source"};
    const std::string name = TakeName(*input);
    const std::int32_t id = TakeId(*input);
    OscBuilder message(kWhat[(isAddition ? 2 : 0) + (isSource ? 1 : 0)]);
    message.Text(name);
    // An id may also come as text.
    if (name.size() % 3 == 1) {
      message.Text(std::to_string(id));
    } else {
      message.Int32(id);
    }
    const bool works = isAddition ? model->Add(device, isSource, name, id)
                                  : model->Remove(device, isSource, name, id);
    Dispatch(device, message.Packet(), works);
  }

  void Midi(std::size_t device) {
    const std::string name = TakeName(*input);
    const std::int32_t id = TakeId(*input);
    const std::int64_t time = input->Int64();
    const std::string bytes(input->Bytes(input->Byte()));
    model->Midi(device, name, id, time, bytes);
    Dispatch(device, OscBuilder("/midi").Text(name).Int32(id).Int64(time).Blob(bytes).Packet());
  }

  // Each reading of the clock moves it on by ten ticks.
  void Timing(std::size_t device, bool isUpdate) {
    const std::int64_t time = input->Int64();
    const std::int64_t begin = clockTicks;
    if (isUpdate) {
      model->UpdateTiming(device, time, HostTime(begin + 10));
    } else {
      model->InitTiming(device, time, HostTime(begin + 20));
    }
    Dispatch(device, OscBuilder(isUpdate ? "/update_timing" : "/init_timing").Int64(time).Packet());
  }

  void DesktopWrites() {
    const std::uint8_t choice = input->Byte();
    const std::string bytes(input->Bytes(input->Byte() & 31));
    if (driver.ports.empty()) return;
    const std::uintptr_t handle = choice % driver.ports.size() + 1;
    if (!driver.ports[handle - 1].open) return;
    model->DesktopWrites(handle, bytes, HostTime(clockTicks + 10));
    driver.Write(handle, bytes);
  }

  void ToggleOutput() {
    const std::size_t output = input->Byte() % model->outputs.size();
    model->ToggleOutput(output);
    registry.ToggleDestination(model->outputs[output].id);
  }

  void ToggleListed(std::size_t device) {
    model->ToggleListed(device);
    if (model->devices[device].listed) {
      server.clients.Append(*devices[device]);
    } else {
      server.clients.Remove(*devices[device]);
    }
  }

  void CreateOscPort(std::size_t device) {
    const std::int32_t destinationPort = TakeUdpPort(*input);
    const std::int32_t bindPort = TakeUdpPort(*input);
    const std::string host = TakeHost(*input);
    model->CreateOscPort(device, destinationPort, bindPort, host, threads.refuses);
    Dispatch(
        device,
        OscBuilder("/osc/create_port").Int32(destinationPort).Int32(bindPort).Text(host).Packet());
  }

  void RemoveOscPort(std::size_t device) {
    const std::int32_t destinationPort = TakeUdpPort(*input);
    const std::string host = TakeHost(*input);
    model->RemoveOscPort(device, destinationPort, host);
    Dispatch(device, OscBuilder("/osc/remove_port")
                         .Int32(destinationPort)
                         .Int32(static_cast<std::int32_t>(steps))
                         .Text(host)
                         .Packet());
  }

  // Data for a port, or what the device says about one.
  void OscMessage(std::size_t device, bool isData) {
    const std::string key = TakeHost(*input) + std::to_string(TakeUdpPort(*input));
    if (isData) {
      const std::string bytes(input->Bytes(input->Byte()));
      model->SendThroughOscPort(device, key, bytes);
      return Dispatch(device, OscBuilder("/osc").Text(key).Blob(bytes).Packet());
    }
    const std::int32_t status = TakeId(*input);
    model->ReportOscPort(device, key, status);
    Dispatch(device, OscBuilder("/osc/port_creation_report").Text(key).Int32(status).Packet());
  }

  // A waiting thread gets its turn. Steps go on while the port waits for datagrams, and the thread
  // ends at the latest when they do. A number that another port is about to leave must wait.
  void StartThread() {
    const std::uint8_t choice = input->Byte();
    if (threads.waiting.empty() || running.size() >= kDeepest) return;
    const std::size_t place = choice % threads.waiting.size();
    const ModelOscPort& port = *model->waiting[place];
    if (!port.stopped && IsLeaving(static_cast<std::uint16_t>(port.bindPort))) return;
    RunThread(place, choice >> 6);
  }

  void RunThread(std::size_t place, int socketFailures) {
    const std::shared_ptr<ModelOscPort> port = model->waiting[place];
    model->waiting.erase(model->waiting.begin() + static_cast<std::ptrdiff_t>(place));
    wire.socketFailures = socketFailures;
    const bool waits = model->BeginOscThread(*port, socketFailures);
    if (waits) running.push_back(port);
    threads.Run(place);
    wire.socketFailures = 0;
    if (waits) running.pop_back();
    model->EndOscThread(*port);
  }

  // The innermost port's thread is inside its wait. Its datagrams, if any, are there when the steps
  // return.
  void PortWaits() {
    Compare();
    RunSteps();
  }

  // Hands datagrams to the innermost waiting port, or ends it with none.
  bool Deliver() {
    const std::size_t count = input->Byte() % 4;
    if (running.empty()) return false;
    const ModelOscPort& port = *running.back();
    for (std::size_t i = 0; i < count; ++i) {
      const std::string bytes(input->Bytes(input->Byte()));
      wire.datagrams.insert(wire.datagrams.begin(), {bytes});
      if (!port.stopped) model->ReceiveDatagram(port, bytes);
    }
    if (port.stopped) wire.datagrams.clear();
    return true;
  }

  // A message with no arguments, or with one that no message begins with.
  void Wrong(std::size_t device) {
    const std::uint8_t choice = input->Byte();
    OscBuilder message(AddressOf(choice));
    const bool hasArgument = choice >= 128;
    if (hasArgument) message.Float(1.5f);
    model->effects.console += std::string("Error parsing message: ") +
                              (hasArgument ? "wrong argument type" : "missing argument") + "\n";
    Dispatch(device, message.Packet());
  }

  void Circumstance(std::size_t device, std::uint8_t choice) {
    switch (choice >> 6) {
      case 0:
        threads.refuses = !threads.refuses;
        return;
      case 1:
        driver.refuses = !driver.refuses;
        model->driverRefuses = driver.refuses;
        return;
      case 2:
        model->StopOscPorts(device);
        devices[device]->OscPorts().RemoveAll();
        return;
      default:
        return Dispatch(device, OscBuilder("/midi/other").Int32(1).Packet());
    }
  }

  void Compare() {
    const DeviceModel::Effects& expected = model->effects;
    CheckSame(console.out, expected.console, "console");
    CheckSame(console.error, expected.error, "standard error");
    for (std::size_t i = 0; i < kDevices; ++i) {
      ComparePackets(devices[i]->packets, expected.packets[i]);
      CompareOscPorts(devices[i]->OscPorts(), model->devices[i].oscPorts);
    }
    for (std::size_t i = 0; i < kManagers; ++i) ComparePublished(*managers[i], model->managers[i]);
    ComparePorts(driver, *model);
    Check(midi.sent == expected.toOutputs, "bytes for the desktop's outputs");
    Check(wire.datagramsSent == expected.datagrams, "datagrams sent");
    server.CheckLocks();
    Clear();
  }

  Console& console = Quieten();
  DeskMidi& midi = TheDeskMidi();
  InlineThreads& threads = TheInlineThreads();
  PortDriver& driver = ThePortDriver();
  Wire& wire = TheWire();
  MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
  BenchServer server;
  DesktopNames names;
  std::array<std::unique_ptr<ExternalMidiManager>, kManagers> managers;
  std::array<std::unique_ptr<Device>, kDevices> devices;
  std::unique_ptr<DeviceModel> model;
  std::vector<std::shared_ptr<ModelOscPort>> running;  // inside their waits, the last one innermost
  Input* input = nullptr;
  int steps = 0;
  int wakers = 0;
};

}  // namespace

}  // namespace corvalint::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvalint::fuzz;
  Desk::Get().Run(Input(data, size));
  return 0;
}

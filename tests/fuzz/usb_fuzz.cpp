// Input: what the device library tells and answers, step by step: arrivals and departures in any
// order and number, connections that fail in every way, streams that end, threads that cannot be
// made, and threads of clients that get their turn late. Whatever a client's thread does until it
// waits or sleeps, and what the server made of each notification, is compared with a model
// (support/usb_model.h).

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/support/check.h"
#include "fuzz/support/desk_midi.h"
#include "fuzz/support/device_cable.h"
#include "fuzz/support/inline_threads.h"
#include "fuzz/support/input.h"
#include "fuzz/support/port_driver.h"
#include "fuzz/support/quiet.h"
#include "fuzz/support/usb_model.h"
#include "fuzz/support/wire.h"
#include "usb/usb_server_thread.h"

namespace corvalint::fuzz {

namespace {

constexpr int kMostSteps = 80;
constexpr std::size_t kDeepest = 5;  // threads of clients inside each other
constexpr std::size_t kMostClients = 8;
constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kDisconnected = 2;
constexpr std::array<std::uint32_t, 5> kConnectAnswers = {0, 0xE8000065, 0xE8000028, 5, 0xE8000001};
constexpr std::array<std::uint32_t, 4> kOtherKinds = {0, 3, 4, 0xFFFFFFFF};

using At = ModelClient::At;

// Lives until the process ends, as every server does.
UsbServerThread& Server() {
  static auto* const server = new UsbServerThread;
  return *server;
}

class Hub {
 public:
  static Hub& Get() {
    static auto* const hub = new Hub;
    return *hub;
  }

  void Run(Input newInput) {
    Begin();
    input = &newInput;
    steps = 0;
    RunSteps();
    while (!threads.waiting.empty()) RunThread(0);
    Compare();
    threads.Reset(1);  // the server's own
    wire.Reset(0);
  }

 private:
  Hub() {
    for (std::size_t i = 0; i < 3; ++i) cable.devices[i].identifier = i < 2 ? "pad" : "phone";
    TheDeskMidi().Reset(0, 0);
    ThePortDriver();
    theUsbServer = &server;
    StartServer();
    ListKeyboard();
    MakeManagers();
    wire.whenWaiting = [] { Get().Waits(); };
    cable.whenCalled = [] { Get().CheckLocks(); };
    whenSleeping = [](std::uint32_t milliseconds) { Get().Sleeps(milliseconds); };
  }

  // It subscribes, and ends when it would only sleep; the notifications need no thread of its own.
  void StartServer() {
    server.Start();
    whenSleeping = [](std::uint32_t) { Server().Stop(); };
    threads.RunAll();
    whenSleeping = nullptr;
    Check(cable.callback != nullptr, "nobody has subscribed");
  }

  static void ListKeyboard() {
    static int anything;
    MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
    const auto keys = std::make_shared<MidiSourceEndpoint>(registry);
    keys->name = "Keys";
    keys->uniqueId = 7;
    keys->off = false;
    keys->handle = &anything;
    CriticalSectionScope hold(registry.listLock);
    registry.sources.push_back(keys);
  }

  // One for each device that has been here, which stays, with what the device has published.
  void MakeManagers() {
    threads.refuses = true;
    for (std::size_t device = 0; device < DeviceCable::kDevices; ++device) {
      cable.Notify(cable.Handle(device), kConnected);
      managers[UsbModel::kManagerOf[device]] = &ClientsOf(server).front()->Manager();
      cable.Notify(cable.Handle(device), kDisconnected);
    }
    Check(server.ManagerCount() == UsbModel::kManagers, "a manager for each identifier");
    managers[0]->AddRemoteSource("Pad", 1);
    managers[1]->AddRemoteDestination("Phone", 2);
  }

  void Begin() {
    wire.Reset(0);
    wire.whenWaiting = [] { Get().Waits(); };
    threads.refuses = false;
    cable.calls.clear();
    cable.portAnswer = PortAnswer::stream;
    for (std::size_t i = 0; i < DeviceCable::kDevices; ++i) {
      cable.devices[i].connectAnswer = 0;
      cable.devices[i].connectionId = static_cast<std::uint32_t>(100 + i);
    }
    console.out.clear();
    sleptMilliseconds = 0;
    clockTicks = 0;
    model = UsbModel();
    for (std::size_t i = 0; i < UsbModel::kManagers; ++i) managers[i]->deviceDisconnected = false;
  }

  // Steps until one lets the innermost thread go on, or until the input ends; then all devices
  // leave, so that every thread comes to its end.
  void RunSteps() {
    arrival = Arrival::end;
    while (!input->Done() && steps++ < kMostSteps) {
      if (Step()) return;
      Compare();
    }
    while (!model.listed.empty()) Depart(model.listed.front()->device);
    Compare();
  }

  // True when the innermost thread goes on.
  bool Step() {
    const std::uint8_t choice = input->Byte();
    const std::size_t device = (choice >> 4) % DeviceCable::kDevices;
    switch (choice & 15) {
      case 0:
      case 1:
        return Arrive(device), false;
      case 2:
      case 3:
        return Depart(device), false;
      case 4:
        return OtherNotification(device), false;
      case 5:
      case 6:
        return StartThread(choice >> 4), false;
      case 7:
        cable.devices[device].connectAnswer =
            kConnectAnswers[input->Byte() % kConnectAnswers.size()];
        return false;
      case 8:
        cable.devices[device].connectionId = input->Byte();
        return false;
      case 9:
        cable.portAnswer = static_cast<PortAnswer>(device);
        return false;
      case 10:
        return Circumstance(device), false;
      case 11:
        return PlayKeyboard(), false;
      default:
        arrival = static_cast<Arrival>((choice >> 4) % 3);
        return !running.empty();
    }
  }

  void Arrive(std::size_t device) {
    if (model.listed.size() + running.size() >= kMostClients) return;
    model.Arrive(device, threads.refuses);
    Notify(cable.Handle(device), kConnected);
  }

  void Depart(std::size_t device) {
    const std::uint32_t sleeps = model.Depart(device);
    const std::uint64_t before = sleptMilliseconds;
    Notify(cable.Handle(device), kDisconnected);
    Check(sleptMilliseconds - before == sleeps, "how long a departure takes");
  }

  // Of a kind that means nothing, about a device that is not usable, or about none.
  void OtherNotification(std::size_t device) {
    const std::uint8_t choice = input->Byte();
    const bool isDevice = choice < 64;
    const std::uint32_t kind = isDevice ? kOtherKinds[choice % kOtherKinds.size()] : choice % 4;
    model.OtherNotification(kind, isDevice);
    std::uintptr_t& product = cable.devices[device].record[3];
    product = isDevice ? 1 : 0;
    Notify(choice < 128 ? cable.Handle(device) : nullptr, kind);
    product = 1;
  }

  void Notify(DeviceHandle handle, std::uint32_t kind) {
    threads.RunOutside([&] {
      notifying = true;
      cable.Notify(handle, kind);
      notifying = false;
    });
  }

  void Circumstance(std::size_t which) {
    if (which < 2) {
      threads.refuses = !threads.refuses;
    } else {
      wire.staysBlocking = !wire.staysBlocking;
    }
  }

  void PlayKeyboard() {
    const std::string bytes(input->Bytes(input->Byte() & 7));
    model.MidiToAll("Keys", 7, 5, bytes);
    server.SendMidiToAll(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                         static_cast<std::uint32_t>(bytes.size()), "Keys", 7, 5);
  }

  void StartThread(std::size_t choice) {
    if (threads.waiting.empty() || running.size() >= kDeepest) return;
    RunThread(choice % threads.waiting.size());
  }

  void RunThread(std::size_t place) {
    const std::shared_ptr<ModelClient> client = model.waiting[place];
    model.waiting.erase(model.waiting.begin() + static_cast<std::ptrdiff_t>(place));
    running.push_back(client);
    model.Begin(*client);
    threads.Run(place);
    Check(running.back() == client, "a thread that was lost");
    running.pop_back();
    Check(client->at == At::ended, "a thread that ended too soon");
  }

  // The innermost client waits for its device.
  void Waits() {
    Check(running.back()->at == At::waiting, "a client that should not wait");
    CheckLocks();
    Compare();
    RunSteps();
    ModelClient& client = *running.back();
    if (client.open) wire.incoming = BytesOf(arrival);
    model.Receive(client, arrival);
  }

  void Sleeps(std::uint32_t milliseconds) {
    if (notifying) return;
    Check(!running.empty() && running.back()->at == At::sleeping, "a client that should not sleep");
    Check(running.back()->sleep == milliseconds, "how long a client sleeps");
    CheckLocks();
    Compare();
    RunSteps();
    model.WakeUp(*running.back());
  }

  void CheckLocks() const {
    Check(server.clientLock.HoldsOfThisThread() == 0, "clientLock was kept");
    Check(server.midiLock.load()->HoldsOfThisThread() == 0, "midiLock was kept");
  }

  void Compare() {
    CheckSame(console.out, model.console, "console");
    Check(cable.calls == model.calls, "calls of the device library");
    Check(wire.sent == model.sent, "what the devices were sent");
    const std::vector<UsbClientThread*> listed = ClientsOf(server);
    Check(listed.size() == model.listed.size(), "number of clients");
    for (std::size_t i = 0; i < listed.size(); ++i) {
      const ModelClient& expected = *model.listed[i];
      Check(listed[i]->Device() == cable.Handle(expected.device), "device of a client");
      Check(&listed[i]->Manager() == managers[UsbModel::kManagerOf[expected.device]],
            "manager of a client");
      Check(listed[i]->Running() && listed[i]->HasThread() == expected.hasThread,
            "thread of a client");
    }
    for (std::size_t i = 0; i < UsbModel::kManagers; ++i) {
      Check(managers[i]->deviceDisconnected == model.away[i], "whether a device is away");
    }
    Check(server.ManagerCount() == UsbModel::kManagers, "number of managers");
    Check(server.AnyManagerOwns("Pad") && server.AnyManagerOwns("Phone"), "a published name");
    CheckLocks();
  }

  static std::vector<UsbClientThread*> ClientsOf(const UsbServerThread& server) {
    std::vector<UsbClientThread*> found;
    for (DeviceClient* client : ClientWalk(server.clients)) {
      found.push_back(static_cast<UsbClientThread*>(client));
    }
    return found;
  }

  Console& console = Quieten();
  InlineThreads& threads = TheInlineThreads();
  Wire& wire = TheWire();
  DeviceCable& cable = TheDeviceCable();
  UsbServerThread& server = Server();
  std::array<ExternalMidiManager*, UsbModel::kManagers> managers{};
  UsbModel model;
  std::vector<std::shared_ptr<ModelClient>> running;  // inside a wait or a sleep, innermost last
  Input* input = nullptr;
  Arrival arrival = Arrival::end;
  int steps = 0;
  bool notifying = false;
};

}  // namespace

}  // namespace corvalint::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvalint::fuzz;
  Hub::Get().Run(Input(data, size));
  return 0;
}

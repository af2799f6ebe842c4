#include "bench/bridge.h"

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <thread>

#include "bench/desk.h"
#include "corvalint_wrapper.h"
#include "platform/mobile_device_api.h"
#include "usb/usb_server_thread.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint::bench {

namespace {

constexpr std::uint32_t kConnected = 1;

struct PreparedDevice {
  std::array<std::uintptr_t, 4> record{};  // first, so that a handle is its address
  std::string identifier;
  Loopback link;
  std::uint32_t number = 0;
  std::atomic<bool> connected{false};
};

std::deque<PreparedDevice> devices;  // by their numbers
std::atomic<DeviceNotificationCallback> subscriber{nullptr};
int notificationHandle;  // its address is the handle

PreparedDevice& Of(DeviceHandle handle) { return *static_cast<PreparedDevice*>(handle); }

std::uint8_t GetCString(CoreString text, char* buffer, std::int64_t size, std::uint32_t) {
  std::strncpy(buffer, static_cast<const char*>(text), static_cast<std::size_t>(size));
  return 1;
}

std::uint32_t Subscribe(DeviceNotificationCallback callback, std::uint32_t, std::uint32_t,
                        std::uintptr_t, void** notification) {
  *notification = &notificationHandle;
  subscriber = callback;
  return 0;
}

// A connection id is a device's number plus one.
std::uint32_t MuxConnect(std::uint32_t connectionId, std::uint32_t, std::int64_t* socket) {
  PreparedDevice& device = devices[connectionId - 1];
  if (device.connected.exchange(true)) GiveUp("a device was connected to a second time");
  *socket = device.link.library;
  return 0;
}

constexpr MobileDeviceApi kLibrary{
    .cfStringMakeConstantString = [](const char* text) -> CoreString { return text; },
    .cfStringGetCString = GetCString,
    .amDeviceNotificationSubscribe = Subscribe,
    .amDeviceNotificationUnsubscribe = [](void*) { return std::uint32_t{0}; },
    .amRestoreRegisterForDeviceNotifications = [](RestoreCallback, RestoreCallback, RestoreCallback,
                                                  RestoreCallback, std::uint32_t,
                                                  void*) { return std::uint32_t{0}; },
    .amDeviceCopyValue = [](DeviceHandle, CoreString, CoreString) -> CoreString { return nullptr; },
    .amDeviceCopyDeviceIdentifier = [](DeviceHandle device) -> CoreString {
      return Of(device).identifier.c_str();
    },
    .amDeviceConnect = [](DeviceHandle) { return std::uint32_t{0}; },
    .amDeviceDisconnect = [](DeviceHandle) { return std::uint32_t{0}; },
    .amDeviceGetConnectionId = [](DeviceHandle device) { return Of(device).number + 1; },
    .usbMuxConnectByPort = MuxConnect,
};

template <class List>
std::int32_t IdOf(const List& list, const char* name) {
  for (const auto& endpoint : list) {
    if (endpoint->name == name) return endpoint->uniqueId;
  }
  return 0;
}

}  // namespace

void GiveUp(const std::string& why) {
  std::fprintf(stderr, "bench: %s\n", why.c_str());
  std::_Exit(1);
}

void Await(const char* what, const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) GiveUp(std::string("in vain: ") + what);
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
}

Bridge::Bridge(std::size_t most, Buffers buffers) {
  for (std::size_t i = 0; i < most; ++i) {
    PreparedDevice& device = devices.emplace_back();
    device.record[3] = 1;  // the word that makes a device usable
    device.identifier = "device-" + std::to_string(i);
    device.link = MakeLoopback(buffers);
    device.number = static_cast<std::uint32_t>(i);
  }
  Install<MobileDeviceApi>(&kLibrary);
  InstallDesk();
  corvalintServerStart();
  MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
  Await("the service to start", [&] {
    return subscriber != nullptr && registry.SourceCount() == 1 && registry.DestinationCount() == 2;
  });
  keysId = IdOf(registry.Sources(), kKeys);
  outputId = IdOf(registry.Destinations(), kOutput);
  slowOutputId = IdOf(registry.Destinations(), kSlowOutput);
  registry.ToggleSource(keysId);
  registry.ToggleDestination(outputId);
  registry.ToggleDestination(slowOutputId);
}

void Bridge::Attach(std::size_t count) {
  for (; attached < count; ++attached) {
    PreparedDevice& device = devices[attached];
    const DeviceHandle handle = &device;
    std::array<unsigned char, 16> record{};
    std::memcpy(record.data(), &handle, sizeof handle);
    std::memcpy(record.data() + 8, &kConnected, sizeof kConnected);
    subscriber.load()(record.data());
    Await("a device's connection", [&] { return device.connected.load(); });
    Flush(attached);
  }
}

const Loopback& Bridge::Link(std::size_t device) const { return devices[device].link; }

void Bridge::PublishSource(std::size_t device, const MidiAddress& endpoint) {
  const auto frame = EndpointFrame("/add_remote_source", endpoint.name, endpoint.id);
  WriteAll(Link(device).device, frame.data(), frame.size());
  Flush(device);
  if (PortNamed(endpoint.name).handle == nullptr) GiveUp("a port was not published");
}

void Bridge::PublishDestination(std::size_t device, const MidiAddress& endpoint) {
  const auto frame = EndpointFrame("/add_remote_destination", endpoint.name, endpoint.id);
  WriteAll(Link(device).device, frame.data(), frame.size());
  Flush(device);
}

// The reply is the device's last message; whatever comes before it is thrown away with it.
void Bridge::Flush(std::size_t device) {
  const auto frame = TimingFrame();
  const int socket = Link(device).device;
  Drain(socket);
  WriteAll(socket, frame.data(), frame.size());
  std::string seen;
  std::array<char, 4096> bytes;
  while (seen.find("/init_timing") == std::string::npos) {
    const ssize_t count = recv(socket, bytes.data(), bytes.size(), 0);
    if (count <= 0) GiveUp("a device lost its stream");
    seen.append(bytes.data(), static_cast<std::size_t>(count));
  }
}

void Bridge::DrainAll() {
  for (std::size_t i = 0; i < attached; ++i) Drain(Link(i).device);
}

}  // namespace corvalint::bench

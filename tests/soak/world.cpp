#include "soak/world.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include "corvalint_wrapper.h"
#include "soak/complaints.h"
#include "startup/service_thread.h"

namespace corvalint::soak {

namespace {

constexpr std::size_t kServiceThreads = 2;

// What a device looks at in every message.
device::DeviceOptions Ears(WorldDevice& device) {
  device::DeviceOptions options;
  options.keepRecord = false;
  options.onMessage = [&device](const device::ReceivedMessage& received) {
    if (const auto midi = device::AsMidi(received.message)) {
      device.midi.Saw(midi->data.data(), midi->data.size());
    } else if (received.message.address == "/osc" && received.message.typeTags == "sb") {
      const auto& bytes = received.message.Argument<device::Bytes>(1);
      device.datagrams.Saw(bytes.data(), bytes.size());
    } else if (received.message.address == "/osc/port_creation_report" &&
               received.message.typeTags == "si" &&
               received.message.Argument<std::int32_t>(1) ==
                   static_cast<std::int32_t>(LocalOSCPort::Status::ready)) {
      const auto& key = received.message.Argument<std::string>(0);
      device.readyPorts.Saw(reinterpret_cast<const std::uint8_t*>(key.data()), key.size());
    }
  };
  return options;
}

}  // namespace

bool Await(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
  return true;
}

WorldDevice::WorldDevice() : app(Ears(*this)) {}

World::World(const WorldOptions& options)
    : clock(options.clockDivisor),
      winmm([this] { return driver.Names(); }),
      library(options.connectsFailSometimes) {
  for (std::size_t i = 0; i < options.devices; ++i) {
    auto device = std::make_unique<WorldDevice>();
    const bool secondTransport = options.twoTransports && i + 1 == options.devices;
    device->handle =
        library.Add("device-" + std::to_string(secondTransport ? i - 1 : i), device->app.Port());
    devices.push_back(std::move(device));
  }
  corvalintServerStart();
  if (!Await([this] { return library.Subscribed(); })) {
    throw std::runtime_error("the service does not start");
  }
}

World::~World() {
  ServiceRunning = false;
  Server().Stop();
  Expect(Await([this] { return threads.Living() == 0; }), "the service's threads do not end");
}

UsbServerThread& World::Server() const {
  return *static_cast<UsbServerThread*>(theUsbServer.load());
}

void World::Attach(WorldDevice& device) {
  device.attached = true;
  library.Attach(device.handle);
}

void World::Detach(WorldDevice& device) {
  library.Detach(device.handle);
  device.attached = false;
}

bool World::AttachAndWait(WorldDevice& device) {
  const std::uint64_t before = device.app.Record().Counters().streamsOpened;
  Attach(device);
  return Expect(
      device.app.WaitForStream(before + 1, kPatience) && device.app.AlignClockAndWait(0, kPatience),
      "a device that arrived is not served");
}

bool World::WaitUntilAllLeft() {
  const bool left = Await([this] {
    return Clients() == 0 && threads.Living() == kServiceThreads &&
           threads.OpenHandles() == kServiceThreads;
  });
  if (!left) {
    Complain("after all devices left: %llu clients, %zu threads, %zu handles",
             static_cast<unsigned long long>(Clients()), threads.Living(), threads.OpenHandles());
  }
  return left;
}

std::uint64_t World::Clients() const { return Server().clients.Count(); }

std::vector<PublishedEndpoint> World::Published() const {
  std::vector<PublishedEndpoint> all;
  for (DeviceClient* client : ClientWalk(Server().clients)) {
    const auto own = client->Owner().PublishedEndpoints();
    all.insert(all.end(), own.begin(), own.end());
  }
  return all;
}

}  // namespace corvalint::soak

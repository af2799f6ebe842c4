#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "device/simulated_device.h"
#include "soak/counted_threads.h"
#include "soak/host_folder.h"
#include "soak/quick_clock.h"
#include "soak/sightings.h"
#include "soak/small_device_library.h"
#include "soak/small_driver.h"
#include "soak/small_winmm.h"
#include "soak/udp_end.h"
#include "usb/usb_server_thread.h"

namespace corvalint::soak {

// An iOS device that can be plugged in, and what it looks for in what it hears.
struct WorldDevice {
  WorldDevice();

  Sightings midi;        // the bytes of "/midi" messages
  Sightings datagrams;   // the bytes of "/osc" messages
  Sightings readyPorts;  // the bind keys of "/osc/port_creation_report" that say ready
  device::SimulatedDevice app;
  DeviceHandle handle = nullptr;
  std::atomic<bool> attached{false};
};

struct WorldOptions {
  std::uint32_t clockDivisor = 100;  // how much shorter the library's sleeps are
  std::size_t devices = 8;
  bool twoTransports = false;  // the last two devices are one, on two transports
  bool connectsFailSometimes = false;
};

// The whole library on this machine with everything around it: a desktop, a driver, a device
// library and devices. Started once for the process. Everything may be used by any thread but where
// it is said.
class World {
 public:
  // Starts the service, as a host does, and waits until it has subscribed to the device library.
  explicit World(const WorldOptions& options);
  // Ends the service's threads.
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  WorldDevice& Device(std::size_t number) { return *devices[number]; }
  std::size_t DeviceCount() const { return devices.size(); }
  SmallWinmm& Winmm() { return winmm; }
  SmallDriver& Driver() { return driver; }
  CountedThreads& Threads() { return threads; }
  const TemporaryHostFolder& Folder() const { return folder; }

  // For one thread at a time for each device.
  void Attach(WorldDevice& device);
  void Detach(WorldDevice& device);
  // Attaches it and waits for a stream that answers.
  bool AttachAndWait(WorldDevice& device);

  // Returns when no client is listed, only the service's two threads live and none but their
  // handles are open; complains when that takes too long. No device may be attached.
  bool WaitUntilAllLeft();

  std::uint64_t Clients() const;
  std::vector<PublishedEndpoint> Published() const;

 private:
  UsbServerThread& Server() const;

  TemporaryHostFolder folder;
  QuickClock clock;
  CountedThreads threads;
  SmallDriver driver;
  SmallWinmm winmm;
  SmallDeviceLibrary library;
  std::vector<std::unique_ptr<WorldDevice>> devices;
};

// How long anything may take on a machine that is busy with other things.
inline constexpr std::chrono::milliseconds kPatience{30000};

// Looks until the condition holds; false when it does not within the patience.
bool Await(const std::function<bool()>& condition);

}  // namespace corvalint::soak

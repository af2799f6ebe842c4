#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/support/port_driver.h"
#include "fuzz/support/wire.h"

namespace corvalint::fuzz {

// What the bridge should do with the messages of some devices, kept with the simplest means: lists
// that are walked. It knows no locks, no threads and none of the library's types.

inline constexpr std::size_t kDevices = 4;
inline constexpr std::size_t kManagers = 3;

// Host time of a number of ticks: nanoseconds, of which the library keeps the low 64 bits of a
// product.
std::int64_t HostTime(std::int64_t ticks);

struct ModelRecord {
  std::string name;
  std::int32_t id;
  bool operator==(const ModelRecord&) const = default;
};

struct ModelPort {
  std::string name;
  std::uintptr_t handle;  // 0 when the driver refused it
  std::optional<ModelRecord> source, destination;

  std::optional<ModelRecord>& Record(bool isSource) { return isSource ? source : destination; }
};

struct ModelManager {
  std::string key;
  std::vector<ModelPort> ports;

  bool HasName(const std::string& name) const;
  // The last port with a record of that kind and id; null without one.
  ModelPort* WithId(bool isSource, std::int32_t id);
};

struct ModelOscPort {
  enum class Life { waiting, running, ended, neverStarted };

  std::size_t device;
  std::int32_t destinationPort, bindPort;
  std::string host, destinationKey, bindKey;
  bool fresh = true;
  std::int32_t reported = 0;
  Life life = Life::waiting;
  bool stopped = false;
};

struct ModelClock {
  std::int64_t offset = 0, midiOffset = 0, initTime = 0, initOffset = 0;
};

struct ModelDevice {
  std::size_t manager;
  bool listed = true;
  ModelClock clock;
  std::vector<std::shared_ptr<ModelOscPort>> oscPorts;
};

struct ModelOutput {
  std::string name;
  std::int32_t id;
  bool on = false;
};

class DeviceModel {
 public:
  DeviceModel();

  // Messages of a device. They give false for one whose announcement fits no packet: its dispatch
  // fails after everything else was done.
  bool Add(std::size_t device, bool isSource, const std::string& name, std::int32_t id);
  bool Remove(std::size_t device, bool isSource, const std::string& name, std::int32_t id);
  void Midi(std::size_t device, const std::string& name, std::int32_t id, std::int64_t time,
            const std::string& bytes);
  // `now` is the host's time at the message's beginning, `later` that of a second look.
  void InitTiming(std::size_t device, std::int64_t deviceTime, std::int64_t later);
  void UpdateTiming(std::size_t device, std::int64_t deviceTime, std::int64_t now);
  void CreateOscPort(std::size_t device, std::int32_t destinationPort, std::int32_t bindPort,
                     const std::string& host, bool threadsRefused);
  void RemoveOscPort(std::size_t device, std::int32_t destinationPort, const std::string& host);
  void ReportOscPort(std::size_t device, const std::string& key, std::int32_t status);
  void SendThroughOscPort(std::size_t device, const std::string& key, const std::string& bytes);

  // The connection ends: its loopback ports are stopped, the last one first.
  void StopOscPorts(std::size_t device);
  // The thread of a waiting port begins, with that many sockets that cannot be had; false when it
  // ends at once.
  bool BeginOscThread(ModelOscPort& port, int socketFailures);
  void ReceiveDatagram(const ModelOscPort& port, const std::string& bytes);
  void EndOscThread(ModelOscPort& port);

  // A device comes to the list of those that are told things, or leaves it.
  void ToggleListed(std::size_t device);
  // A desktop program writes into a published port.
  void DesktopWrites(std::uintptr_t handle, const std::string& bytes, std::int64_t now);
  // The host switches one of the desktop's outputs.
  void ToggleOutput(std::size_t output);

  bool driverRefuses = false;

  std::array<ModelDevice, kDevices> devices;
  std::array<ModelManager, kManagers> managers;
  std::vector<ModelOutput> outputs;
  // Ports whose threads have not begun, in the order in which they were made.
  std::vector<std::shared_ptr<ModelOscPort>> waiting;

  // What has to have come out since it was last cleared.
  struct Effects {
    std::array<std::vector<std::string>, kDevices> packets;
    std::string console, error;
    std::vector<PortDriver::Sent> toPorts;
    std::vector<std::string> toOutputs;
    std::vector<Wire::SentDatagram> datagrams;
  };
  Effects effects;

  std::vector<std::string> OpenPortNames() const;

 private:
  bool Announce(const char* what, const std::string& name, std::int32_t id, const std::string& key);
  bool Owns(const ModelDevice& device, const std::string& key, const std::string& name) const;
  std::uintptr_t MakePort(const std::string& name);
  std::shared_ptr<ModelOscPort> FindOscPort(std::size_t device, const std::string& key) const;
  void ReportToDevice(const ModelOscPort& port, std::int32_t status);
  void Stop(ModelOscPort& port);

  std::array<std::size_t, kDevices> order{};  // of the listed devices
  std::size_t listedCount = 0;
  std::vector<std::string> driverPorts;  // names by handle, empty once closed
  std::vector<bool> driverOpen;
};

}  // namespace corvalint::fuzz

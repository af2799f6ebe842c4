#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/device_cable.h"

namespace corvalint::fuzz {

// What arrives on a device's stream when its client's wait is over.
enum class Arrival { end, badLength, otherKind };

// The bytes of it.
std::string_view BytesOf(Arrival arrival);

// A client of a device: from an arrival to the departure that stops it, and on until its thread has
// ended.
struct ModelClient {
  enum class At { start, waiting, sleeping, ended };

  std::size_t device;
  bool hasThread;
  bool running = true;
  bool open = false;
  std::uint32_t connectionId = 0;
  std::size_t stream = 0;  // number of the last one that was opened
  At at = At::start;
  std::uint32_t sleep = 0;  // milliseconds, while it sleeps
  bool inRecovery = false;  // sleeps because the device is in recovery mode
};

// What the server of devices and their clients should do with notifications and with what the
// device library answers. A client is told to go on, and what it does until it waits, sleeps or
// ends is noted; what the cable answers must stand before.
struct UsbModel {
  static constexpr std::size_t kManagers = 3;
  // Two devices are one, on two transports; the last one has no identifier.
  static constexpr std::array<std::size_t, DeviceCable::kDevices> kManagerOf = {0, 0, 1, 2};

  std::vector<std::shared_ptr<ModelClient>> listed;   // oldest first
  std::vector<std::shared_ptr<ModelClient>> waiting;  // whose threads have not begun
  std::array<bool, kManagers> away{};
  std::string console;
  std::vector<std::string> calls;  // of the device library, as the cable notes them
  std::vector<std::string> sent;   // to each stream

  // Notifications.
  void Arrive(std::size_t device, bool threadsRefused);
  // Answers how long the departure sleeps, in milliseconds.
  std::uint32_t Depart(std::size_t device);
  void OtherNotification(std::uint32_t kind, bool isDevice);

  // A client's thread goes on.
  void Begin(ModelClient& client);
  void WakeUp(ModelClient& client);
  void Receive(ModelClient& client, Arrival arrival);

  void MidiToAll(std::string_view name, std::int32_t id, std::int64_t time, std::string_view bytes);

 private:
  void GoOn(ModelClient& client);
  void ObtainConnectionId(ModelClient& client);
  void Connect(ModelClient& client);
  void Announce(ModelClient& client);
  void Finish(ModelClient& client);
  void Sleep(ModelClient& client, std::uint32_t milliseconds);
  void Call(const char* what, std::size_t number);
  void Send(const ModelClient& client, std::string_view packet);
};

}  // namespace corvalint::fuzz

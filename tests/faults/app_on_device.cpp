#include "app_on_device.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "clients/big_endian.h"
#include "failing_tables.h"
#include "fault_plan.h"
#include "support/stream_peer.h"

namespace corvalint::faults {

namespace {
constexpr std::size_t kHeader = 12;
}

AppOnDevice::AppOnDevice(DeviceHandle deviceHandle, std::uint32_t connection,
                         std::vector<std::string> hello)
    : handle(deviceHandle), connectionId(connection), greeting(std::move(hello)) {}

AppOnDevice::~AppOnDevice() { Close(); }

bool AppOnDevice::Pump() {
  const bool received = reading && Receive();
  return TakeNewStream() || received;
}

// The library has one stream to a device, so an older one is at its end.
bool AppOnDevice::TakeNewStream() {
  const int taken = TakeStream(connectionId);
  if (taken == 0) return false;
  Close();
  socket = taken;
  for (const std::string& packet : greeting) Send(packet);
  return true;
}

bool AppOnDevice::Receive() {
  bool any = false;
  std::array<char, 65536> chunk;
  while (socket > 0) {
    const ssize_t got = recv(socket, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (got < 0 && errno == EAGAIN) break;
    any = true;
    if (got <= 0) {
      Close();
    } else {
      bytes.append(chunk.data(), static_cast<std::size_t>(got));
      TakeFrames();
    }
  }
  return any;
}

// Whatever failed, the library's frames stay whole and in their places.
void AppOnDevice::TakeFrames() {
  while (bytes.size() >= kHeader) {
    const std::uint32_t length = ReadBigEndian32(bytes.data());
    if (length == 0 || length > 131072 || ReadBigEndian32(bytes.data() + 4) != 2 ||
        ReadBigEndian32(bytes.data() + 8) != 2) {
      Complain("device %u: what came is no frame", connectionId);
      return Close();
    }
    if (bytes.size() < kHeader + length) return;
    heard.push_back(bytes.substr(kHeader, length));
    bytes.erase(0, kHeader + length);
  }
}

void AppOnDevice::Send(const std::string& packet) {
  if (socket <= 0) return;
  const std::string frame = test::FrameOf(packet);
  // What does not go out went to a stream that has ended.
  static_cast<void>(send(socket, frame.data(), frame.size(), MSG_NOSIGNAL));
}

void AppOnDevice::EndStream() { Close(); }

void AppOnDevice::Close() {
  if (socket > 0) close(socket);
  socket = 0;
  bytes.clear();
}

bool AppOnDevice::Heard(const std::string& text, const std::string& other) const {
  return std::any_of(heard.begin(), heard.end(), [&](const std::string& packet) {
    return packet.find(text) != std::string::npos && packet.find(other) != std::string::npos;
  });
}

}  // namespace corvalint::faults

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/mobile_device_api.h"

namespace corvalint::faults {

// The companion app of one device: takes each stream that the library opens, says what it has, and
// keeps what it hears. It never blocks and takes the end of a stream as it comes. For one thread.
class AppOnDevice {
 public:
  // `hello` are the packets that it sends on each new stream.
  AppOnDevice(DeviceHandle deviceHandle, std::uint32_t connection, std::vector<std::string> hello);
  ~AppOnDevice();
  AppOnDevice(const AppOnDevice&) = delete;
  AppOnDevice& operator=(const AppOnDevice&) = delete;

  // Takes what there is: a new stream, frames, an end. False when there was nothing.
  bool Pump();

  void Send(const std::string& packet);
  // While it does not read, what comes stays in the stream.
  void SetReading(bool newReading) { reading = newReading; }
  // Ends the stream, as a device does whose app is closed.
  void EndStream();

  bool Connected() const { return socket > 0; }
  // Whether a packet came that has both texts in it, since the last Forget.
  bool Heard(const std::string& text, const std::string& other = "") const;
  void Forget() { heard.clear(); }

  const DeviceHandle handle;
  const std::uint32_t connectionId;

 private:
  bool TakeNewStream();
  bool Receive();
  void TakeFrames();
  void Close();

  const std::vector<std::string> greeting;
  int socket = 0;
  bool reading = true;
  std::string bytes;  // not a whole frame yet
  std::vector<std::string> heard;
};

}  // namespace corvalint::faults

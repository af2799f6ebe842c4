#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/base_client_thread.h"

namespace corvalint::fuzz {

// A client whose frames end in a list.
class Device final : public BaseClientThread {
 public:
  using BaseClientThread::BaseClientThread;
  ~Device() override = default;

  int SendFramed(const void* data, std::uint32_t size) override {
    packets.emplace_back(static_cast<const char*>(data), size);
    return static_cast<int>(size);
  }
  int SendFrame(const Frame& frame) override {
    return SendFramed(frame.Payload(), frame.payloadSize);
  }
  LocalOSCPortTable& OscPorts() { return *localPorts; }

  std::vector<std::string> packets;
};

}  // namespace corvalint::fuzz

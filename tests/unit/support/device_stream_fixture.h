#pragma once

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "protocol/device_stream.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/scripted_sockets.h"
#include "support/stream_peer.h"

namespace corvalint::test {

// A device's stream over the system's sockets, and the device at its other end.
class DeviceStreamTest : public testing::Test {
 protected:
  DeviceStreamTest() { Connect(); }

  void Connect() {
    StreamPair pair = MakeStreamPair();
    SocketApi::System().setNonBlocking(pair.library);
    socket = pair.library;
    peer = std::move(pair.peer);
    stream->Open(socket);
  }

  int Send(const std::string& payload) {
    return stream->Send(payload.data(), static_cast<std::uint32_t>(payload.size()));
  }

  // Receives until the stream ends, on a thread of its own; gives the last result.
  std::future<int> ReceiveAll() {
    return std::async(std::launch::async, [this] {
      std::vector<char> buffer(65536);
      for (;;) {
        const int result = stream->Receive(buffer.data(), static_cast<int>(buffer.size()));
        if (result <= 0) return result;
        received.append(buffer.data(), static_cast<std::size_t>(result));
      }
    });
  }

  FakeClock clock;
  LogCapture log;
  ScriptedSockets sockets;
  std::unique_ptr<DeviceStream> stream = std::make_unique<DeviceStream>();
  std::unique_ptr<StreamPeer> peer;
  int socket = 0;
  std::string received;  // by ReceiveAll; read it when that has ended
};

}  // namespace corvalint::test

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ports/desktop_names.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/scripted_sockets.h"
#include "support/test_client.h"
#include "support/test_server.h"

namespace corvalint::test {

using Lines = std::vector<std::string>;

// The run of a client on the test's own thread: what the device sends is there before it begins.
class BaseClientThreadTest : public testing::Test {
 protected:
  BaseClientThreadTest() {
    client.recorder = [this](const std::string& address, const RemoteEndpoint&) {
      addresses.push_back(address);
    };
  }

  // Sends the bytes on one connection and runs until that has ended.
  void RunOver(const std::string& bytes) {
    const auto peer = client.Prepare();
    peer->Send(bytes);
    peer->EndSending();
    client.RunToTheEnd();
  }

  static std::string MessageFrame(const std::string& address) {
    return FrameOf(OscMessage(address, "", ""));
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  ScriptedSockets sockets;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  TestClient client{server, manager};
  Lines addresses;
};

// What the console has when nothing was wrong with the one stream.
inline constexpr char kEnd[] = "Server disconnected: 0\nFinished\n";

}  // namespace corvalint::test

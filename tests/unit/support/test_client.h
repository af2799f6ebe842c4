#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "platform/socket.h"
#include "protocol/base_client_thread.h"
#include "support/stream_peer.h"

namespace corvalint::test {

// A device's client whose streams a test prepares; its run ends on the calling thread when no
// further stream is prepared.
class TestClient final : public BaseClientThread {
 public:
  using BaseClientThread::BaseClientThread;
  ~TestClient() override { localPorts.reset(); }

  // A stream for the next connection: the device's end of it. `buffer` as for MakeStreamPair.
  std::unique_ptr<StreamPeer> Prepare(int buffer = 0) {
    StreamPair pair = MakeStreamPair(buffer);
    SocketApi::System().setNonBlocking(pair.library);
    prepared.push_back(pair.library);
    return std::move(pair.peer);
  }
  // Opens the prepared stream now, for tests without a run.
  void OpenNow() { ASSERT_TRUE(Connect()); }

  // Reads the prepared streams to their ends. The run's result.
  std::uint32_t RunToTheEnd() {
    running = true;
    return Run();
  }
  void ClearRunning() { running = false; }
  void SetEndpoint(const RemoteEndpoint& endpoint) { remoteEndpoint = endpoint; }
  std::atomic<std::int32_t>& Disconnected() { return disconnected; }
  LocalOSCPortTable& Ports() { return *localPorts; }
  void CloseStream() { stream.Close(); }
  // As at the end of a client.
  void ReleasePorts() { localPorts.reset(); }

  // With a recorder the messages go there instead of into the dispatch.
  std::function<void(const std::string& address, const RemoteEndpoint& endpoint)> recorder;
  // Runs at the beginning of each Connect that finds no stream open.
  std::function<void()> whenConnecting;
  std::uint32_t result = 0;  // of the run
  int connects = 0;
  int disconnects = 0;

 protected:
  bool Connect() override {
    if (stream.IsOpen()) return true;
    ++connects;
    if (whenConnecting) whenConnecting();
    if (prepared.empty()) {
      running = false;
      return false;
    }
    OpenStream(prepared.front());
    prepared.pop_front();
    return true;
  }
  void PerformDisconnect() override {
    ++disconnects;
    stream.Close();
  }
  std::uint32_t Finalize() override {
    BaseClientThread::Finalize();
    return result;
  }
  void ProcessMessage(const osc::ReceivedMessage& message,
                      const RemoteEndpoint& endpoint) override {
    if (!recorder) return BaseClientThread::ProcessMessage(message, endpoint);
    recorder(message.AddressPattern(), endpoint);
  }

 private:
  std::deque<int> prepared;
};

}  // namespace corvalint::test

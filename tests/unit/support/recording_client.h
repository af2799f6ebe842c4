#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "clients/device_client.h"
#include "support/osc_bytes.h"

namespace corvalint::test {

// The packets of the device stream, put together by hand.
inline std::string AnnouncementBytes(const std::string& address, const std::string& name,
                                     std::int32_t id) {
  return EndpointMessage(address, name, id);
}
inline std::string MidiBytes(const std::string& name, std::int32_t id, std::int64_t timestamp,
                             const std::string& bytes) {
  return MidiMessage(name, id, timestamp, bytes);
}

// A device's manager that answers as the test says and notes what it is asked. The answer and the
// hooks are set before other threads use it.
class ScriptedOwner final : public EndpointOwner {
 public:
  bool OwnsEndpoint(const std::string& ownerKey, const std::string& endpointName) override;
  void SendMidiToDestination(std::string_view name, std::uint32_t id) override;
  std::vector<PublishedEndpoint> PublishedEndpoints() override;
  bool MayOwn(const std::string& ownerKey) const override {
    return mayOwn.empty() || mayOwn == ownerKey;
  }

  // What was asked since the last time: "owns(KEY, NAME)", "destination(NAME, ID)".
  std::vector<std::string> TakeQuestions();

  bool owns = false;
  std::string mayOwn;  // the one key that it may own something of, or empty: of any
  std::vector<PublishedEndpoint> published;
  std::function<void()> whenAsked;    // inside OwnsEndpoint
  std::function<void()> whenHandled;  // inside SendMidiToDestination
  std::function<void()> whenListed;   // inside PublishedEndpoints

 private:
  std::mutex mutex;
  std::vector<std::string> questions;
};

// A connected device that keeps the packets it is sent. It has a ScriptedOwner, or the manager that
// the test gives it. The hook and the answer are set before other threads use it.
class RecordingClient final : public DeviceClient {
 public:
  RecordingClient() : manager(scripted) {}
  explicit RecordingClient(EndpointOwner& owner) : manager(owner) {}

  int SendFramed(const void* data, std::uint32_t size) override;
  EndpointOwner& Owner() override { return manager; }

  // The packets since the last time, oldest first.
  std::vector<std::string> TakePackets();

  ScriptedOwner scripted;
  std::function<void()> whenSent;  // inside SendFramed, once the packet is noted
  bool dropsFrames = false;        // SendFramed then answers -1

 private:
  EndpointOwner& manager;
  std::mutex mutex;
  std::vector<std::string> packets;
};

}  // namespace corvalint::test

#include "support/recording_client.h"

#include <utility>

namespace corvalint::test {

bool ScriptedOwner::OwnsEndpoint(const std::string& ownerKey, const std::string& endpointName) {
  {
    std::lock_guard hold(mutex);
    questions.push_back("owns(" + ownerKey + ", " + endpointName + ")");
  }
  if (const auto action = whenAsked) action();  // it may replace itself
  return owns;
}

void ScriptedOwner::SendMidiToDestination(std::string_view name, std::uint32_t id) {
  {
    std::lock_guard hold(mutex);
    questions.push_back("destination(" + std::string(name) + ", " + std::to_string(id) + ")");
  }
  if (const auto action = whenHandled) action();  // it may replace itself
}

std::vector<PublishedEndpoint> ScriptedOwner::PublishedEndpoints() {
  if (const auto action = whenListed) action();  // it may replace itself
  return published;
}

std::vector<std::string> ScriptedOwner::TakeQuestions() {
  std::lock_guard hold(mutex);
  return std::exchange(questions, {});
}

int RecordingClient::SendFramed(const void* data, std::uint32_t size) {
  {
    std::lock_guard hold(mutex);
    packets.emplace_back(static_cast<const char*>(data), size);
  }
  if (const auto action = whenSent) action();  // it may replace itself
  return dropsFrames ? -1 : static_cast<int>(size) + 12;
}

std::vector<std::string> RecordingClient::TakePackets() {
  std::lock_guard hold(mutex);
  return std::exchange(packets, {});
}

}  // namespace corvalint::test

#include "support/recording_client.h"

#include <utility>

namespace corvalint::test {

namespace {

template <class Integer>
std::string BigEndian(Integer number) {
  std::string bytes;
  for (int shift = static_cast<int>(sizeof number) * 8 - 8; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(static_cast<std::uint8_t>(number >> shift));
  }
  return bytes;
}

std::string Padded(std::string bytes) {
  while (bytes.size() % 4 != 0) bytes += '\0';
  return bytes;
}

}  // namespace

std::string OscString(const std::string& text) { return Padded(text + '\0'); }
std::string OscInt32(std::int32_t number) { return BigEndian(number); }
std::string OscInt64(std::int64_t number) { return BigEndian(number); }
std::string OscBlob(const std::string& bytes) {
  return BigEndian(static_cast<std::int32_t>(bytes.size())) + Padded(bytes);
}

std::string AnnouncementBytes(const std::string& address, const std::string& name,
                              std::int32_t id) {
  return OscString(address) + OscString(",si") + OscString(name) + OscInt32(id);
}

std::string MidiBytes(const std::string& name, std::int32_t id, std::int64_t timestamp,
                      const std::string& bytes) {
  return OscString("/midi") + OscString(",sihb") + OscString(name) + OscInt32(id) +
         OscInt64(timestamp) + OscBlob(bytes);
}

bool ScriptedOwner::OwnsEndpoint(std::string ownerKey, std::string endpointName) {
  {
    std::lock_guard hold(mutex);
    questions.push_back("owns(" + ownerKey + ", " + endpointName + ")");
  }
  if (whenAsked) whenAsked();
  return owns;
}

void ScriptedOwner::SendMidiToDestination(std::string name, std::uint32_t id) {
  {
    std::lock_guard hold(mutex);
    questions.push_back("destination(" + name + ", " + std::to_string(id) + ")");
  }
  if (whenHandled) whenHandled();
}

std::vector<PublishedEndpoint> ScriptedOwner::PublishedEndpoints() { return published; }

std::vector<std::string> ScriptedOwner::TakeQuestions() {
  std::lock_guard hold(mutex);
  return std::exchange(questions, {});
}

int RecordingClient::SendFramed(const void* data, std::uint32_t size) {
  {
    std::lock_guard hold(mutex);
    packets.emplace_back(static_cast<const char*>(data), size);
  }
  if (whenSent) whenSent();
  return dropsFrames ? -1 : static_cast<int>(size) + 12;
}

std::vector<std::string> RecordingClient::TakePackets() {
  std::lock_guard hold(mutex);
  return std::exchange(packets, {});
}

}  // namespace corvalint::test

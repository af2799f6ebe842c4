#include "timing/scene_player.h"

#include <cstdio>
#include <utility>

#include "platform/clock.h"
#include "protocol/base_client_thread.h"
#include "service/host_time.h"
#include "support/osc_bytes.h"
#include "support/test_server.h"

namespace corvalint::timing {

namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int32_t kTimingConstant = 210;

std::int64_t counterShows = 0;

// The system's clock with a counter that stands where the scene says.
const ClockApi& StandingClock() {
  static const ClockApi table = [] {
    ClockApi standing = ClockApi::System();
    standing.counter = [] { return counterShows; };
    return standing;
  }();
  return table;
}

// A device's client without a stream: what would be sent is kept.
class SceneClient final : public BaseClientThread {
 public:
  using BaseClientThread::BaseClientThread;
  ~SceneClient() override { localPorts.reset(); }

  int SendFramed(const void* data, std::uint32_t size) override {
    sent.append(static_cast<const char*>(data), size);
    return static_cast<int>(size);
  }
  int SendFrame(const Frame& packet) override {
    return SendFramed(packet.Payload(), packet.payloadSize);
  }
  void Take(const std::string& packet) {
    ProcessPacket(packet.data(), packet.size(), RemoteEndpoint{});
  }
  std::string TakeSent() { return std::exchange(sent, {}); }

 private:
  std::string sent;
};

std::string Hex(const std::string& bytes) {
  std::string text;
  char pair[3];
  for (const char byte : bytes) {
    std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned>(byte) & 0xFF);
    text += pair;
  }
  return text;
}

std::string Answer(const ClockStep& step) {
  if (step.kind == ClockStep::kInit) {
    return test::OscMessage("/init_timing", "hi",
                            test::OscInt64(step.offset) + test::OscInt32(kTimingConstant));
  }
  return test::OscMessage(
      "/update_timing", "dh",
      test::OscInt64(static_cast<std::int64_t>(step.drift)) + test::OscInt64(step.offset));
}

}  // namespace

std::vector<std::string> PlayScene(const ClockScene& scene) {
  if (PerformanceFrequency != kTicksPerSecond) return {"the counter has another frequency"};
  std::vector<std::string> differences;
  const auto compare = [&](std::size_t step, const std::string& got, const std::string& expected) {
    if (got == expected) return;
    differences.push_back(std::string(scene.name) + " step " + std::to_string(step) + ": " +
                          Hex(got) + " instead of " + Hex(expected));
  };
  test::TestServer server;
  DesktopNames names;
  ExternalMidiManager manager(server, server.Lock(), names);
  ExternalMidiManager otherManager(server, server.Lock(), names);
  SceneClient device(server, manager);
  SceneClient other(server, otherManager);
  server.clients.Append(device);
  server.clients.Append(other);
  Install<ClockApi>(&StandingClock());
  for (std::size_t i = 0; i < scene.steps.size(); ++i) {
    const ClockStep& step = scene.steps[i];
    counterShows = step.ticks;
    const char* const address = step.kind == ClockStep::kInit ? "/init_timing" : "/update_timing";
    device.Take(test::OscMessage(address, "h", test::OscInt64(step.deviceTime)));
    compare(i, device.TakeSent(), Answer(step));
    device.Take(test::MidiMessage("Piano", 5, step.deviceTime, "\xF8"));
    compare(i, other.TakeSent(), test::MidiMessage("Piano", 5, step.relayed, "\xF8"));
  }
  Install<ClockApi>(nullptr);
  return differences;
}

}  // namespace corvalint::timing

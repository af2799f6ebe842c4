// Input: the bytes of a device's connections and how they are cut (support/stream_input.h). The
// whole conversation runs, dispatch included. A second reader of frames says which packets must be
// dispatched and what the console must say between them; everything that goes back must be whole
// frames with messages that devices know.

#include <osc/OscException.h>

#include <memory>
#include <string>

#include "fuzz/support/bench_server.h"
#include "fuzz/support/check.h"
#include "fuzz/support/desk_midi.h"
#include "fuzz/support/inline_threads.h"
#include "fuzz/support/osc_model.h"
#include "fuzz/support/packets_to_devices.h"
#include "fuzz/support/port_driver.h"
#include "fuzz/support/quiet.h"
#include "fuzz/support/stream_input.h"
#include "fuzz/support/wire.h"
#include "protocol/base_client_thread.h"

namespace corvalint::fuzz {

namespace {

constexpr std::size_t kLongestPayload = 131072;

// Follows the frames of all connections, from the frame's layout alone.
class FrameModel {
 public:
  explicit FrameModel(const StreamInput& streamInput) : input(streamInput) {
    rest = input.connections[0];
  }

  // The next packet to be dispatched; empty at the end. What the console must say before it goes to
  // `console`.
  std::string_view NextPacket(std::string& console) {
    for (;;) {
      if (rest.size() < 4) {
        if (!NextConnection(Disconnected(), console)) return {};
        continue;
      }
      const std::uint64_t length = OscNumber(rest.substr(0, 4));
      if (length == 0 || length > kLongestPayload) {
        const auto shown = static_cast<std::int32_t>(length);
        const std::string line = "Invalid packet length " + std::to_string(shown) + "\n";
        if (!NextConnection(line, console)) return {};
        continue;
      }
      if (rest.size() < 12 + length) {
        rest = {};
        continue;
      }
      const bool dispatched = OscNumber(rest.substr(4, 4)) == 2;
      const std::string_view payload = rest.substr(12, static_cast<std::size_t>(length));
      rest.remove_prefix(12 + payload.size());
      if (dispatched) return payload;
    }
  }

 private:
  std::string Disconnected() const {
    return std::string("Server disconnected: ") + (input.flags & 1 ? "-1" : "0") + "\n";
  }

  bool NextConnection(const std::string& line, std::string& console) {
    if (ended) return false;
    console += line;
    if (++connection < input.connections.size()) {
      rest = input.connections[connection];
      return true;
    }
    console += "Finished\n";
    ended = true;
    return false;
  }

  const StreamInput& input;
  std::size_t connection = 0;
  std::string_view rest;
  bool ended = false;
};

// The device under test. Its console lines outside the dispatch of a packet are kept apart, since
// what a message prints is not the frames' business.
class Device final : public BaseClientThread {
 public:
  Device(UsbServer& usbServer, ExternalMidiManager& manager, Console& theConsole)
      : BaseClientThread(usbServer, manager), console(theConsole) {}
  ~Device() override = default;

  void Converse(const StreamInput& newInput, FrameModel* newModel) {
    input = &newInput;
    model = newModel;
    connected = 0;
    printed.clear();
    expected.clear();
    running = true;
    Run();
    localPorts->RemoveAll();
    printed += console.out;
    if (model == nullptr) return;
    Check(model->NextPacket(expected).empty(), "a packet was not dispatched");
    CheckSame(printed, expected, "console");
  }
  void StopNow() { running = false; }

 protected:
  bool Connect() override {
    if (stream.IsOpen()) return true;
    if (connected == input->connections.size()) {
      running = false;
      return false;
    }
    OpenStream(TheWire().OpenStream(input->connections[connected++]));
    return true;
  }
  void PerformDisconnect() override {
    stream.Close();
    localPorts->RemoveAll();
  }
  void ProcessPacket(const char* data, std::size_t size, const RemoteEndpoint& endpoint) override {
    printed += console.out;
    if (model != nullptr) {
      CheckSame({data, size}, model->NextPacket(expected), "packet");
      Check(size > 0, "an empty packet");
    }
    try {
      BaseClientThread::ProcessPacket(data, size, endpoint);
      console.out.clear();
    } catch (const std::exception& failure) {
      console.out.clear();
      expected += std::string("Error parsing message: ") + failure.what() + "\n";
      throw;
    }
  }

 private:
  Console& console;
  const StreamInput* input = nullptr;
  FrameModel* model = nullptr;
  std::size_t connected = 0;
  std::string printed, expected;
};

// Another device, which only looks at what it is sent.
class Neighbour final : public DeviceClient {
 public:
  explicit Neighbour(ExternalMidiManager& ownManager) : manager(ownManager) {}
  int SendFramed(const void* data, std::uint32_t size) override {
    CheckPacketToDevice({static_cast<const char*>(data), size});
    return static_cast<int>(size);
  }
  EndpointOwner& Owner() override { return manager; }

 private:
  ExternalMidiManager& manager;
};

class Bench {
 public:
  Bench() {
    TheDeskMidi().Reset(0, 0);
    ThePortDriver();
    manager.SetDeviceKey("pad");
    neighboursManager.SetDeviceKey("phone");
    device = std::make_unique<Device>(server, manager, console);
    server.clients.Append(*device);
    server.clients.Append(neighbour);
    wakers = wire.wakers;
  }

  void Run(const StreamInput& input) {
    console.out.clear();
    console.error.clear();
    sleptMilliseconds = 0;
    wire.Reset(wakers);
    wire.pattern = input.pattern;
    wire.endsWithError = (input.flags & 1) != 0;
    wire.sendsInPieces = (input.flags & 2) != 0;
    wire.whenWaiting = RunPorts;
    threads.refuses = (input.flags & 4) != 0;
    ThePortDriver().refuses = (input.flags & 8) != 0;

    const bool stops = (input.flags & 0xF0) == 0xC0;
    if (stops) {
      RunAndStop(input);
    } else {
      FrameModel model(input);
      device->Converse(input, &model);
    }
    for (const std::string& stream : wire.sent) CheckFramesToDevice(stream, wire.sendWasShort);
    threads.RunAll();
    Withdraw(manager);
    server.CheckLocks();
    ThePortDriver().Reset();
    threads.Reset();
  }

 private:
  // A device that is stopped at some wait; its object has seen nothing before, as a stop lets what
  // it has received so far count.
  void RunAndStop(const StreamInput& input) {
    Device fresh(server, manager, console);
    server.clients.Append(fresh);
    stopping = &fresh;
    waitsLeft = static_cast<int>(input.pattern.size());
    fresh.Converse(input, nullptr);
    stopping = nullptr;
    server.clients.Remove(fresh);
    fresh.StopNow();
    threads.RunAll();
  }

  // Between two receives the loopback ports run that were opened meanwhile.
  static void RunPorts() {
    Bench& bench = Get();
    if (bench.stopping != nullptr && bench.waitsLeft-- == 0) bench.stopping->StopNow();
    if (bench.threads.waiting.empty() || bench.wire.step % 3 == 2) return;
    const std::string kept = bench.console.out;
    bench.wire.datagrams = {{std::string(bench.wire.step, 'd')}, {}, {"", true}};
    if (bench.wire.step % 7 == 6) bench.wire.datagrams.push_back({std::string(131084, 'D')});
    bench.threads.Run(0);
    bench.wire.datagrams.clear();
    bench.console.out = kept;
  }

 public:
  static Bench& Get() {
    static auto* const bench = new Bench;
    return *bench;
  }

 private:
  Console& console = Quieten();
  InlineThreads& threads = TheInlineThreads();
  Wire& wire = TheWire();
  BenchServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  ExternalMidiManager neighboursManager{server, server.Lock(), names};
  Neighbour neighbour{neighboursManager};
  std::unique_ptr<Device> device;
  Device* stopping = nullptr;
  int waitsLeft = 0;
  int wakers = 0;
};

}  // namespace

}  // namespace corvalint::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvalint::fuzz;
  Bench::Get().Run(StreamInput(Input(data, size)));
  return 0;
}

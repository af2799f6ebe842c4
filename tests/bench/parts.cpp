// What the parts of the ways cost by themselves. A benchmark whose name ends in "/limit" is the
// least that the one before it could cost.
#include <benchmark/benchmark.h>
#include <osc/OscReceivedElements.h>

#include <deque>
#include <string>

#include "bench/desk.h"
#include "bench/frames.h"
#include "clients/client_list.h"
#include "platform/critical_section.h"
#include "ports/desktop_names.h"
#include "ports/external_midi_manager.h"
#include "protocol/osc_arguments.h"
#include "protocol/packet_check.h"
#include "service/host_time.h"
#include "unit/support/console_capture.h"
#include "unit/support/recording_client.h"
#include "unit/support/test_server.h"

namespace corvalint::bench {
namespace {

constexpr std::size_t kHeader = 12;
constexpr const char* kName = "Bench sequencer, out";

void CheckPacket(benchmark::State& state) {
  const auto frame = MidiFrame({kName, 7}, MidiOf(3));
  for (auto _ : state) CheckMessage(frame.data() + kHeader, frame.size() - kHeader);
}
BENCHMARK(CheckPacket)->Name("part: packet check");

osc::ReceivedMessage MessageIn(const std::vector<char>& frame) {
  return osc::ReceivedMessage(osc::ReceivedPacket(
      frame.data() + kHeader, static_cast<osc::osc_bundle_element_size_t>(frame.size() - kHeader)));
}

void Decode(benchmark::State& state) {
  const auto frame = MidiFrame({kName, 7}, MidiOf(3));
  for (auto _ : state) {
    const osc::ReceivedMessage message = MessageIn(frame);
    OscArguments arguments(message);
    benchmark::DoNotOptimize(arguments.String());
    benchmark::DoNotOptimize(arguments.Int32());
    benchmark::DoNotOptimize(arguments.Int64());
    benchmark::DoNotOptimize(arguments.Blob());
  }
}
BENCHMARK(Decode)->Name("part: OSC decode");

void DecodeBare(benchmark::State& state) {
  const auto frame = MidiFrame({kName, 7}, MidiOf(3));
  for (auto _ : state) {
    const osc::ReceivedMessage message = MessageIn(frame);
    auto argument = message.ArgumentsBegin();
    benchmark::DoNotOptimize((argument++)->AsString());
    benchmark::DoNotOptimize((argument++)->AsInt32());
    benchmark::DoNotOptimize((argument++)->AsInt64());
    const void* blob = nullptr;
    osc::osc_bundle_element_size_t size = 0;
    argument->AsBlob(blob, size);
    benchmark::DoNotOptimize(blob);
  }
}
BENCHMARK(DecodeBare)->Name("part: OSC decode/limit");

// A message to no device at all: what is left is its encoding, and the lock around the senders.
void Encode(benchmark::State& state) {
  test::TestServer server;
  const auto midi = MidiOf(3);
  const std::string name = kName;
  for (auto _ : state) server.SendMidiToAll(midi.data(), 3, name, 7, 1'000'000'000);
}
BENCHMARK(Encode)->Name("part: OSC encode");

void EncodeBare(benchmark::State& state) {
  const auto midi = MidiOf(3);
  char frame[1024];
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        EncodeMidiFrame(frame, sizeof frame, kName, 7, 1'000'000'000, midi.data(), midi.size()));
  }
}
BENCHMARK(EncodeBare)->Name("part: OSC encode/limit");

void EnterAndLeave(benchmark::State& state) {
  CriticalSection lock;
  for (auto _ : state) {
    CriticalSectionScope hold(lock);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(EnterAndLeave)->Name("part: lock enter and leave");

void HostTime(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(HostTimeNanoseconds());
}
BENCHMARK(HostTime)->Name("part: host time");

// From the id of a device's source to the call into the driver.
void FindPort(benchmark::State& state) {
  InstallDesk();
  const test::ConsoleCapture console;
  test::TestServer server;
  DesktopNames names;
  ExternalMidiManager manager(server, server.Lock(), names);
  const auto ports = static_cast<std::uint32_t>(state.range(0));
  for (std::uint32_t id = 1; id <= ports; ++id) {
    manager.AddRemoteSource("Port of device no. " + std::to_string(id), id);
  }
  const auto midi = MidiOf(3);
  for (auto _ : state) {
    manager.SourcePortWithId(ports / 2 + 1).Send(midi.data(), 3);
  }
  for (std::uint32_t id = 1; id <= ports; ++id) {
    manager.RemoveRemoteSource("Port of device no. " + std::to_string(id), id);
  }
}
BENCHMARK(FindPort)->Name("part: id look-up, ports")->Arg(1)->Arg(16);

void WalkClients(benchmark::State& state) {
  ClientList list;
  std::deque<test::RecordingClient> clients;
  for (auto i = state.range(0); i > 0; --i) list.Append(clients.emplace_back());
  for (auto _ : state) {
    for (DeviceClient* client : ClientWalk(list)) benchmark::DoNotOptimize(client);
  }
}
BENCHMARK(WalkClients)->Name("part: walk over clients")->Arg(1)->Arg(16)->Arg(64);

}  // namespace
}  // namespace corvalint::bench

BENCHMARK_MAIN();

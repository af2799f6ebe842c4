#include "demo/osc_ways.h"

#include <chrono>
#include <map>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "demo/osc_messages.h"
#include "demo/waiting.h"
#include "device/raw_time.h"
#include "harness/process.h"

namespace corvalint::demo {

namespace {

using Short = std::chrono::milliseconds;

constexpr std::string_view kMark = "/settled";

device::Bytes Mark(std::int32_t number) {
  return device::EncodeMessage({std::string(kMark), {}, {number}});
}

bool IsMark(const harness::Bytes& packet) {
  return std::string(packet.begin(), packet.end()).starts_with(kMark);
}

// The datagram in a message that the iPad has received from its port; of anything else no bytes.
harness::Bytes DatagramIn(const device::OscMessage& message, const std::string& key) {
  const bool fromPort = message.typeTags == "sb" && message.Argument<std::string>(0) == key;
  return fromPort ? message.Argument<device::Bytes>(1) : harness::Bytes();
}

}  // namespace

void OscWay::Clear() {
  Settle();
  ForgetReceived();
  sent.clear();
  window = {};
}

void OscWay::Send(const harness::Bytes& message) {
  constexpr std::chrono::microseconds kBetweenLooks{50};
  while (!window.HasRoom(sent.size(), ReceivedCount(0), std::chrono::steady_clock::now())) {
    CheckInterrupted();
    std::this_thread::sleep_for(kBetweenLooks);
  }
  const device::OscMessage osc = AsOsc(static_cast<std::int32_t>(sent.size() + 1), message);
  const harness::Bytes packet = device::EncodeMessage(osc);
  sent.push_back({device::RawNow(), packet});
  Transmit(osc, packet);
}

void OscWay::SendAll(const device::Song& song, std::size_t rounds,
                     const std::function<void()>& tick) {
  constexpr std::size_t kBetweenTicks = 64;
  sent.reserve(rounds * song.events.size());
  for (std::size_t round = 0; round < rounds; ++round) {
    for (const device::SongEvent& event : song.events) {
      Send(event.bytes);
      if (sent.size() % kBetweenTicks == 0) tick();
    }
  }
}

std::string OscFromDeviceWay::Title() const {
  return "iPad to oscdump at port " + std::to_string(dump.Port()) +
         ", measured until oscdump's line is read";
}

std::vector<std::string> OscFromDeviceWay::Receivers() const { return {"iPad > oscdump"}; }

void OscFromDeviceWay::Transmit(const device::OscMessage& /*message*/,
                                const harness::Bytes& packet) {
  port.Send(packet);
}

void OscFromDeviceWay::Settle() {
  scenario.Flush(scenario.IPad());
  dump.Flush();
}

std::size_t OscFromDeviceWay::ReceivedCount(std::size_t /*receiver*/) { return dump.Count(); }

std::vector<harness::Recorded> OscFromDeviceWay::Received(std::size_t /*receiver*/) {
  // A line that should have been printed stands for the packet that was sent; any other line for
  // its own text, which no packet is equal to.
  std::map<std::string, harness::Bytes> packets;
  for (const harness::Recorded& message : Sent()) {
    packets[DumpLine(device::DecodePacket(message.bytes).at(0))] = message.bytes;
  }
  std::vector<harness::Recorded> received;
  for (const OscDump::Line& line : dump.Lines()) {
    const auto found = packets.find(line.text);
    received.push_back({line.ns, found == packets.end()
                                     ? harness::Bytes(line.text.begin(), line.text.end())
                                     : found->second});
  }
  return received;
}

std::string OscToDeviceWay::Title() const {
  return "a UDP socket of the demo to the iPad, measured from the sending to the iPad";
}

std::vector<std::string> OscToDeviceWay::Receivers() const { return {"UDP socket > iPad"}; }

void OscToDeviceWay::Transmit(const device::OscMessage& /*message*/, const harness::Bytes& packet) {
  socket.Send(port.Port(), packet);
}

void OscToDeviceWay::Settle() {
  Await("the iPad to receive what was sent to its port", [this](Short time) {
    const device::Bytes mark = Mark(++marks);
    socket.Send(port.Port(), mark);
    return scenario.IPad().app.Record().WaitFor(
        [&](const device::DeviceRecord::Messages& messages) {
          return !messages.empty() && messages.back().message.address == "/osc" &&
                 DatagramIn(messages.back().message, port.ReceivingKey()) == mark;
        },
        time);
  });
}

void OscToDeviceWay::ForgetReceived() {
  device::DeviceRecord& record = scenario.IPad().app.Record();
  record.Clear();
  receivedBefore = record.Counters().messagesReceived;
}

std::size_t OscToDeviceWay::ReceivedCount(std::size_t /*receiver*/) {
  const std::uint64_t all = scenario.IPad().app.Record().Counters().messagesReceived;
  return static_cast<std::size_t>(all - receivedBefore);
}

std::vector<harness::Recorded> OscToDeviceWay::Received(std::size_t /*receiver*/) {
  std::vector<harness::Recorded> received;
  for (const auto& message : scenario.IPad().app.Record().MessagesTo("/osc")) {
    harness::Bytes packet = DatagramIn(message.message, port.ReceivingKey());
    if (!IsMark(packet)) received.push_back({message.arrival, std::move(packet)});
  }
  return received;
}

std::string OscSendWay::Title() const {
  return "oscsend to the iPad, a process for each message; when it sends is not known, so there "
         "are no times";
}

std::vector<std::string> OscSendWay::Receivers() const { return {"oscsend > iPad"}; }

void OscSendWay::Transmit(const device::OscMessage& message, const harness::Bytes& /*packet*/) {
  std::vector<std::string> command = {"oscsend", "127.0.0.1", std::to_string(port.Port())};
  const std::vector<std::string> arguments = OscSendArguments(message);
  command.insert(command.end(), arguments.begin(), arguments.end());
  harness::Process process({.command = command, .environment = {}, .directory = {}});
  const std::optional<int> code = process.WaitForExit();
  if (code == 0) return;
  CheckInterrupted();
  throw std::runtime_error("oscsend of the package liblo-tools " +
                           (code ? "ended with code " + std::to_string(*code) : "did not end") +
                           ": " + process.Errors());
}

}  // namespace corvalint::demo

#include "bench/frames.h"

#include <osc/OscOutboundPacketStream.h>

#include "clients/big_endian.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kHeader = 12;

std::size_t WriteHeader(char* frame, std::size_t payload) {
  WriteBigEndian32(frame, static_cast<std::uint32_t>(payload));
  WriteBigEndian32(frame + 4, 2);
  WriteBigEndian32(frame + 8, 2);
  return kHeader + payload;
}

template <class... Arguments>
std::vector<char> SmallFrame(const char* address, const Arguments&... arguments) {
  std::vector<char> frame(kHeader + 1024);
  osc::OutboundPacketStream stream(frame.data() + kHeader, frame.size() - kHeader);
  stream << osc::BeginMessage(address);
  (stream << ... << arguments);
  stream << osc::EndMessage;
  frame.resize(WriteHeader(frame.data(), stream.Size()));
  return frame;
}

}  // namespace

std::size_t EncodeMidiFrame(char* frame, std::size_t room, const char* name, std::int32_t id,
                            std::int64_t time, const std::uint8_t* midi, std::size_t count) {
  osc::OutboundPacketStream stream(frame + kHeader, room - kHeader);
  stream << osc::BeginMessage("/midi") << name << static_cast<osc::int32>(id)
         << static_cast<osc::int64>(time)
         << osc::Blob(midi, static_cast<osc::osc_bundle_element_size_t>(count)) << osc::EndMessage;
  return WriteHeader(frame, stream.Size());
}

std::vector<char> MidiFrame(const MidiAddress& address, const std::vector<std::uint8_t>& midi) {
  std::vector<char> frame(kLargestFrame);
  frame.resize(EncodeMidiFrame(frame.data(), frame.size(), address.name.c_str(), address.id,
                               1'000'000'000, midi.data(), midi.size()));
  return frame;
}

std::vector<char> EndpointFrame(const char* address, const std::string& name, std::int32_t id) {
  return SmallFrame(address, name.c_str(), static_cast<osc::int32>(id));
}

std::vector<char> CreateOscPortFrame(std::uint16_t destination, std::uint16_t bind,
                                     const std::string& host) {
  return SmallFrame("/osc/create_port", osc::int32{destination}, osc::int32{bind}, host.c_str());
}

std::vector<char> OscReportFrame(const std::string& bindKey, std::int32_t status) {
  return SmallFrame("/osc/port_creation_report", bindKey.c_str(), static_cast<osc::int32>(status));
}

std::vector<char> OscDataFrame(const std::string& key, const void* data, std::size_t count) {
  return SmallFrame("/osc", key.c_str(),
                    osc::Blob(data, static_cast<osc::osc_bundle_element_size_t>(count)));
}

std::vector<char> TimingFrame() { return SmallFrame("/init_timing", osc::int64{1}); }

std::vector<std::uint8_t> MidiOf(std::size_t count) {
  if (count == 3) return {0x90, 0x3C, 0x64};
  std::vector<std::uint8_t> midi(count, 0x11);
  midi.front() = 0xF0;
  midi.back() = 0xF7;
  return midi;
}

std::vector<char> Repeated(const std::vector<char>& bytes, std::size_t times) {
  std::vector<char> all;
  all.reserve(bytes.size() * times);
  for (std::size_t i = 0; i < times; ++i) all.insert(all.end(), bytes.begin(), bytes.end());
  return all;
}

}  // namespace corvalint::bench

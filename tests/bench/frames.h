#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvalint::bench {

// What a "/midi" message says beside its bytes.
struct MidiAddress {
  std::string name;
  std::int32_t id;
};

// Room for the largest frame.
inline constexpr std::size_t kLargestFrame = 12 + 131072;

// Encodes a "/midi" message with the OSC library and puts a frame's header before it; the frame's
// size. This is the least that any sender does.
std::size_t EncodeMidiFrame(char* frame, std::size_t room, const char* name, std::int32_t id,
                            std::int64_t time, const std::uint8_t* midi, std::size_t count);

std::vector<char> MidiFrame(const MidiAddress& address, const std::vector<std::uint8_t>& midi);
// "/add_remote_source" or a message like it.
std::vector<char> EndpointFrame(const char* address, const std::string& name, std::int32_t id);

// The messages of a loopback OSC port: the device's request for one, the port's report, and a
// datagram.
std::vector<char> CreateOscPortFrame(std::uint16_t destination, std::uint16_t bind,
                                     const std::string& host);
std::vector<char> OscReportFrame(const std::string& bindKey, std::int32_t status);
std::vector<char> OscDataFrame(const std::string& key, const void* data, std::size_t count);

// "/init_timing", which is answered.
std::vector<char> TimingFrame();

// `count` bytes of MIDI: a note on for 3, a system-exclusive message for more.
std::vector<std::uint8_t> MidiOf(std::size_t count);
std::vector<char> Repeated(const std::vector<char>& bytes, std::size_t times);

}  // namespace corvalint::bench

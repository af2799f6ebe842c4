#pragma once

#include <string_view>
#include <vector>

#include "device/frame.h"

// Frames and packets written out by hand, byte for byte, for comparison with what was sent. All are
// pure functions.
namespace corvalint::windows_test {

// A device time whose eight bytes all differ.
inline constexpr std::int64_t kLateDeviceTime = 0x0123456789ABCDEF;

device::Bytes Joined(const std::vector<device::Bytes>& parts);
// The characters alone.
device::Bytes Text(std::string_view text);
// The low `width` bytes of the value.
device::Bytes BigEndian(std::uint64_t value, std::size_t width);
device::Bytes BigEndian(std::int64_t value);
device::Bytes BigEndian(double value);
// Zeroes up to a multiple of four bytes.
device::Bytes Filled(device::Bytes bytes);
// A string as OSC has it: with a zero at its end, and filled.
device::Bytes OscText(std::string_view text);
// The frame around the parts of a packet.
device::Bytes Framed(const std::vector<device::Bytes>& parts);

// The frame of a "/midi" and of an announcement.
device::Bytes MidiFrame(std::string_view name, std::int32_t id, std::int64_t time,
                        const device::Bytes& midi);
device::Bytes EndpointFrame(std::string_view address, std::string_view name, std::int32_t id);

// The sum modulo 2^64.
std::int64_t Wrapped(std::int64_t left, std::int64_t right);

}  // namespace corvalint::windows_test

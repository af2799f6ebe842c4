#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "device/osc_codec.h"
#include "device/song.h"
#include "harness/desk_types.h"

namespace corvalint::demo {

// A MIDI message as a synthesizer that speaks OSC would be told of it: "/play" with a running
// number, which makes each message of a stream another one, an instrument's name, how loud (0 to 1,
// from the last byte), and each MIDI byte as a number. Its arguments are int32, string and float.
device::OscMessage AsOsc(std::int32_t number, const harness::Bytes& midi);

// What oscdump prints for such a message behind the time: address, type tags, arguments.
std::string DumpLine(const device::OscMessage& message);

// The line of such a message without the time that stands first in it, and without line feed.
std::string WithoutTime(const std::string& line);

// How oscsend is told to send such a message: address, type tags, arguments.
std::vector<std::string> OscSendArguments(const device::OscMessage& message);

// So many events of the song, from its start and again when it is over, `interval` microseconds
// apart; nothing of a song without events.
device::Song Paced(const device::Song& song, std::size_t count, std::int64_t interval);

}  // namespace corvalint::demo

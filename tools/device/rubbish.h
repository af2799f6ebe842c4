#pragma once

#include <cstdint>

#include "device/osc_codec.h"

namespace corvalint::device {

enum class RubbishKind {
  kPackets,  // well-formed frames whose packets are damaged: the stream itself stays readable
  kStream,   // any bytes at all: the frame boundary is lost sooner or later
};

// `frames` frames (kPackets) or runs of bytes (kStream) in one piece. The same seed gives the same
// bytes on every machine. Any thread.
Bytes MakeRubbish(std::uint64_t seed, std::uint64_t frames, RubbishKind kind);

}  // namespace corvalint::device

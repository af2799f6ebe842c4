#pragma once

#include <string>

#include "device/device_record.h"

namespace corvalint::device {

// The message as one line of JSON without its line end: {"stream":1,"arrival":N,"address":"/midi",
// "tags":"sihb","arguments":["Keys",7,123,"903c64"]}. Blobs are hexadecimal text. Bytes of a string
// that are not UTF-8 are written as \u00XX. Any thread.
std::string ToJsonLine(const ReceivedMessage& received);

}  // namespace corvalint::device

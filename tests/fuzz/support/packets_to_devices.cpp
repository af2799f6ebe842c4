#include "fuzz/support/packets_to_devices.h"

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz/support/check.h"
#include "fuzz/support/osc_model.h"

namespace corvalint::fuzz {

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::size_t kLongestPayload = 131072;

struct Known {
  std::string_view address;
  std::string_view tags;
};
constexpr std::array kKnown = {Known{"/midi", "sihb"},
                               Known{"/init_timing", "hi"},
                               Known{"/update_timing", "dh"},
                               Known{"/add_remote_source", "si"},
                               Known{"/add_remote_destination", "si"},
                               Known{"/remove_remote_source", "si"},
                               Known{"/remove_remote_destination", "si"},
                               Known{"/osc", "sb"},
                               Known{"/osc/port_creation_report", "si"}};

}  // namespace

void CheckPacketToDevice(std::string_view packet) {
  static std::vector<OscArgumentPlace> arguments;
  Check(packet.size() <= kLongestPayload, "a packet that no receiver accepts");
  Check(ReadOscMessage(packet, arguments), "a packet for a device that is no message");
  const std::string_view address = packet.substr(0, packet.find('\0'));
  const auto known = std::find_if(kKnown.begin(), kKnown.end(),
                                  [&](const Known& entry) { return entry.address == address; });
  if (known == kKnown.end()) Fail("a device was sent " + std::string(address));
  Check(arguments.size() == known->tags.size(), "number of arguments");
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    Check(arguments[i].tag == known->tags[i], "type of an argument");
  }
}

void CheckFramesToDevice(std::string_view bytes, bool mayBeCut) {
  while (!bytes.empty()) {
    const bool hasHeader = bytes.size() >= kHeader;
    const auto length = static_cast<std::size_t>(hasHeader ? OscNumber(bytes.substr(0, 4)) : 0);
    if (hasHeader) {
      Check(length >= 1 && length <= kLongestPayload, "length of a frame");
      Check(OscNumber(bytes.substr(4, 4)) == 2 && OscNumber(bytes.substr(8, 4)) == 2,
            "kind and tag of a frame");
    }
    if (!hasHeader || bytes.size() - kHeader < length) {
      return Check(mayBeCut, "half a frame");
    }
    CheckPacketToDevice(bytes.substr(kHeader, length));
    bytes.remove_prefix(kHeader + length);
  }
}

}  // namespace corvalint::fuzz

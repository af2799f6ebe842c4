#include "fuzz/support/device_values.h"

#include <array>
#include <string_view>

namespace corvalint::fuzz {

namespace {

const std::array<std::string, 16> kNames = {"Piano",
                                            "Organ",
                                            "Synth",
                                            "",
                                            "piano",
                                            std::string(31, 'a'),
                                            std::string(32, 'a'),
                                            std::string(29, 'a') + "..",
                                            std::string(40, 'a'),
                                            "\xC4\xF6\x80",
                                            std::string(4059, 'n'),
                                            std::string(4060, 'n'),
                                            std::string(4063, 'n'),
                                            std::string(4064, 'n'),
                                            std::string(4067, 'n'),
                                            std::string(4068, 'n')};
constexpr std::array<std::int32_t, 8> kIds = {1, 2, 3, 7, 0, -1, 2147483647, -2147483647 - 1};
const std::array<std::string, 8> kHosts = {"127.0.0.1",
                                           "127.0.0.1900",
                                           "10.1.2.3",
                                           "",
                                           "nonsense",
                                           "127.0.0.1-",
                                           std::string(4055, '1'),
                                           std::string(4056, '1')};
constexpr std::array<std::int32_t, 8> kUdpPorts = {9000, 0, 9001, 9000 + 65536, -1, 5, 1, 65535};

}  // namespace

std::string TakeName(Input& input) {
  const std::uint8_t choice = input.Byte();
  if (choice < kNames.size()) return kNames[choice];
  const std::string_view bytes = input.Bytes(choice & 63);
  return std::string(bytes.substr(0, bytes.find('\0')));
}

std::int32_t TakeId(Input& input) {
  const std::uint8_t choice = input.Byte();
  return choice < 250 ? kIds[choice % kIds.size()] : input.Int32();
}

std::int32_t TakeUdpPort(Input& input) {
  const std::uint8_t choice = input.Byte();
  return choice < 240 ? kUdpPorts[choice % kUdpPorts.size()] : input.Int32();
}

std::string TakeHost(Input& input) { return kHosts[input.Byte() % kHosts.size()]; }

const char* AddressOf(std::uint8_t choice) {
  static constexpr std::array<const char*, 11> kAddresses = {"/midi",
                                                             "/init_timing",
                                                             "/update_timing",
                                                             "/add_remote_source",
                                                             "/add_remote_destination",
                                                             "/remove_remote_source",
                                                             "/remove_remote_destination",
                                                             "/osc/create_port",
                                                             "/osc/remove_port",
                                                             "/osc/port_creation_report",
                                                             "/osc"};
  return kAddresses[choice % kAddresses.size()];
}

}  // namespace corvalint::fuzz

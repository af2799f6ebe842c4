#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "device/outgoing.h"

namespace corvalint::device {

struct NamedEndpoint {
  std::string name;
  std::int32_t id = 0;
};

// What the command line of corvalint-device asks for.
struct ProgramOptions {
  bool help = false;
  std::uint16_t port = 23451;
  std::string name = "Simulated iPad";
  std::string udid = "00000000-0000000000000001";
  std::vector<NamedEndpoint> sources;
  std::vector<NamedEndpoint> destinations;
  std::optional<std::string> songFile;
  std::optional<std::int32_t> songId;
  bool fast = false;
  std::optional<double> seconds;
  std::optional<std::int64_t> clockMilliseconds;
  std::size_t slow = 0;
  std::size_t pieces = 0;
  std::optional<std::uint64_t> stallAfter;
  std::optional<std::uint64_t> cutAfter;
  CutHow cutHow = CutHow::kReset;
  std::optional<std::uint64_t> rubbishSeed;
  std::optional<std::string> recordFile;
  bool once = false;
  bool verbose = false;
};

// Reads the arguments after the program's name. Throws std::invalid_argument with a line for the
// person who typed them.
ProgramOptions ParseOptions(const std::vector<std::string>& arguments);

void PrintUsage(std::ostream& out);

}  // namespace corvalint::device

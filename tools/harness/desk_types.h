#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint::harness {

using Bytes = std::vector<std::uint8_t>;

// A message that reached the desk, or a moment at which the desk gave one to the product.
struct Recorded {
  std::int64_t ns = 0;  // CLOCK_MONOTONIC_RAW in nanoseconds, steps of 100
  Bytes bytes;          // empty for a moment
};

// What a driver does with an open MIDI input.
struct InputItem {
  enum class Kind : char {
    kShort = 's',       // up to 3 bytes in one word
    kShortError = 'x',  // an invalid short message
    kLong = 'l',        // into queued buffers
    kLongError = 'e',   // an invalid long message
    kPartial = 'p',     // bytes into the first buffer, which stays queued unless it is full
  };
  Kind kind = Kind::kShort;
  Bytes bytes;
};

// A short message, or a long one for bytes that do not fit or begin with 0xF0.
InputItem ItemOf(Bytes message);

struct Pacing {
  std::int64_t paceUs = 0;   // between two messages; 0: as fast as it goes
  std::uint64_t repeat = 1;  // rounds through the list
  std::size_t piece = 0;     // most bytes of a long message in one buffer; 0: what fits
  bool stamps = false;       // record when each message was given to the product
};

// How an injection ended. For a port, `dropped` is always 0.
struct JobResult {
  std::uint64_t delivered = 0;
  std::uint64_t dropped = 0;  // found no started handle or no free buffer
};

// A virtual port that the product has made.
struct Port {
  int id = 0;
  std::u16string name;
  int inputId = 0;  // the desk's devices that an application would see
  int outputId = 0;
  bool open = false;
};

// An iOS device at the desk. Options that are empty keep their former value.
struct DeviceSetup {
  std::optional<std::string> identifier = {};
  bool withoutIdentifier = false;
  std::optional<std::string> displayName = {};
  std::optional<std::uint32_t> connectionId = {};
  std::optional<std::uint16_t> tcpPort = {};  // of the simulated device on the loopback interface
  // Answers of the functions in turn, the last for ever; 0 is success.
  std::vector<std::uint32_t> connectAnswers = {};
  std::vector<std::uint32_t> streamAnswers = {};
  std::optional<std::uint64_t> productWord = {};  // 0: a record that is not usable
};

// Which calls of a function a rule concerns, counted from 1 when it is set.
struct CallRange {
  std::uint64_t from = 1;
  std::uint64_t times = 0;                          // 0: all from there on
  std::uint32_t forMs = 0;                          // only within this time; 0: no limit
  std::optional<std::uint64_t> firstArgument = {};  // only calls with it, which alone are counted
};

// One call of the product into a stand-in.
struct CallEntry {
  std::string function;
  std::vector<std::uint64_t> arguments;
  std::string text;  // a name: bytes, or UTF-16 in four hex digits per unit for a port
  std::optional<std::int64_t> result;  // empty while the call is inside
  std::uint32_t thread = 0;
  std::int64_t ns = 0;
};

// What the product's process holds.
struct ProcessCounts {
  std::uint32_t handles = 0;
  std::uint32_t sockets = 0;
  std::uint32_t threads = 0;
  std::uint64_t workingSet = 0;     // bytes
  std::uint64_t heapBytes = 0;      // in use by everybody in the process
  std::uint64_t deskHeapBytes = 0;  // those of them that are the desk's own
  std::uint32_t openInputs = 0;
  std::uint32_t openOutputs = 0;
  std::uint32_t openPorts = 0;
  std::uint64_t violations = 0;
};

// Result codes that tests name.
inline constexpr std::int64_t kBadDeviceId = 2;
inline constexpr std::int64_t kAllocated = 4;
inline constexpr std::int64_t kInvalidHandle = 5;
inline constexpr std::int64_t kNoDriver = 6;
inline constexpr std::int64_t kNoMemory = 7;
inline constexpr std::int64_t kInvalidParameter = 11;
inline constexpr std::int64_t kUnprepared = 64;
inline constexpr std::int64_t kStillPlaying = 65;

// Text helpers shared by the harness.
std::string HexOf(std::string_view bytes);
Bytes BytesFromHex(std::string_view hex);
std::string HexOfUtf16(std::u16string_view text);
std::u16string Utf16FromHex(std::string_view hex);
// Each byte becomes one unit, as the product names its ports.
std::u16string Widened(std::string_view bytes);

}  // namespace corvalint::harness

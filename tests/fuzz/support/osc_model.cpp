#include "fuzz/support/osc_model.h"

#include <cstring>

namespace corvalint::fuzz {

namespace {

constexpr std::size_t kNowhere = ~std::size_t{0};

// Where the text that begins at `at` ends with its padding.
std::size_t TextEnd(std::string_view bytes, std::size_t at) {
  if (at >= bytes.size()) return kNowhere;
  if (bytes[at] == '\0') return at + 4;
  for (std::size_t last = at + 3; last < bytes.size(); last += 4) {
    if (bytes[last] == '\0') return last + 1;
  }
  return kNowhere;
}

std::size_t TextSize(std::string_view bytes, std::size_t at) { return bytes.find('\0', at) - at; }

// Bytes of an argument that always has the same size; kNowhere for the others.
std::size_t FixedSize(char tag) {
  if (std::strchr("TFNI[]", tag) != nullptr) return 0;
  if (std::strchr("ifcrm", tag) != nullptr) return 4;
  if (std::strchr("htd", tag) != nullptr) return 8;
  return kNowhere;
}

// Where the argument ends.
std::size_t ReadArgument(std::string_view bytes, OscArgumentPlace& argument) {
  const std::size_t at = argument.at;
  if (argument.tag == 's' || argument.tag == 'S') {
    const std::size_t end = TextEnd(bytes, at);
    if (end != kNowhere) argument.size = TextSize(bytes, at);
    return end;
  }
  if (argument.tag == 'b') {
    if (bytes.size() - at < 4) return kNowhere;
    argument.at = at + 4;
    argument.size = static_cast<std::size_t>(OscNumber(bytes.substr(at, 4)));
    const std::size_t padded = (argument.size + 3) / 4 * 4;
    return padded > bytes.size() - argument.at ? kNowhere : argument.at + padded;
  }
  argument.size = FixedSize(argument.tag);
  if (argument.size == kNowhere || argument.size > bytes.size() - at) return kNowhere;
  return at + argument.size;
}

bool IsBundleHeader(std::string_view bytes) {
  return bytes.size() >= 16 && bytes.size() % 4 == 0 &&
         bytes.substr(0, 8) == std::string_view("#bundle\0", 8);
}

// Whether the sizes of the bundle's elements fill it exactly.
bool ElementsFit(std::string_view bundle) {
  std::size_t at = 16;
  while (at < bundle.size()) {
    if (bundle.size() - at < 4) return false;
    const auto size = static_cast<std::size_t>(OscNumber(bundle.substr(at, 4)));
    if (size % 4 != 0 || size > bundle.size() - at - 4) return false;
    at += 4 + size;
  }
  return true;
}

struct OpenBundle {
  std::size_t next;
  std::size_t end;
};

// Enters a bundle or notes a message; false when it is neither.
bool ReadElement(std::string_view packet, std::size_t at, std::size_t size,
                 std::vector<OscEvent>& events, std::vector<OpenBundle>& open) {
  const std::string_view element = packet.substr(at, size);
  if (!element.empty() && element.front() == '#') {
    if (!IsBundleHeader(element) || !ElementsFit(element)) return false;
    events.push_back({OscEvent::bundleStarted, at, size});
    open.push_back({at + 16, at + size});
    return true;
  }
  static std::vector<OscArgumentPlace> ignored;
  if (!ReadOscMessage(element, ignored)) return false;
  events.push_back({OscEvent::message, at, size});
  return true;
}

}  // namespace

std::uint64_t OscNumber(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

bool ReadOscMessage(std::string_view message, std::vector<OscArgumentPlace>& arguments) {
  arguments.clear();
  if (message.empty() || message.size() % 4 != 0) return false;
  const std::size_t tags = TextEnd(message, 0);
  if (tags == kNowhere) return false;
  if (tags == message.size()) return true;
  if (message[tags] != ',') return false;
  if (message[tags + 1] == '\0') return true;
  std::size_t at = TextEnd(message, tags);
  if (at == kNowhere) return false;
  int openArrays = 0;
  for (std::size_t tag = tags + 1; message[tag] != '\0'; ++tag) {
    OscArgumentPlace argument{message[tag], at, 0};
    at = ReadArgument(message, argument);
    if (at == kNowhere) return false;
    arguments.push_back(argument);
    openArrays += argument.tag == '[' ? 1 : argument.tag == ']' ? -1 : 0;
  }
  return openArrays == 0;
}

bool ReadOscPacket(std::string_view packet, std::vector<OscEvent>& events) {
  static std::vector<OpenBundle> open;
  open.clear();
  events.clear();
  if (!ReadElement(packet, 0, packet.size(), events, open)) return false;
  while (!open.empty()) {
    OpenBundle& innermost = open.back();
    if (innermost.next == innermost.end) {
      events.push_back({OscEvent::bundleFinished, innermost.end, 0});
      open.pop_back();
      continue;
    }
    const auto size = static_cast<std::size_t>(OscNumber(packet.substr(innermost.next, 4)));
    const std::size_t at = innermost.next + 4;
    innermost.next = at + size;
    if (!ReadElement(packet, at, size, events, open)) return false;
  }
  return true;
}

}  // namespace corvalint::fuzz

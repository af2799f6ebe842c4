#include "midi_messages.h"

namespace corvalint::desk {

namespace {

constexpr std::uint8_t kSysex = 0xF0;
constexpr std::uint8_t kSysexEnd = 0xF7;
constexpr std::uint8_t kFirstRealTime = 0xF8;

InputItem Short(const Bytes& bytes) { return {InputItem::Kind::kShort, bytes}; }

}  // namespace

std::size_t ShortMessageLength(std::uint8_t status) {
  if (status >= kSysex) return status == 0xF2 ? 3 : status == 0xF1 || status == 0xF3 ? 2 : 1;
  return status >= 0xC0 && status < 0xE0 ? 2 : 3;
}

std::vector<InputItem> MessagesIn(const Bytes& midi) {
  std::vector<InputItem> items;
  Bytes message;  // what is not complete yet, its status first
  for (const std::uint8_t byte : midi) {
    if (byte >= kFirstRealTime) {
      items.push_back(Short({byte}));
      continue;
    }
    const bool inSysex = !message.empty() && message[0] == kSysex;
    if (byte >= 0x80 && !(inSysex && byte == kSysexEnd)) message.clear();
    if (byte < 0x80 && message.empty()) continue;
    message.push_back(byte);
    if (message[0] == kSysex) {
      if (byte != kSysexEnd) continue;
      items.push_back({InputItem::Kind::kLong, message});
      message.clear();
    } else if (message.size() == ShortMessageLength(message[0])) {
      items.push_back(Short(message));
      message.resize(message[0] < kSysex ? 1 : 0);  // its status runs on
    }
  }
  if (!message.empty() && message[0] == kSysex) {
    items.push_back({InputItem::Kind::kLong, message});
  }
  return items;
}

}  // namespace corvalint::desk

// CoreFoundation's part of the desk, and the functions that its stand-in exports, behind "Desk".
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "call_book.h"
#include "core_foundation.h"
#include "outbox.h"
#include "stand_in.h"

namespace corvalint::desk {

namespace {

struct String {
  std::string text;
  bool constant = false;
  std::size_t copies = 1;
};

struct Strings {
  std::mutex lock;
  std::map<const void*, std::unique_ptr<String>> live;
  std::map<std::string, const void*> constants;
  std::map<std::string, String*> copied;
};

Strings& AllStrings() {
  static Strings* strings = new Strings;
  return *strings;
}

const void* Keep(Strings& all, const std::string& text, bool constant) {
  auto string = std::make_unique<String>();
  string->text = text;
  string->constant = constant;
  const void* key = string.get();
  all.live[key] = std::move(string);
  return key;
}

}  // namespace

// Copies of a text share one string. Who never releases them costs the desk no memory, so what
// grows over thousands of arrivals is not the desk.
const void* MakeString(const std::string& text) {
  Strings& all = AllStrings();
  const std::lock_guard hold(all.lock);
  String*& copied = all.copied[text];
  if (copied != nullptr) {
    ++copied->copies;
    return copied;
  }
  const void* const string = Keep(all, text, false);
  copied = all.live[string].get();
  return string;
}

std::size_t LiveStrings() {
  Strings& all = AllStrings();
  const std::lock_guard hold(all.lock);
  std::size_t count = 0;
  for (const auto& [text, string] : all.copied) count += string->copies;
  return count;
}

std::string TextOf(const void* string) {
  Strings& all = AllStrings();
  const std::lock_guard hold(all.lock);
  const auto found = all.live.find(string);
  return found == all.live.end() ? std::string() : found->second->text;
}

}  // namespace corvalint::desk

using corvalint::desk::AllStrings;
using corvalint::desk::Call;
using corvalint::desk::Outbox;

DESK_EXPORT const void* DeskCfMakeConstantString(const char* text) {
  Call call("__CFStringMakeConstantString", {}, text);
  auto& all = AllStrings();
  const std::lock_guard hold(all.lock);
  const void*& constant = all.constants[text];
  if (constant == nullptr) constant = corvalint::desk::Keep(all, text, true);
  call.Done(1);
  return constant;
}

DESK_EXPORT unsigned char DeskCfStringGetCString(const void* string, char* buffer, long long size,
                                                 std::uint32_t encoding) {
  constexpr std::uint32_t kAscii = 0x0600;
  constexpr std::uint32_t kUtf8 = 0x08000100;
  Call call("CFStringGetCString", {static_cast<std::uint64_t>(size), encoding});
  if (call.Scripted()) return call.Result<unsigned char>();
  const std::string text = corvalint::desk::TextOf(string);
  bool fits = buffer != nullptr && size > static_cast<long long>(text.size());
  if (encoding != kAscii && encoding != kUtf8) fits = false;
  for (const char letter : text) {
    if (encoding == kAscii && static_cast<unsigned char>(letter) >= 0x80) fits = false;
  }
  if (fits) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return call.Done(static_cast<unsigned char>(fits ? 1 : 0));
}

DESK_EXPORT void DeskCfRelease(const void* string) {
  Call call("CFRelease", {});
  auto& all = AllStrings();
  bool known = false;
  {
    const std::lock_guard hold(all.lock);
    const auto found = all.live.find(string);
    known = found != all.live.end();
    if (known && !found->second->constant && --found->second->copies == 0) {
      all.copied.erase(found->second->text);
      all.live.erase(found);
    }
  }
  if (!known) Outbox::Get().Violation("CFRelease of something that is not a live string");
  call.Done(known ? 1 : 0);
}

#pragma once

#include <cstddef>
#include <string>

namespace corvalint::desk {

// CoreFoundation strings as far as the device library needs them. Thread-safe.

// A string that its receiver owns and may release.
const void* MakeString(const std::string& text);

// Strings that were handed out and not released.
std::size_t LiveStrings();

// The text behind a string; empty for anything else.
std::string TextOf(const void* string);

}  // namespace corvalint::desk

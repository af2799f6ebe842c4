#pragma once

#include <string>
#include <string_view>

namespace corvalint::desk {

// UTF-16 as four hex digits for each unit; the form in which the control protocol names ports.
// WideFromHex throws std::runtime_error on malformed input.
std::string HexOfWide(const std::wstring& text);
std::wstring WideFromHex(std::string_view hex);

// Conversions by the process's ANSI code page. What it does not have becomes its substitute.
std::string AnsiOf(const std::wstring& text);
std::wstring WideOf(const std::string& ansi);

}  // namespace corvalint::desk

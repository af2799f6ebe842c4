#pragma once

#include <string>

// Texts of Windows for the host. Any thread.
namespace corvalint::host {

std::string WideToUtf8(const std::wstring& text);
std::wstring Utf8ToWide(const std::string& text);

// From and to the ANSI code page; what it lacks becomes a question mark.
std::string AnsiToUtf8(const std::string& bytes);
std::string Utf8ToAnsi(const std::string& text);

// The system's words for one of its error numbers, with the number.
std::string ErrorText(unsigned long error);

}  // namespace corvalint::host

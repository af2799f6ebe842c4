#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace corvalint::demo {

// Thrown where a person's Ctrl-C is noticed.
struct Interrupted {};

// From now on Ctrl-C and the request to end are only noted. Call once, before anything is started.
void NoteInterrupts();

// Whether one has been noted. Any thread.
bool WasInterrupted();

// Throws Interrupted once one has been noted. Any thread.
void CheckInterrupted();

// Repeats a wait of the given short time until it gives true. Throws std::runtime_error, which
// names what was waited for, when that takes longer than people wait for music, and Interrupted.
void Await(const std::string& what,
           const std::function<bool(std::chrono::milliseconds)>& waitShortly);

}  // namespace corvalint::demo

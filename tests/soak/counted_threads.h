#pragma once

#include <cstddef>
#include <cstdint>

namespace corvalint::soak {

// The system's threads, counted, installed for as long as it lives; one at a time. It complains
// about a handle that is closed twice, and about a thread that is ended by another one. Any thread.
class CountedThreads {
 public:
  CountedThreads();
  ~CountedThreads();
  CountedThreads(const CountedThreads&) = delete;
  CountedThreads& operator=(const CountedThreads&) = delete;

  // Made so far.
  std::uint64_t Made() const;
  // Whose procedure has not returned yet.
  std::size_t Living() const;
  // Handles that nobody has closed.
  std::size_t OpenHandles() const;
};

}  // namespace corvalint::soak

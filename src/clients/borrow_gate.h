#pragma once

#include <atomic>
#include <cstdint>

namespace corvalint {

// Counts who is inside an object's operations, and turns newcomers away once it is closed. The
// owner closes it and frees the object when nobody is left inside. Any thread.
class BorrowGate {
 public:
  // False once the gate is closed; otherwise a Return must follow.
  bool TryBorrow() {
    std::uint32_t seen = state.load(std::memory_order_relaxed);
    while ((seen & kClosed) == 0) {
      if (state.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire)) return true;
    }
    return false;
  }
  void Return() { state.fetch_sub(1, std::memory_order_release); }

  void Close() { state.fetch_or(kClosed, std::memory_order_acquire); }
  // True when the gate is closed and the last borrower has left.
  bool Drained() const { return state.load(std::memory_order_acquire) == kClosed; }

 private:
  static constexpr std::uint32_t kClosed = 0x80000000u;
  std::atomic<std::uint32_t> state{0};
};

}  // namespace corvalint

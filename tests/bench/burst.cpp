#include "bench/burst.h"

#include "bench/loopback.h"

namespace corvalint::bench {

void Burst::Arrived(const std::uint8_t* /*data*/, std::uint32_t /*length*/) {
  if (seen++ == 0) {
    atGate.release();
    open.acquire();
    begin = Stamp::Now();
  } else if (seen == expected) {
    end = Stamp::Now();
    done.release();
  }
}

Burst::Cost Burst::Run(int socket, const std::vector<char>& gate, const std::vector<char>& burst,
                       std::size_t count) {
  seen = 0;
  expected = count + 1;
  WriteAll(socket, gate.data(), gate.size());
  atGate.acquire();
  const std::size_t written = WriteWhatFits(socket, burst);
  open.release();
  WriteAll(socket, burst.data() + written, burst.size() - written);
  done.acquire();
  const auto messages = static_cast<double>(count);
  return {static_cast<double>(end.cpu - begin.cpu) / messages,
          static_cast<double>(end.wall - begin.wall) / messages,
          static_cast<double>(end.allocations - begin.allocations) / messages};
}

}  // namespace corvalint::bench

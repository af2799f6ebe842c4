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

Cost Burst::Run(int socket, const std::vector<char>& gate, const std::vector<char>& burst,
                std::size_t count, std::size_t arrivals) {
  seen = 0;
  expected = arrivals + 1;
  WriteAll(socket, gate.data(), gate.size());
  atGate.acquire();
  const std::size_t written = WriteWhatFits(socket, burst);
  open.release();
  WriteAll(socket, burst.data() + written, burst.size() - written);
  done.acquire();
  Cost cost;
  cost.Add(begin, end);
  return cost.For(static_cast<double>(count));
}

}  // namespace corvalint::bench

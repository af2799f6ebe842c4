#include "bench/bare_reader.h"

#include <osc/OscReceivedElements.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "bench/frames.h"
#include "bench/watched_threads.h"
#include "clients/big_endian.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::size_t kAtOnce = 65536;

void Decode(const char* packet, std::size_t size, ArrivalListener& listener) {
  const osc::ReceivedMessage message(
      osc::ReceivedPacket(packet, static_cast<osc::osc_bundle_element_size_t>(size)));
  auto argument = message.ArgumentsBegin();
  const char* const name = (argument++)->AsString();
  const osc::int32 id = (argument++)->AsInt32();
  const osc::int64 time = (argument++)->AsInt64();
  const void* blob = nullptr;
  osc::osc_bundle_element_size_t length = 0;
  argument->AsBlob(blob, length);
  // Whatever the compiler knows about them, they have to be there.
  asm volatile("" : : "r"(message.AddressPattern()), "r"(name), "r"(id), "r"(time) : "memory");
  listener.Arrived(static_cast<const std::uint8_t*>(blob), static_cast<std::uint32_t>(length));
}

void Read(int socket, ArrivalListener& listener) {
  std::vector<char> buffer(kLargestFrame + kAtOnce);
  std::size_t begin = 0;
  std::size_t end = 0;
  for (;;) {
    const ssize_t count = recv(socket, buffer.data() + end, kAtOnce, 0);
    if (count <= 0) return;
    end += static_cast<std::size_t>(count);
    while (end - begin >= kHeader) {
      const std::size_t size = ReadBigEndian32(buffer.data() + begin);
      if (end - begin < kHeader + size) break;
      if (ReadBigEndian32(buffer.data() + begin + 4) == 2) {
        Decode(buffer.data() + begin + kHeader, size, listener);
      }
      begin += kHeader + size;
    }
    if (begin == end) {
      begin = end = 0;
    } else if (buffer.size() - end < kAtOnce) {
      std::memmove(buffer.data(), buffer.data() + begin, end - begin);
      end -= begin;
      begin = 0;
    }
  }
}

}  // namespace

BareReader::BareReader(int socket, ArrivalListener& listener)
    : thread([socket, &listener] {
        RunAsMeasured(0);
        Read(socket, listener);
      }) {}

BareReader::~BareReader() { thread.join(); }

}  // namespace corvalint::bench

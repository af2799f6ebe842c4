#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "clients/frame.h"
#include "platform/critical_section.h"

namespace corvalint {

// The byte stream to one device: many threads send frames, one thread receives, any thread closes.
// A frame goes out whole or not at all: what a full stream did not take is kept and goes out before
// anything else; once much is kept, further frames are dropped whole. Nothing here blocks but
// Receive.
class DeviceStream {
 public:
  DeviceStream();
  ~DeviceStream();
  DeviceStream(const DeviceStream&) = delete;
  DeviceStream& operator=(const DeviceStream&) = delete;

  // Takes over a connected, non-blocking socket, also when it throws std::bad_alloc. The receiving
  // thread, while the stream is closed.
  void Open(int connectedSocket) CORVALINT_EXCLUDES(lock);
  bool IsOpen() const { return socket > 0; }

  // Ends the connection and the wait of a receiving thread; false when none was open. The handle
  // itself is closed once no thread is inside a system call with it, so its number cannot be used
  // again under a waiting thread.
  bool Close() CORVALINT_EXCLUDES(lock);

  // Sends a frame with this payload. Bytes handed over, header included, or -1: closed, too large,
  // dropped or failed.
  int Send(const void* data, std::uint32_t size) CORVALINT_EXCLUDES(lock);
  // The same for a whole frame.
  int SendFrame(const Frame& frame) CORVALINT_EXCLUDES(lock);

  // Whether so much is kept, after another try to send it, that what can wait should: the rest of
  // the room is for those who cannot. False while closed. Never blocks.
  bool IsCrowded() CORVALINT_EXCLUDES(lock);

  // Waits for bytes, at most `size`; 0 at the end of the stream, -1 on failure and after Close.
  // Sends what was kept as soon as the stream takes it. One thread only.
  int Receive(void* data, int size) CORVALINT_EXCLUDES(lock);

 private:
  int ReceiveFrom(int open, void* data, int size) CORVALINT_EXCLUDES(lock);
  int WaitAndReceive(int open, void* data, int size) CORVALINT_EXCLUDES(lock);
  // What became of the bytes that were kept: all are sent, the stream takes no more now, or it
  // failed in a way that another try would not mend.
  enum class Kept { sent, waits, failed };

  int SendOrKeep(const Frame& frame) CORVALINT_REQUIRES(lock);
  Kept SendKept(int open) CORVALINT_REQUIRES(lock);
  void Keep(const char* bytes, std::size_t count) CORVALINT_REQUIRES(lock);
  bool HasKept() const CORVALINT_REQUIRES(lock) { return keptBegin < kept.size(); }
  bool WantsToSend() CORVALINT_EXCLUDES(lock);
  void ReportLosses() CORVALINT_EXCLUDES(lock);
  static void LogLosses(std::uint64_t frames);

  // Leaf: {read the socket, one send} against {swap the socket, close}.
  CriticalSection lock;
  std::atomic<int> socket{0};  // 0 while closed; written under the lock
  bool receiving CORVALINT_GUARDED_BY(lock) = false;
  bool moreWaits = false;  // the last receive got all that it asked for; receiving thread
  int closeAfterReceive CORVALINT_GUARDED_BY(lock) = 0;
  const std::unique_ptr<char[]> staging CORVALINT_GUARDED_BY(lock);
  std::vector<char> kept CORVALINT_GUARDED_BY(lock);  // has its full room while the stream is open
  std::size_t keptBegin CORVALINT_GUARDED_BY(lock) = 0;
  std::uint64_t dropped CORVALINT_GUARDED_BY(lock) = 0;  // frames since the last report

  // Ends a wait of the receiving thread; 0 when it could not be had, the stream works without. The
  // last member, so that no other one can fail after it.
  const int waker;
};

}  // namespace corvalint

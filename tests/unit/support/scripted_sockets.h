#pragma once

#include <deque>
#include <functional>
#include <utility>
#include <vector>

#include "platform/socket.h"
#include "support/locked_fields.h"

namespace corvalint::test {

// The system's sockets with what a test asks for put in between; installed for as long as it lives.
// It watches what is closed: a second close, and any use of a closed number, fail the test. Any
// thread.
class ScriptedSockets : private LockedFields {
 public:
  // What one send does: takes at most `most` bytes, or fails with `error`.
  struct SendAnswer {
    int most = 0;
    SocketError error = SocketError::none;
  };

  ScriptedSockets();
  ~ScriptedSockets();
  ScriptedSockets(const ScriptedSockets&) = delete;
  ScriptedSockets& operator=(const ScriptedSockets&) = delete;

  // What the next sends do, one each; afterwards they go to the system.
  void SendAnswers(std::deque<SendAnswer> answers);
  // From now on every send would block, until SendAnswers.
  void BlockSends() { Set(sendsBlocked, true); }
  // Each receive gives no more bytes than that from now on.
  void ReceiveAtMost(int most) { Set(mostReceived, most); }
  // The next receives fail like this, one each.
  void ReceiveErrors(std::deque<SocketError> errors) { Set(receiveErrors, std::move(errors)); }
  // The next waits fail like this, one each.
  void WaitErrors(std::deque<SocketError> errors) { Set(waitErrors, std::move(errors)); }
  // The next wait finds only this.
  void NextWaitSees(SocketReadiness seen);
  // Runs when a receiving thread is about to wait, and before each receive, with no lock held.
  void BeforeWait(std::function<void()> action) { Set(beforeWait, std::move(action)); }
  void BeforeReceive(std::function<void()> action) { Set(beforeReceive, std::move(action)); }
  // The next stream cannot be made non-blocking.
  void RefuseNonBlocking() { Set(refusesNonBlocking, true); }
  // Runs before a new stream is made non-blocking, and before a stream is shut down.
  void BeforeNonBlocking(std::function<void()> action) {
    Set(beforeNonBlocking, std::move(action));
  }
  void BeforeShutdown(std::function<void()> action) { Set(beforeShutdown, std::move(action)); }
  // Runs before each send, on the sending thread.
  void BeforeSend(std::function<void()> action) { Set(beforeSend, std::move(action)); }

  // Sizes of all sends so far.
  std::vector<int> Sends() const { return Get(sends); }
  int Receives() const { return Get(receives); }
  std::vector<int> Closed() const { return Get(closed); }
  std::vector<int> NonBlocking() const { return Get(nonBlocking); }
  std::vector<int> NoDelay() const { return Get(noDelay); }

 private:
  struct Table;
  static ScriptedSockets& Current();
  void Watch(int socket, const char* operation);

  std::deque<SendAnswer> sendAnswers;
  bool sendsBlocked = false;
  std::deque<SocketError> receiveErrors;
  std::deque<SocketError> waitErrors;
  std::deque<SocketReadiness> waitAnswers;
  std::function<void()> beforeWait;
  std::function<void()> beforeReceive;
  std::function<void()> beforeNonBlocking;
  bool refusesNonBlocking = false;
  std::function<void()> beforeShutdown;
  std::function<void()> beforeSend;
  std::vector<int> sends, closed, nonBlocking, noDelay;
  int receives = 0;
  int mostReceived = 1 << 30;
};

}  // namespace corvalint::test

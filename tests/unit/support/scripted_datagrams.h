#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "platform/datagram.h"
#include "platform/socket.h"
#include "support/locked_fields.h"

namespace corvalint::test {

// The system's datagram sockets, their waits and wakers, with what a test asks for put in between;
// installed for as long as it lives, in front of whatever sockets are installed already. Sockets
// are really closed. The use of one after its end, a second close, and a close while a thread waits
// with it fail the test. Any thread.
class ScriptedDatagrams : private LockedFields {
 public:
  // What one wait finds; `error` is why, when `seen.failed`.
  struct WaitAnswer {
    SocketReadiness seen;
    SocketError error = SocketError::none;
  };
  // A bind to a port number, 0 for a free one, and its result.
  using Bind = std::pair<std::uint16_t, int>;

  ScriptedDatagrams();
  ~ScriptedDatagrams();
  ScriptedDatagrams(const ScriptedDatagrams&) = delete;
  ScriptedDatagrams& operator=(const ScriptedDatagrams&) = delete;

  // What the next of these give instead of asking the system, one each. Binds to 0 have answers of
  // their own.
  void OpenAnswers(std::deque<int> answers) { Set(openAnswers, std::move(answers)); }
  void BindAnswers(std::deque<int> answers) { Set(bindAnswers, std::move(answers)); }
  void FreeBindAnswers(std::deque<int> answers) { Set(freeBindAnswers, std::move(answers)); }
  void ReceiveErrors(std::deque<SocketError> errors) { Set(receiveErrors, std::move(errors)); }
  void WaitAnswers(std::deque<WaitAnswer> answers) { Set(waitAnswers, std::move(answers)); }
  // So many of the next wakers cannot be had.
  void RefuseWakers(int count) { Set(wakerRefusals, count); }
  // These run before each call, on the calling thread, with no lock held.
  void BeforeOpen(std::function<void()> action) { Set(beforeOpen, std::move(action)); }
  void BeforeBind(std::function<void()> action) { Set(beforeBind, std::move(action)); }
  void BeforeWait(std::function<void()> action) { Set(beforeWait, std::move(action)); }
  void BeforeReceive(std::function<void()> action) { Set(beforeReceive, std::move(action)); }
  void BeforeSend(std::function<void()> action) { Set(beforeSend, std::move(action)); }
  void BeforeWake(std::function<void()> action) { Set(beforeWake, std::move(action)); }

  // All sockets so far, in order; their numbers may come again.
  std::vector<int> Opened() const { return Get(opened); }
  std::size_t OpenNow() const;
  // All wakers so far, and which of them were woken, in order.
  std::vector<int> Wakers() const { return Get(wakers); }
  std::vector<int> Woken() const { return Get(woken); }
  int WakersOpenNow() const;
  std::vector<Bind> Binds() const { return Get(binds); }
  int Waits() const { return Get(waits); }
  // Waits for a waker alone.
  int IdleWaits() const { return Get(idleWaits); }
  int Receives() const { return Get(receives); }

 private:
  struct Table;
  static ScriptedDatagrams& Current();
  bool IsOpen(int socket, const char* operation);
  bool BeginWait(int socket);
  bool IsPortWaker(int waker) const;

  const SocketApi* const installedBefore;
  const SocketApi before;
  SocketApi sockets;

  std::deque<int> openAnswers, bindAnswers, freeBindAnswers;
  std::deque<SocketError> receiveErrors;
  std::deque<WaitAnswer> waitAnswers;
  std::function<void()> beforeOpen, beforeBind, beforeWait, beforeReceive, beforeSend, beforeWake;
  int wakerRefusals = 0;
  std::vector<int> opened;
  std::set<int> open, gone;    // a number that was closed and has not come again is gone
  std::map<int, int> waiting;  // threads inside a wait, by socket
  std::set<int> wakersNow;
  std::vector<int> wakers, woken;
  std::vector<Bind> binds;
  int waits = 0;
  int idleWaits = 0;
  int receives = 0;
};

}  // namespace corvalint::test

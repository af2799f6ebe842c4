#include "support/scripted_sockets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace corvalint::test {

namespace {

std::atomic<ScriptedSockets*> current{nullptr};
// What lastError answers after a failure that was asked for.
thread_local SocketError scripted = SocketError::none;

}  // namespace

struct ScriptedSockets::Table {
  static SocketReadiness Wait(int socket, bool wantWritable, int waker) {
    ScriptedSockets& self = Current();
    scripted = SocketError::none;
    std::function<void()> action;
    SocketReadiness seen;
    {
      const std::lock_guard hold(self.mutex);
      self.Watch(socket, "wait");
      action = self.beforeWait;
    }
    if (action) action();
    {
      const std::lock_guard hold(self.mutex);
      if (TakeFront(self.waitErrors, scripted)) {
        seen.failed = true;
        return seen;
      }
      if (TakeFront(self.waitAnswers, seen)) return seen;
    }
    return SocketApi::System().wait(socket, wantWritable, waker);
  }

  static int Receive(int socket, void* data, int size) {
    ScriptedSockets& self = Current();
    scripted = SocketError::none;
    std::function<void()> action;
    int most;
    {
      const std::lock_guard hold(self.mutex);
      self.Watch(socket, "receive");
      ++self.receives;
      most = self.mostReceived;
      action = self.beforeReceive;
      if (TakeFront(self.receiveErrors, scripted)) return -1;
    }
    if (action) action();
    return SocketApi::System().receive(socket, data, std::min(size, most));
  }

  static int Send(int socket, const void* data, int size) {
    ScriptedSockets& self = Current();
    scripted = SocketError::none;
    SendAnswer answer{size, SocketError::none};
    if (const auto action = self.Get(self.beforeSend)) action();
    const std::lock_guard hold(self.mutex);
    self.Watch(socket, "send");
    self.sends.push_back(size);
    if (self.sendsBlocked) answer.error = SocketError::wouldBlock;
    TakeFront(self.sendAnswers, answer);
    scripted = answer.error;
    if (scripted != SocketError::none) return -1;
    if (answer.most == 0) return 0;
    return SocketApi::System().send(socket, data, std::min(size, answer.most));
  }

  static int SetNonBlocking(int socket) {
    std::function<void()> action;
    {
      const std::lock_guard hold(Current().mutex);
      Current().nonBlocking.push_back(socket);
      action = Current().beforeNonBlocking;
      if (std::exchange(Current().refusesNonBlocking, false)) return -1;
    }
    if (action) action();
    return SocketApi::System().setNonBlocking(socket);
  }

  static int Shutdown(int socket) {
    if (const auto action = Current().Get(Current().beforeShutdown)) action();
    return SocketApi::System().shutdown(socket);
  }

  static int SetNoDelay(int socket) {
    const std::lock_guard hold(Current().mutex);
    Current().noDelay.push_back(socket);
    return -1;  // nobody may mind
  }

  // The number stays taken until the fake goes, so that a late use is seen.
  static int Close(int socket) {
    const std::lock_guard hold(Current().mutex);
    Current().Watch(socket, "close");
    Current().closed.push_back(socket);
    return 0;
  }

  static SocketError LastError() {
    return scripted != SocketError::none ? scripted : SocketApi::System().lastError();
  }

  static const SocketApi& Get() {
    static const SocketApi table = [] {
      SocketApi changed = SocketApi::System();
      changed.wait = Wait;
      changed.receive = Receive;
      changed.send = Send;
      changed.setNonBlocking = SetNonBlocking;
      changed.setNoDelay = SetNoDelay;
      changed.shutdown = Shutdown;
      changed.close = Close;
      changed.lastError = LastError;
      return changed;
    }();
    return table;
  }
};

ScriptedSockets::ScriptedSockets() {
  EXPECT_EQ(current.exchange(this), nullptr);
  Install<SocketApi>(&Table::Get());
}

ScriptedSockets::~ScriptedSockets() {
  Install<SocketApi>(nullptr);
  for (const int socket : closed) SocketApi::System().close(socket);
  current = nullptr;
}

ScriptedSockets& ScriptedSockets::Current() { return *current.load(); }

void ScriptedSockets::Watch(int socket, const char* operation) {
  EXPECT_GT(socket, 0) << operation << " on no socket";
  EXPECT_EQ(std::count(closed.begin(), closed.end(), socket), 0)
      << operation << " on a closed socket";
}

void ScriptedSockets::SendAnswers(std::deque<SendAnswer> answers) {
  const std::lock_guard hold(mutex);
  sendAnswers = std::move(answers);
  sendsBlocked = false;
}

void ScriptedSockets::NextWaitSees(SocketReadiness seen) {
  const std::lock_guard hold(mutex);
  waitAnswers.push_back(seen);
}

}  // namespace corvalint::test

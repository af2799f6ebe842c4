#include "support/scripted_datagrams.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace corvalint::test {

namespace {

std::atomic<ScriptedDatagrams*> current{nullptr};

// The system's tables answer from it why a call failed.
void SetLastError(SocketError error) {
  switch (error) {
    case SocketError::none:
      errno = 0;
      break;
    case SocketError::wouldBlock:
      errno = EAGAIN;
      break;
    case SocketError::interrupted:
      errno = EINTR;
      break;
    case SocketError::other:
      errno = ECONNRESET;
      break;
  }
}

}  // namespace

struct ScriptedDatagrams::Table {
  static int Open() {
    ScriptedDatagrams& self = Current();
    if (const auto action = self.Get(self.beforeOpen)) action();
    const std::lock_guard hold(self.mutex);
    int made = 0;
    if (TakeFront(self.openAnswers, made)) return made;
    made = DatagramApi::System().open();
    EXPECT_GE(made, 1);
    self.opened.push_back(made);
    self.open.insert(made);
    self.gone.erase(made);
    return made;
  }

  static int BindLoopback(int socket, std::uint16_t port) {
    ScriptedDatagrams& self = Current();
    if (const auto action = self.Get(self.beforeBind)) action();
    const std::lock_guard hold(self.mutex);
    EXPECT_TRUE(self.IsOpen(socket, "bind"));
    int result = 0;
    if (!TakeFront(port == 0 ? self.freeBindAnswers : self.bindAnswers, result)) {
      result = DatagramApi::System().bindLoopback(socket, port);
    }
    self.binds.emplace_back(port, result);
    return result;
  }

  static int Receive(int socket, void* data, int size) {
    ScriptedDatagrams& self = Current();
    if (const auto action = self.Get(self.beforeReceive)) action();
    {
      const std::lock_guard hold(self.mutex);
      EXPECT_TRUE(self.IsOpen(socket, "receive"));
      ++self.receives;
      SocketError error;
      if (TakeFront(self.receiveErrors, error)) {
        SetLastError(error);
        return -1;
      }
    }
    return DatagramApi::System().receive(socket, data, size);
  }

  static int Send(int socket, const void* data, int size, std::uint32_t address,
                  std::uint16_t port) {
    ScriptedDatagrams& self = Current();
    if (const auto action = self.Get(self.beforeSend)) action();
    {
      const std::lock_guard hold(self.mutex);
      EXPECT_TRUE(self.IsOpen(socket, "send"));
    }
    return DatagramApi::System().send(socket, data, size, address, port);
  }

  static SocketReadiness Wait(int socket, bool wantWritable, int waker) {
    ScriptedDatagrams& self = Current();
    if (!self.BeginWait(socket)) return self.before.wait(socket, wantWritable, waker);
    if (const auto action = self.Get(self.beforeWait)) action();
    WaitAnswer answer;
    bool scripted;
    {
      const std::lock_guard hold(self.mutex);
      scripted = TakeFront(self.waitAnswers, answer);
    }
    if (!scripted) answer.seen = SocketApi::System().wait(socket, wantWritable, waker);
    const std::lock_guard hold(self.mutex);
    --self.waiting[socket];
    if (scripted) SetLastError(answer.error);
    return answer.seen;
  }

  static int Close(int socket) {
    ScriptedDatagrams& self = Current();
    const std::lock_guard hold(self.mutex);
    if (!self.IsOpen(socket, "close")) return self.before.close(socket);
    EXPECT_EQ(self.waiting[socket], 0) << "closed under a waiting thread";
    self.open.erase(socket);
    self.gone.insert(socket);
    return SocketApi::System().close(socket);
  }

  static int OpenWaker() {
    ScriptedDatagrams& self = Current();
    const std::lock_guard hold(self.mutex);
    if (self.wakerRefusals > 0) {
      --self.wakerRefusals;
      return 0;
    }
    const int made = self.before.openWaker();
    self.wakers.push_back(made);
    self.wakersNow.insert(made);
    return made;
  }

  static void Wake(int waker) {
    ScriptedDatagrams& self = Current();
    if (self.IsPortWaker(waker)) {
      if (const auto action = self.Get(self.beforeWake)) action();
    }
    const std::lock_guard hold(self.mutex);
    if (self.wakersNow.count(waker) != 0) self.woken.push_back(waker);
    self.before.wake(waker);
  }

  static void CloseWaker(int waker) {
    ScriptedDatagrams& self = Current();
    const std::lock_guard hold(self.mutex);
    self.wakersNow.erase(waker);
    self.before.closeWaker(waker);
  }
};

ScriptedDatagrams::ScriptedDatagrams()
    : installedBefore(installedApi<SocketApi>.load()), before(Use<SocketApi>()), sockets(before) {
  static constexpr DatagramApi kDatagrams{
      .open = Table::Open,
      .bindLoopback = Table::BindLoopback,
      .receive = Table::Receive,
      .send = Table::Send,
      .parseAddress = [](const std::string& text, std::uint32_t* address) {
        return DatagramApi::System().parseAddress(text, address);
      }};
  EXPECT_EQ(current.exchange(this), nullptr);
  sockets.wait = Table::Wait;
  sockets.close = Table::Close;
  sockets.openWaker = Table::OpenWaker;
  sockets.wake = Table::Wake;
  sockets.closeWaker = Table::CloseWaker;
  Install<SocketApi>(&sockets);
  Install<DatagramApi>(&kDatagrams);
}

ScriptedDatagrams::~ScriptedDatagrams() {
  Install<DatagramApi>(nullptr);
  Install<SocketApi>(installedBefore);
  EXPECT_EQ(open.size(), 0u) << "sockets were left open";
  EXPECT_EQ(wakersNow.size(), 0u) << "wakers were left open";
  current = nullptr;
}

ScriptedDatagrams& ScriptedDatagrams::Current() { return *current.load(); }

// A stream may get the number of a datagram socket that is gone: only where there are none is a use
// of it a mistake.
bool ScriptedDatagrams::IsOpen(int socket, const char* operation) {
  if (open.count(socket) != 0) return true;
  if (installedBefore == nullptr) {
    EXPECT_EQ(gone.count(socket), 0u) << operation << " on a closed socket";
  }
  return false;
}

// False when it was made before this was installed.
bool ScriptedDatagrams::IsPortWaker(int waker) const {
  const std::lock_guard hold(mutex);
  return wakersNow.count(waker) != 0;
}

// False when it is no datagram socket.
bool ScriptedDatagrams::BeginWait(int socket) {
  const std::lock_guard hold(mutex);
  if (socket == 0) ++idleWaits;
  if (!IsOpen(socket, "wait")) return false;
  ++waits;
  ++waiting[socket];
  return true;
}

std::size_t ScriptedDatagrams::OpenNow() const {
  const std::lock_guard hold(mutex);
  return open.size();
}

int ScriptedDatagrams::WakersOpenNow() const {
  const std::lock_guard hold(mutex);
  return static_cast<int>(wakersNow.size());
}

}  // namespace corvalint::test

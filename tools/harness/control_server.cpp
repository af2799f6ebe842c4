#include "harness/control_server.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "device/loopback.h"

namespace corvalint::harness {

ControlServer::ControlServer(Listener lineListener) : listener(std::move(lineListener)) {
  listenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  wakeFd = eventfd(0, EFD_CLOEXEC);
  sockaddr_in address = device::Loopback(0);
  socklen_t size = sizeof(address);
  if (bind(listenFd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listenFd, 1) != 0 ||
      getsockname(listenFd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("cannot listen for the desk");
  }
  port = ntohs(address.sin_port);
  thread = std::thread([this] { Serve(); });
}

ControlServer::~ControlServer() {
  const std::uint64_t one = 1;
  if (write(wakeFd, &one, sizeof(one)) == sizeof(one)) thread.join();
  close(listenFd);
  close(wakeFd);
}

bool ControlServer::WaitUntilConnected(std::chrono::milliseconds limit) {
  std::unique_lock hold(lock);
  changed.wait_for(hold, limit, [this] { return connectionFd >= 0 || gone; });
  return connectionFd >= 0;
}

std::string ControlServer::Send(const std::string& command, std::chrono::milliseconds limit) {
  std::uint64_t sequence = 0;
  int fd = -1;
  {
    const std::lock_guard hold(lock);
    if (connectionFd < 0) throw std::runtime_error("the desk is not connected: " + command);
    sequence = ++lastSequence;
    fd = connectionFd;
  }
  SendAll(fd, std::to_string(sequence) + " " + command + "\n");
  std::unique_lock hold(lock);
  changed.wait_for(hold, limit, [&] { return replies.contains(sequence) || gone; });
  const auto found = replies.find(sequence);
  const std::string start = command.substr(0, 200);
  if (found == replies.end()) {
    throw std::runtime_error((gone ? "the desk is gone: " : "no reply to: ") + start);
  }
  std::string reply = std::move(found->second);
  replies.erase(found);
  if (!reply.starts_with("ok")) throw std::runtime_error(reply + ": " + start);
  return reply.size() > 3 ? reply.substr(3) : std::string();
}

void ControlServer::SendAll(int fd, std::string_view text) {
  const std::lock_guard hold(sendLock);
  while (!text.empty()) {
    const ssize_t done = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return;  // the reader notices as well
    text.remove_prefix(static_cast<std::size_t>(done));
  }
}

void ControlServer::Serve() {
  pollfd waits[2] = {{listenFd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
  while (poll(waits, 2, -1) < 0 && errno == EINTR) {
  }
  if (waits[1].revents != 0) return;
  const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) return;
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  {
    const std::lock_guard hold(lock);
    connectionFd = fd;
    changed.notify_all();
  }
  ReadLines(fd);
  {
    const std::lock_guard hold(lock);
    connectionFd = -1;
    gone = true;
    changed.notify_all();
  }
  const std::lock_guard hold(sendLock);
  close(fd);
}

void ControlServer::ReadLines(int fd) {
  std::string input;
  std::string piece(1 << 18, '\0');
  for (;;) {
    pollfd waits[2] = {{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno == EINTR) continue;
    if (waits[1].revents != 0) return;
    const ssize_t count = recv(fd, piece.data(), piece.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    const std::size_t searched = input.size();
    input.append(piece.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end = input.find('\n', searched); end != std::string::npos;
         end = input.find('\n', start)) {
      TakeLine(std::string_view(input).substr(start, end - start));
      start = end + 1;
    }
    input.erase(0, start);
  }
}

void ControlServer::TakeLine(std::string_view line) {
  std::uint64_t sequence = 0;
  const char* end = line.data() + line.size();
  const auto parsed = std::from_chars(line.data(), end, sequence);
  if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != ' ') {
    listener(line);
    return;
  }
  const std::lock_guard hold(lock);
  replies[sequence] = std::string(parsed.ptr + 1, end);
  changed.notify_all();
}

}  // namespace corvalint::harness

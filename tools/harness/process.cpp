#include "harness/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace corvalint::harness {

namespace {

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
};

Pipe MakePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe: " + std::string(strerror(errno)));
  return {ends[0], ends[1]};
}

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

std::vector<std::string> Environment(const std::map<std::string, std::string>& added) {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    if (!added.contains(text.substr(0, text.find('=')))) all.push_back(text);
  }
  for (const auto& [name, value] : added) all.push_back(name + "=" + value);
  return all;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The descriptor number that the keeper is told to watch.
constexpr int kLifeFd = 3;

}  // namespace

Process::Process(const Setup& setup) {
  signal(SIGPIPE, SIG_IGN);
  Launch(setup);
  output.reader = std::thread([this] { Read(output); });
  errors.reader = std::thread([this] { Read(errors); });
  watcher = std::thread([this] { Watch(); });
}

Process::~Process() {
  Kill();
  watcher.join();
  output.reader.join();
  errors.reader.join();
  CloseFd(inputFd);
}

void Process::Launch(const Setup& setup) {
  Pipe in = MakePipe();
  Pipe out = MakePipe();
  Pipe err = MakePipe();
  Pipe life = MakePipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!setup.directory.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, setup.directory.c_str());
  }
  // Away from the numbers that the next lines fill.
  const int lifeCopy = fcntl(life.readEnd, F_DUPFD_CLOEXEC, 10);
  posix_spawn_file_actions_adddup2(&actions, in.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.writeEnd, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.writeEnd, STDERR_FILENO);
  posix_spawn_file_actions_adddup2(&actions, lifeCopy, kLifeFd);
  std::vector<std::string> command = {CORVALINT_KEEPER, std::to_string(kLifeFd)};
  command.insert(command.end(), setup.command.begin(), setup.command.end());
  std::vector<std::string> environment = Environment(setup.environment);
  const int error = posix_spawn(&keeper, CORVALINT_KEEPER, &actions, nullptr,
                                Pointers(command).data(), Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  for (int fd : {in.readEnd, out.writeEnd, err.writeEnd, life.readEnd, lifeCopy}) close(fd);
  inputFd = in.writeEnd;
  output.fd = out.readEnd;
  errors.fd = err.readEnd;
  lifeFd = life.writeEnd;
  if (error == 0) return;
  CloseFd(inputFd);
  CloseFd(output.fd);
  CloseFd(errors.fd);
  CloseFd(lifeFd);
  throw std::runtime_error("cannot start " + command.front() + ": " + strerror(error));
}

bool Process::Write(std::string_view text) {
  const std::lock_guard hold(inputLock);
  while (!text.empty()) {
    if (inputFd < 0) return false;
    const ssize_t done = write(inputFd, text.data(), text.size());
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(done));
  }
  return true;
}

void Process::CloseInput() {
  const std::lock_guard hold(inputLock);
  CloseFd(inputFd);
}

std::string Process::Output() {
  const std::lock_guard hold(lock);
  return output.text;
}

std::string Process::Errors() {
  const std::lock_guard hold(lock);
  return errors.text;
}

bool Process::WaitForOutput(const Condition& condition, std::chrono::milliseconds limit) {
  return WaitFor(output, condition, limit);
}

bool Process::WaitForErrors(const Condition& condition, std::chrono::milliseconds limit) {
  return WaitFor(errors, condition, limit);
}

bool Process::WaitFor(Stream& stream, const Condition& condition, std::chrono::milliseconds limit) {
  std::unique_lock hold(lock);
  changed.wait_for(hold, limit, [&] { return condition(stream.text) || stream.ended; });
  return condition(stream.text);
}

std::optional<int> Process::WaitForExit(std::chrono::milliseconds limit) {
  std::unique_lock hold(lock);
  changed.wait_for(hold, limit, [this] { return exitCode.has_value(); });
  return exitCode;
}

bool Process::Running() {
  const std::lock_guard hold(lock);
  return !exitCode.has_value();
}

void Process::Kill() {
  std::unique_lock hold(lock);
  CloseFd(lifeFd);
  changed.wait(hold, [this] { return exitCode.has_value(); });
}

void Process::Read(Stream& stream) {
  std::string piece(65536, '\0');
  for (;;) {
    const ssize_t count = read(stream.fd, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    const std::lock_guard hold(lock);
    if (count <= 0) {
      stream.ended = true;
      CloseFd(stream.fd);
      changed.notify_all();
      return;
    }
    stream.text.append(piece.data(), static_cast<std::size_t>(count));
    changed.notify_all();
  }
}

void Process::Watch() {
  int status = 0;
  while (waitpid(keeper, &status, 0) < 0 && errno == EINTR) {
  }
  const std::lock_guard hold(lock);
  exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  CloseFd(lifeFd);
  changed.notify_all();
}

}  // namespace corvalint::harness

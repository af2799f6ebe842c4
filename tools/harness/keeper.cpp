// corvalint-keeper LIFE_FD COMMAND ARGUMENT...
// Runs a command and everything it starts, daemons included, and lets none of it outlive either the
// command or the holder of the other end of LIFE_FD. Ends with the command's exit code, or with 128
// and the number of the signal that ended it.
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr int kHolderGone = 125;
constexpr int kCannotRun = 126;

// The parent of a process, 0 if it is gone.
pid_t ParentOf(const std::string& pid) {
  std::ifstream stat("/proc/" + pid + "/stat");
  std::string text;
  std::getline(stat, text);
  const std::size_t nameEnd = text.rfind(')');
  if (nameEnd == std::string::npos || nameEnd + 4 >= text.size()) return 0;
  return static_cast<pid_t>(std::strtol(text.c_str() + nameEnd + 4, nullptr, 10));
}

std::vector<pid_t> Children() {
  std::vector<pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (std::isdigit(static_cast<unsigned char>(name[0])) == 0) continue;
    if (ParentOf(name) == getpid()) {
      children.push_back(static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10)));
    }
  }
  return children;
}

// Orphans become children of this process, so the tree is gone when there are no children left.
void EndAll() {
  for (;;) {
    for (const pid_t child : Children()) kill(child, SIGKILL);
    const pid_t ended = waitpid(-1, nullptr, 0);
    if (ended < 0 && errno == ECHILD) return;
  }
}

pid_t Start(char** command, const sigset_t& formerMask) {
  const pid_t child = fork();
  if (child != 0) return child;
  sigprocmask(SIG_SETMASK, &formerMask, nullptr);
  execvp(command[0], command);
  _exit(kCannotRun);
}

// Reaps what has ended. True with the code once the command itself is among it.
bool CommandEnded(pid_t command, int& code) {
  bool over = false;
  int status = 0;
  for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
    if (ended != command) continue;
    over = true;
    code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return over;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return kCannotRun;
  const int lifeFd = std::atoi(argv[1]);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  sigset_t signals;
  sigset_t formerMask;
  sigemptyset(&signals);
  for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
  sigprocmask(SIG_BLOCK, &signals, &formerMask);
  const int signalFd = signalfd(-1, &signals, SFD_CLOEXEC);
  const pid_t command = Start(argv + 2, formerMask);
  if (command < 0 || signalFd < 0) return kCannotRun;
  // The command has its own copies; these would keep its pipes open.
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  int code = kHolderGone;
  for (;;) {
    pollfd waits[2] = {{lifeFd, POLLIN, 0}, {signalFd, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno != EINTR) break;
    if (waits[0].revents != 0) break;
    if (waits[1].revents == 0) continue;
    signalfd_siginfo info = {};
    if (read(signalFd, &info, sizeof(info)) != sizeof(info)) continue;
    if (info.ssi_signo != SIGCHLD) break;
    if (CommandEnded(command, code)) break;
  }
  EndAll();
  return code;
}

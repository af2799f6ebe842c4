#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>

#include "failing_tables.h"
#include "forwarding.h"
#include "platform/datagram.h"
#include "platform/library.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "simulated_time.h"

namespace corvalint::faults {

namespace {

std::string& HostFolder() {
  static auto* const folder = new std::string;
  return *folder;
}

int FailWith(int error) {
  errno = error;
  return -1;
}

// --- sockets

bool SocketFails(const char* function, int socket) {
  const OutsideScope outside;
  return Fails(Table::sockets, function, DeviceOfSocket(socket));
}

SocketReadiness Wait(int socket, bool wantWritable, int waker) {
  if (SocketFails("wait", socket)) {
    errno = EINVAL;
    SocketReadiness failed;
    failed.failed = true;
    return failed;
  }
  return WaitForSocket(socket, wantWritable, waker);
}

const SocketApi kSockets{
    CORVALINT_FAILS_WITH(Table::sockets, SocketApi, startUp, 10091),
    .wait = Wait,
    .receive =
        [](int socket, void* data, int size) {
          if (SocketFails("receive", socket)) return FailWith(ECONNRESET);
          return under<SocketApi>.receive(socket, data, size);
        },
    .send =
        [](int socket, const void* data, int size) {
          if (SocketFails("send", socket)) return FailWith(ENOBUFS);
          return under<SocketApi>.send(socket, data, size);
        },
    .setNonBlocking =
        [](int socket) {
          if (SocketFails("setNonBlocking", socket)) return FailWith(EINVAL);
          return under<SocketApi>.setNonBlocking(socket);
        },
    .setNoDelay =
        [](int socket) {
          if (SocketFails("setNoDelay", socket)) return FailWith(EINVAL);
          return under<SocketApi>.setNoDelay(socket);
        },
    .shutdown =
        [](int socket) {
          if (SocketFails("shutdown", socket)) return FailWith(ENOTCONN);
          return under<SocketApi>.shutdown(socket);
        },
    // The descriptor is gone even when the close tells of a failure.
    .close =
        [](int socket) {
          const bool fails = SocketFails("close", socket);
          const int result = under<SocketApi>.close(socket);
          return fails ? FailWith(EIO) : result;
        },
    .lastError = SocketApi::System().lastError,
    CORVALINT_FAILS_WITH(Table::sockets, SocketApi, openWaker, 0),
    .wake = SocketApi::System().wake,
    .closeWaker = SocketApi::System().closeWaker,
    .toNetworkOrder = SocketApi::System().toNetworkOrder,
};

// --- datagrams

std::array<std::atomic<std::uint16_t>, 65536> boundAt;

int Bind(int socket, std::uint16_t port) {
  const int result = under<DatagramApi>.bindLoopback(socket, 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (result == 0 && port != 0 &&
      getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    boundAt[port] = ntohs(address.sin_port);
  }
  return result;
}

const DatagramApi kDatagrams{
    .open =
        [] {
          if (Fails(Table::datagrams, "open datagram socket")) return FailWith(EMFILE);
          return under<DatagramApi>.open();
        },
    .bindLoopback =
        [](int socket, std::uint16_t port) {
          if (Fails(Table::datagrams, "bindLoopback")) return FailWith(EADDRINUSE);
          return Bind(socket, port);
        },
    .receive =
        [](int socket, void* data, int size) {
          if (Fails(Table::datagrams, "receive")) return FailWith(ECONNREFUSED);
          return under<DatagramApi>.receive(socket, data, size);
        },
    .send =
        [](int socket, const void* data, int size, std::uint32_t address, std::uint16_t port) {
          if (Fails(Table::datagrams, "send datagram")) return FailWith(ENETUNREACH);
          return under<DatagramApi>.send(socket, data, size, address, port);
        },
    .parseAddress =
        [](const std::string& text, std::uint32_t* address) {
          if (!Fails(Table::datagrams, "parseAddress")) {
            return under<DatagramApi>.parseAddress(text, address);
          }
          *address = 0;
          return false;
        },
};

// --- threads

const ThreadApi kThreads{
    .create = [](ThreadProcedure procedure, void* parameter, std::uint32_t* id) -> ThreadHandle {
      if (Fails(Table::threads, "create")) return nullptr;
      return MakeThread(procedure, parameter, id);
    },
    .terminate = ThreadApi::System().terminate,
    .close = ThreadApi::System().close,
    .currentId = ThreadApi::System().currentId,
};

// --- files

struct Cookie {
  static ssize_t Read(void* file, char* bytes, std::size_t size) {
    if (Fails(Table::fileBytes, "read")) return FailWith(EIO);
    return static_cast<ssize_t>(std::fread(bytes, 1, size, static_cast<std::FILE*>(file)));
  }
  // 0 tells of a failure.
  static ssize_t Write(void* file, const char* bytes, std::size_t size) {
    if (Fails(Table::fileBytes, "write")) return FailWith(ENOSPC), 0;
    const std::size_t written = std::fwrite(bytes, 1, size, static_cast<std::FILE*>(file));
    std::fflush(static_cast<std::FILE*>(file));
    return static_cast<ssize_t>(written);
  }
  static int Seek(void* file, off64_t* position, int from) {
    if (Fails(Table::fileBytes, "seek")) return FailWith(EIO);
    if (fseeko(static_cast<std::FILE*>(file), *position, from) != 0) return -1;
    *position = ftello(static_cast<std::FILE*>(file));
    return 0;
  }
  static int Close(void* file) { return std::fclose(static_cast<std::FILE*>(file)); }
};

std::FILE* OpenFile(const char* path, const char* mode) {
  // A host that does not know its own folder would write to the root of all folders.
  const bool elsewhere = std::string(path).rfind(HostFolder(), 0) != 0;
  if (Fails(Table::process, "openFile") || elsewhere) return nullptr;
  std::FILE* const file = under<ProcessApi>.openFile(path, mode);
  if (file == nullptr) return nullptr;
  return fopencookie(
      file, mode,
      {.read = Cookie::Read, .write = Cookie::Write, .seek = Cookie::Seek, .close = Cookie::Close});
}

std::string ExecutablePath() {
  if (Fails(Table::process, "executablePath")) return "";
  const OutsideScope outside;
  return HostFolder() + "\\host.exe";
}

const ProcessApi kProcess{
    .executablePath = ExecutablePath,
    .openFile = OpenFile,
    .pinModule = ProcessApi::System().pinModule,
    .sharpenTimers = ProcessApi::System().sharpenTimers,
    .ansiFromLatin1 =
        [](const std::string& latin1) {
          return Fails(Table::process, "ansiFromLatin1") ? std::string()
                                                         : under<ProcessApi>.ansiFromLatin1(latin1);
        },
};

// --- registry and libraries

const RegistryApi kRegistry{
    CORVALINT_FAILS_NAMED(Table::registry, RegistryApi, open, "open key", false),
    CORVALINT_FAILS_NAMED(Table::registry, RegistryApi, read, "read value", false),
    .close =
        [](RegistryKey* key) {
          const OutsideScope outside;
          under<RegistryApi>.close(key);
        },
};

const LibraryApi kLibraries{
    CORVALINT_FAILS_WITH(Table::libraries, LibraryApi, setDllDirectory, false),
    CORVALINT_FAILS_WITH(Table::libraries, LibraryApi, load, nullptr),
};

template <class Api>
void Wrap(const Api& table) {
  under<Api> = Use<Api>();
  Install<Api>(&table);
}

}  // namespace

std::uint16_t PortOnThisMachine(std::uint16_t port) { return boundAt[port]; }

void SetHostFolder(const std::string& folder) {
  HostFolder() = folder;
  for (char& character : HostFolder()) {
    if (character == '/') character = '\\';
  }
}

void WrapSystem() {
  Wrap(kSockets);
  Wrap(kDatagrams);
  Wrap(kThreads);
  Wrap(kProcess);
  Wrap(kRegistry);
  Wrap(kLibraries);
}

}  // namespace corvalint::faults

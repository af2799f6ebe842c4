// Runs on Windows or under Wine and shows that the system's tables do what their headers say.
// Exit status 0 when every check held; each one that did not is printed.

#include <io.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/library.h"
#include "platform/missing_libraries.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "platform/windows/system_headers.h"
#include "timing/scene_player.h"

namespace corvalint {
namespace {

int checks = 0;
int failures = 0;

void Check(bool held, const char* what, int line) {
  ++checks;
  if (held) return;
  ++failures;
  std::printf("line %d: %s\n", line, what);
}

#define CHECK(condition) Check((condition), #condition, __LINE__)

void CheckClock() {
  const ClockApi& clock = ClockApi::System();
  const std::int64_t before = clock.counter();
  clock.sleep(20);
  const std::int64_t ticks = clock.counter() - before;
  CHECK(ticks >= 15 * clock.frequency() / 1000);
  CHECK(ticks < 5 * clock.frequency());
  SYSTEMTIME expected{};
  GetLocalTime(&expected);
  CHECK(clock.localTime().year == expected.wYear);
}

struct Worker {
  CriticalSection section;
  int sum = 0;
  std::uint32_t ownId = 0;
  HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
};

std::uint32_t Work(void* parameter) {
  auto* const worker = static_cast<Worker*>(parameter);
  for (int i = 0; i < 10000; ++i) {
    const CriticalSectionScope scope(worker->section);
    ++worker->sum;
  }
  worker->ownId = ThreadApi::System().currentId();
  SetEvent(worker->done);
  return 7;
}

void CheckThreadsAndLocks() {
  const ThreadApi& threads = ThreadApi::System();
  Worker worker;
  std::uint32_t id = 0;
  const ThreadHandle handle = threads.create(Work, &worker, &id);
  CHECK(handle != nullptr && id != 0);
  for (int i = 0; i < 10000; ++i) {
    const CriticalSectionScope scope(worker.section);
    ++worker.sum;
  }
  CHECK(WaitForSingleObject(worker.done, 10000) == WAIT_OBJECT_0);
  CHECK(WaitForSingleObject(handle, 10000) == WAIT_OBJECT_0);
  DWORD result = 0;
  CHECK(GetExitCodeThread(handle, &result) && result == 7);
  CHECK(worker.sum == 20000);
  CHECK(worker.ownId == id && id != threads.currentId());
  threads.close(handle);
  CloseHandle(worker.done);

  const ThreadHandle endless = threads.create(
      [](void*) -> std::uint32_t {
        Sleep(INFINITE);
        return 0;
      },
      nullptr, nullptr);
  CHECK(WaitForSingleObject(endless, 20) == WAIT_TIMEOUT);
  threads.terminate(endless);
  CHECK(WaitForSingleObject(endless, 10000) == WAIT_OBJECT_0);
  CHECK(GetExitCodeThread(endless, &result) && result == 0);
  threads.close(endless);

  CriticalSection spinning(4000);
  CHECK(spinning.Initialised());
}

// A loopback stream; `far` accepts what `near` connects.
bool MakeStream(SOCKET& nearEnd, SOCKET& farEnd) {
  const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  nearEnd = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof address;
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  const bool connected = bind(listener, name, size) == 0 && listen(listener, 1) == 0 &&
                         getsockname(listener, name, &size) == 0 &&
                         connect(nearEnd, name, size) == 0;
  farEnd = connected ? accept(listener, nullptr, nullptr) : INVALID_SOCKET;
  closesocket(listener);
  return farEnd != INVALID_SOCKET;
}

void CheckWaits(int nearEnd, int farEnd, int waker) {
  const SocketApi& sockets = SocketApi::System();
  char data[8] = {};
  for (int i = 0; i < 100; ++i) sockets.wake(waker);
  SocketReadiness seen = sockets.wait(nearEnd, false, waker);
  CHECK(seen.woken && !seen.readable && !seen.failed && !seen.writable);
  seen = sockets.wait(nearEnd, true, waker);
  CHECK(seen.writable && !seen.readable && !seen.woken);
  CHECK(sockets.receive(nearEnd, data, 8) == -1);
  CHECK(sockets.lastError() == SocketError::wouldBlock);
  CHECK(sockets.send(farEnd, "abc", 3) == 3);
  seen = sockets.wait(nearEnd, false, waker);
  CHECK(seen.readable && !seen.woken);
  CHECK(sockets.receive(nearEnd, data, 8) == 3 && std::strcmp(data, "abc") == 0);
  CHECK(sockets.shutdown(farEnd) == 0 && sockets.close(farEnd) == 0);
  CHECK(sockets.wait(nearEnd, false, waker).readable);
  CHECK(sockets.receive(nearEnd, data, 8) == 0);
  sockets.wake(waker);
  CHECK(sockets.wait(0, false, waker).woken);
  CHECK(sockets.close(nearEnd) == 0);
  CHECK(sockets.wait(nearEnd, false, 0).failed && sockets.lastError() == SocketError::other);
  CHECK(sockets.wait(0, false, 0).failed);
}

struct Waiting {
  int socket;
  int waker;
};

std::uint32_t WaitUntilWoken(void* parameter) {
  const auto* const waiting = static_cast<Waiting*>(parameter);
  return SocketApi::System().wait(waiting->socket, false, waiting->waker).woken ? 1 : 2;
}

void CheckSockets() {
  const SocketApi& sockets = SocketApi::System();
  CHECK(sockets.startUp() == 0);
  CHECK(sockets.toNetworkOrder(0x1234) == 0x3412);
  SOCKET nearEnd = 0;
  SOCKET farEnd = 0;
  const bool made = MakeStream(nearEnd, farEnd);
  CHECK(made);
  const int waker = sockets.openWaker();
  CHECK(waker > 0);
  if (!made || waker <= 0) return;
  DWORD flags = HANDLE_FLAG_INHERIT;
  CHECK(GetHandleInformation(reinterpret_cast<HANDLE>(static_cast<SOCKET>(waker)), &flags) &&
        (flags & HANDLE_FLAG_INHERIT) == 0);

  const int nearSocket = static_cast<int>(nearEnd);
  Waiting waiting{nearSocket, waker};
  const ThreadHandle waiter = ThreadApi::System().create(WaitUntilWoken, &waiting, nullptr);
  CHECK(WaitForSingleObject(waiter, 50) == WAIT_TIMEOUT);
  sockets.wake(waker);
  CHECK(WaitForSingleObject(waiter, 10000) == WAIT_OBJECT_0);
  DWORD result = 0;
  CHECK(GetExitCodeThread(waiter, &result) && result == 1);
  ThreadApi::System().close(waiter);

  CHECK(sockets.setNonBlocking(nearSocket) == 0 && sockets.setNoDelay(nearSocket) == 0);
  CheckWaits(nearSocket, static_cast<int>(farEnd), waker);
  sockets.closeWaker(waker);
}

std::string Contents(const std::string& path, std::size_t most) {
  std::FILE* const file = ProcessApi::System().openFile(path.c_str(), "r");
  if (file == nullptr) return "not there";
  std::string text(most, '\0');
  text.resize(std::fread(text.data(), 1, most, file));
  std::fclose(file);
  return text;
}

void CheckFiles() {
  const ProcessApi& process = ProcessApi::System();
  const std::string executable = process.executablePath();
  CHECK(executable.find('/') == std::string::npos);
  CHECK(Contents(executable, 2) == "MZ");

  // Beside the executable, so that a folder with a name outside the code page is tried as well.
  const std::string path = executable + ".test";
  std::FILE* file = process.openFile(path.c_str(), "w");
  CHECK(file != nullptr);
  if (file == nullptr) return;
  std::fputs("one\ntwo\r\n\x1a", file);
  // A child process of the host must not keep the log open.
  DWORD handleFlags = HANDLE_FLAG_INHERIT;
  CHECK(
      GetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file))), &handleFlags) &&
      (handleFlags & HANDLE_FLAG_INHERIT) == 0);
  std::fclose(file);
  file = process.openFile(path.c_str(), "a+");
  CHECK(file != nullptr);
  if (file == nullptr) return;
  std::fputs("three\n", file);
  std::fclose(file);
  CHECK(Contents(path, 100) == "one\ntwo\r\n\x1athree\n");
  CHECK(process.openFile((executable + "\\none").c_str(), "r") == nullptr);

  wchar_t wide[1024];
  GetModuleFileNameW(nullptr, wide, 1024);
  CHECK(DeleteFileW((std::wstring(wide) + L".test").c_str()) != 0);
}

void CheckText() {
  const ProcessApi& process = ProcessApi::System();
  CHECK(process.ansiFromLatin1("Piano 1") == "Piano 1");
  CHECK(process.ansiFromLatin1("").empty());
  const std::string accented = process.ansiFromLatin1("\xe9");
  if (GetACP() == 1252) {
    CHECK(accented == "\xe9");
  } else if (GetACP() == CP_UTF8) {
    CHECK(accented == "\xc3\xa9");
  } else {
    std::printf("not checked: accented text in code page %u\n", GetACP());
  }
  process.pinModule();
  process.sharpenTimers();
}

void CheckRegistry() {
  const RegistryApi& registry = RegistryApi::System();
  RegistryKey key = nullptr;
  CHECK(!registry.open("SOFTWARE\\There is no such key", &key) && key == nullptr);
  CHECK(registry.open("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", &key) && key != nullptr);
  char text[64] = {};
  std::uint32_t size = sizeof text;
  std::uint32_t type = 1;
  CHECK(registry.read(key, "CurrentVersion", text, &size, &type));
  CHECK(type == 1 && size == std::strlen(text) + 1 && size > 1);
  size = sizeof text;
  CHECK(!registry.read(key, "There is no such value", text, &size, &type));
  registry.close(&key);
  CHECK(key == nullptr);
  registry.close(&key);
}

void CheckLibraries() {
  const LibraryApi& libraries = LibraryApi::System();
  CHECK(libraries.load("kernel32") != nullptr);
  CHECK(libraries.load("no such library") == nullptr);

  const WinMidiApi& midi = WinMidiApi::System();
  MidiInCaps caps{};
  CHECK(midi.midiInGetDevCapsA(4711, &caps, sizeof caps) == kMidiBadDevice);
  MidiOutHandle handle = nullptr;
  CHECK(midi.midiOutOpen(&handle, 4711, 0, 0, kMidiCallbackNull) == kMidiBadDevice);
}

// Compiled for Windows, the arithmetic of the clocks gives the bits that it gives elsewhere.
void CheckClockScenes() {
  for (const timing::ClockScene& scene : timing::ClockScenes()) {
    const std::vector<std::string> differences = timing::PlayScene(scene);
    for (const std::string& difference : differences) std::printf("%s\n", difference.c_str());
    CHECK(differences.empty());
  }
}

template <class Function>
Function FunctionOf(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// The product beside this program goes when its host lets go of it, but stays for ever once it was
// started: its threads and the callbacks that it has given away run on.
void CheckProduct() {
  constexpr const char* kProduct = "corvalint_wrapper.dll";
  HMODULE product = LoadLibraryA(kProduct);
  CHECK(product != nullptr);
  CHECK(FreeLibrary(product));
  CHECK(GetModuleHandleA(kProduct) == nullptr);

  product = LoadLibraryA(kProduct);
  CHECK(product != nullptr);
  if (product == nullptr) return;
  FunctionOf<void (*)()>(product, "corvalintServerStart")();
  for (int i = 0; i < 3; ++i) FreeLibrary(product);
  CHECK(GetModuleHandleA(kProduct) == product);
  CHECK(FunctionOf<int (*)()>(product, "corvalintServerWiFiClients")() == 14);
}

}  // namespace
}  // namespace corvalint

int main() {
  using namespace corvalint;
  CheckClock();
  CheckThreadsAndLocks();
  CheckSockets();
  CheckFiles();
  CheckText();
  CheckRegistry();
  CheckLibraries();
  CheckClockScenes();
  CheckProduct();
  std::printf("%d of %d checks failed\n", failures, checks);
  return failures == 0 ? 0 : 1;
}

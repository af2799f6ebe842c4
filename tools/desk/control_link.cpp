// Connects the process to the test that drives it, and starts with the first stand-in that is
// loaded.
#include <winsock2.h>
// winsock2.h before windows.h
#include <windows.h>

#include <string>
#include <thread>

#include "call_book.h"
#include "commands.h"
#include "outbox.h"
#include "stand_in.h"

namespace corvalint::desk {

namespace {

// The environment variable "127.0.0.1:PORT"; port 0 if there is none.
unsigned short ControlPort() {
  char value[64] = {};
  const DWORD length = GetEnvironmentVariableA("CORVALINT_DESK_CONTROL", value, sizeof(value));
  if (length == 0 || length >= sizeof(value)) return 0;
  const std::string text(value, length);
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return 0;
  return static_cast<unsigned short>(std::strtoul(text.c_str() + colon + 1, nullptr, 10));
}

SOCKET ConnectTo(unsigned short port) {
  const SOCKET link = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (link == INVALID_SOCKET ||
      connect(link, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    return INVALID_SOCKET;
  }
  const BOOL on = TRUE;
  setsockopt(link, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof(on));
  return link;
}

void WriteLines(SOCKET link) {
  std::string lines;
  while (Outbox::Get().Take(lines)) {
    std::size_t sent = 0;
    while (sent < lines.size()) {
      const std::size_t left = lines.size() - sent;
      const int chunk = left > 1'000'000 ? 1'000'000 : static_cast<int>(left);
      const int done = send(link, lines.data() + sent, chunk, 0);
      if (done <= 0) {
        Outbox::Get().SetConnected(false);
        return;
      }
      sent += static_cast<std::size_t>(done);
    }
  }
}

void ReadCommands(SOCKET link) {
  std::string input;
  std::string piece(65536, '\0');
  for (;;) {
    const int count = recv(link, piece.data(), static_cast<int>(piece.size()), 0);
    if (count <= 0) return;
    const std::size_t searched = input.size();
    input.append(piece.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end = input.find('\n', searched); end != std::string::npos;
         end = input.find('\n', start)) {
      Outbox::Get().Line(RunCommandLine(std::string_view(input).substr(start, end - start)));
      start = end + 1;
    }
    input.erase(0, start);
  }
}

DWORD WINAPI LinkThread(void*) {
  constexpr UINT kNoControl = 97;
  constexpr UINT kControlLost = 98;
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  const SOCKET link = ConnectTo(ControlPort());
  if (link == INVALID_SOCKET) TerminateProcess(GetCurrentProcess(), kNoControl);
  Outbox::Get().SetConnected(true);
  std::thread writer([link] { WriteLines(link); });
  Outbox::Get().Event("desk");
  ReadCommands(link);
  // Without its test nobody would ever end this process.
  TerminateProcess(GetCurrentProcess(), kControlLost);
  writer.join();
  return 0;
}

}  // namespace

}  // namespace corvalint::desk

// Referenced by every stand-in, so that each brings the desk with it.
DESK_EXPORT void DeskAttach() {}

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void*) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  DisableThreadLibraryCalls(module);
  if (corvalint::desk::ControlPort() == 0) {
    corvalint::desk::CallBook::Get().OpenDesk();
    return TRUE;
  }
  // The thread begins once the loader is done; nothing here waits for it.
  const HANDLE thread = CreateThread(nullptr, 0, corvalint::desk::LinkThread, nullptr, 0, nullptr);
  if (thread != nullptr) CloseHandle(thread);
  return thread != nullptr;
}

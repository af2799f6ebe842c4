// A small program that uses the stand-ins the way the product does: winmm through its import table,
// the others by their names at run time. Commands come by standard input, one JSON line on standard
// error answers each. It holds one input, one output and one port.
#include <winsock2.h>
// winsock2.h before windows.h
#include <windows.h>
// windows.h first
#include <mmsystem.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "selftest_stress.h"
#include "selftest_support.h"
#include "text.h"

namespace {

using corvalint::desk::Bind;
using corvalint::desk::Hear;
using corvalint::desk::HeardJson;
using corvalint::desk::HexOf;
using corvalint::desk::Stress;

using Words = std::vector<std::string>;

std::atomic<DWORD> callbackMs = 0;  // how long a callback takes
std::atomic<int> callbacksInside = 0;
std::atomic<bool> requeue = true;

HMIDIIN input = nullptr;
HMIDIOUT output = nullptr;
MIDIHDR headers[4];
char blocks[4][256];
MIDIHDR outHeader;
char outBlock[256];

void CALLBACK OnInput(HMIDIIN handle, UINT message, DWORD_PTR, DWORD_PTR first, DWORD_PTR) {
  ++callbacksInside;
  if (callbackMs != 0) Sleep(callbackMs);
  if (message == MIM_DATA || message == MIM_ERROR) {
    Hear((message == MIM_DATA ? "short " : "short-error ") + HexOf(&first, 3));
  } else if (message == MIM_LONGDATA || message == MIM_LONGERROR) {
    auto* header = reinterpret_cast<MIDIHDR*>(first);
    Hear((message == MIM_LONGDATA ? "long " : "long-error ") +
         HexOf(header->lpData, header->dwBytesRecorded));
    if (header->dwBytesRecorded != 0 && requeue) midiInAddBuffer(handle, header, sizeof(*header));
  } else {
    Hear(message == MIM_OPEN ? "open" : "close");
  }
  --callbacksInside;
}

std::string RegistryText(const char* key, const char* value) {
  char text[4096] = {};
  DWORD size = sizeof(text);
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &opened) != ERROR_SUCCESS) return {};
  DWORD type = REG_SZ;
  RegQueryValueExA(opened, value, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(opened);
  return text;
}

long long LoadLibraries(const Words&) {
  const std::string folder =
      RegistryText("SOFTWARE\\Apple Inc.\\Apple Application Support", "InstallDir");
  const std::string library = RegistryText(
      "SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared", "iTunesMobileDeviceDLL");
  SetDllDirectoryA(folder.c_str());
  int loaded = 0;
  for (const std::string& name : {std::string("ASL"), std::string("CoreFoundation"), library,
                                  std::string("teVirtualMIDI64")}) {
    if (LoadLibraryA(name.c_str()) != nullptr) ++loaded;
  }
  return loaded;
}

struct Notification {
  void* device;
  std::uint32_t kind;
};
void* lastDevice = nullptr;

void OnNotification(Notification* notification, void*) {
  lastDevice = notification->device;
  Hear("notification " + std::to_string(notification->kind));
}

long long Subscribe(const Words&) {
  using Function =
      std::uint32_t (*)(void (*)(Notification*, void*), unsigned, unsigned, unsigned, void**);
  void* handle = nullptr;
  return Bind<Function>("iTunesMobileDevice", "AMDeviceNotificationSubscribe")(OnNotification, 0, 0,
                                                                               0, &handle);
}

void OnDfu(void*, void*) { Hear("dfu-connect"); }

long long RegisterRestore(const Words&) {
  using Callback = void (*)(void*, void*);
  using Function = std::uint32_t (*)(Callback, Callback, Callback, Callback, unsigned, void*);
  return Bind<Function>("iTunesMobileDevice", "AMRestoreRegisterForDeviceNotifications")(
      OnDfu, nullptr, nullptr, nullptr, 0, nullptr);
}

long long Identifier(const Words&) {
  const auto copy =
      Bind<const void* (*)(void*)>("iTunesMobileDevice", "AMDeviceCopyDeviceIdentifier");
  const auto text = Bind<unsigned char (*)(const void*, char*, long long, unsigned)>(
      "CoreFoundation", "CFStringGetCString");
  const void* string = copy(lastDevice);
  if (string == nullptr) return 0;
  char buffer[128] = {};
  const int result = text(string, buffer, sizeof(buffer), 0x0600);
  Hear("identifier " + std::string(buffer));
  Bind<void (*)(const void*)>("CoreFoundation", "CFRelease")(string);
  return result;
}

// Opens the stream to the device, sends "hello" and waits for as many bytes.
long long Stream(const Words&) {
  const char* const library = "iTunesMobileDevice";
  if (Bind<std::uint32_t (*)(void*)>(library, "AMDeviceConnect")(lastDevice) != 0) return -1;
  const auto id = Bind<std::uint32_t (*)(void*)>(library, "AMDeviceGetConnectionID")(lastDevice);
  int stream = 0;
  const auto open =
      Bind<std::uint32_t (*)(std::uint32_t, std::uint32_t, int*)>(library, "USBMuxConnectByPort");
  const std::uint32_t result = open(id, htons(23451), &stream);
  if (result != 0) return static_cast<long long>(result);
  const SOCKET socket = static_cast<SOCKET>(stream);
  send(socket, "hello", 5, 0);
  char answer[5] = {};
  const int count = recv(socket, answer, sizeof(answer), MSG_WAITALL);
  Hear("stream " + std::string(answer, count > 0 ? static_cast<std::size_t>(count) : 0));
  closesocket(socket);
  return 0;
}

void* port = nullptr;

void CALLBACK OnPort(void*, BYTE* data, DWORD length, DWORD_PTR) {
  ++callbacksInside;
  if (callbackMs != 0) Sleep(callbackMs);
  Hear("port " + HexOf(data, length));
  --callbacksInside;
}

long long CreatePort(const Words& words) {
  using Callback = void(CALLBACK*)(void*, BYTE*, DWORD, DWORD_PTR);
  using Function = void*(WINAPI*)(LPCWSTR, Callback, DWORD_PTR, DWORD, DWORD);
  std::wstring name;
  for (const char letter : words.at(1)) name.push_back(static_cast<unsigned char>(letter));
  SetLastError(0);
  port = Bind<Function>("teVirtualMIDI64", "virtualMIDICreatePortEx2")(name.c_str(), OnPort, 0,
                                                                       65535, 1);
  return port != nullptr ? 0 : static_cast<long long>(GetLastError());
}

long long SendToPort(const Words& words) {
  const auto send =
      Bind<BOOL(WINAPI*)(void*, BYTE*, DWORD)>("teVirtualMIDI64", "virtualMIDISendData");
  std::string bytes = words.at(1);
  long long sent = 0;
  for (int i = 0; i < std::stoi(words.at(2)); ++i) {
    sent += send(port, reinterpret_cast<BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()));
  }
  return sent;
}

// Sends bytes in hex at once.
long long PlayPort(const Words& words) {
  const auto send =
      Bind<BOOL(WINAPI*)(void*, BYTE*, DWORD)>("teVirtualMIDI64", "virtualMIDISendData");
  corvalint::desk::Bytes bytes = corvalint::desk::BytesFromHex(words.at(1));
  return send(port, bytes.data(), static_cast<DWORD>(bytes.size()));
}

long long ClosePort(const Words&) {
  Bind<void(WINAPI*)(void*)>("teVirtualMIDI64", "virtualMIDIClosePort")(port);
  return callbacksInside;
}

long long OpenInput(const Words& words) {
  return midiInOpen(&input, static_cast<UINT>(std::stoul(words.at(1))),
                    reinterpret_cast<DWORD_PTR>(&OnInput), 0, CALLBACK_FUNCTION);
}

long long QueueBuffers(const Words&) {
  for (int i = 0; i < 4; ++i) {
    headers[i] = {};
    headers[i].lpData = blocks[i];
    headers[i].dwBufferLength = sizeof(blocks[i]);
    MMRESULT result = midiInPrepareHeader(input, &headers[i], sizeof(MIDIHDR));
    if (result == 0) result = midiInAddBuffer(input, &headers[i], sizeof(MIDIHDR));
    if (result != 0) return result;
  }
  return 0;
}

long long UnprepareInput(const Words&) {
  for (MIDIHDR& header : headers) {
    const MMRESULT result = midiInUnprepareHeader(input, &header, sizeof(header));
    if (result != 0) return result;
  }
  return 0;
}

long long SendLong(const Words& words) {
  outHeader = {};
  words.at(1).copy(outBlock, sizeof(outBlock));
  outHeader.lpData = outBlock;
  outHeader.dwBufferLength = static_cast<DWORD>(words.at(1).size());
  MMRESULT result = midiOutPrepareHeader(output, &outHeader, sizeof(outHeader));
  if (result == 0) result = midiOutLongMsg(output, &outHeader, sizeof(outHeader));
  return result;
}

long long SendUnprepared(const Words&) {
  MIDIHDR header = {};
  header.lpData = outBlock;
  header.dwBufferLength = 3;
  return midiOutLongMsg(output, &header, sizeof(header));
}

// The names that winmm lists, in hex, with "in" or "out" before each.
long long ListNames(const Words&) {
  for (UINT i = 0; i < midiInGetNumDevs(); ++i) {
    MIDIINCAPSA caps;
    if (midiInGetDevCapsA(i, &caps, sizeof(caps)) == 0) Hear(std::string("in ") + caps.szPname);
  }
  for (UINT i = 0; i < midiOutGetNumDevs(); ++i) {
    MIDIOUTCAPSA caps;
    if (midiOutGetDevCapsA(i, &caps, sizeof(caps)) == 0) Hear(std::string("out ") + caps.szPname);
  }
  return midiOutGetDevCapsA(99, nullptr, 0);
}

// Takes so many bytes from the heap, in place of what was taken so before.
long long Take(const Words& words) {
  static std::vector<char> taken;
  taken = std::vector<char>(std::stoul(words.at(1)));
  return 0;
}

using Action = std::function<long long(const Words&)>;

std::map<std::string, Action> Actions() {
  std::map<std::string, Action> table = {
      {"libraries", LoadLibraries}, {"subscribe", Subscribe},
      {"restore", RegisterRestore}, {"identifier", Identifier},
      {"stream", Stream},           {"create-port", CreatePort},
      {"send-port", SendToPort},    {"play-port", PlayPort},
      {"close-port", ClosePort},    {"open-input", OpenInput},
      {"queue", QueueBuffers},      {"unprepare", UnprepareInput},
      {"send-long", SendLong},      {"send-unprepared", SendUnprepared},
      {"names", ListNames},         {"take", Take},
  };
  table["stress"] = [](const Words& words) { return Stress(std::stoull(words.at(1))); };
  table["start"] = [](const Words&) { return midiInStart(input); };
  table["stop"] = [](const Words&) { return midiInStop(input); };
  // Resets and closes tell how many callbacks are inside when they return, times 1000.
  table["reset"] = [](const Words&) {
    const MMRESULT result = midiInReset(input);
    return result + 1000LL * callbacksInside;
  };
  table["close-input"] = [](const Words&) {
    const MMRESULT result = midiInClose(input);
    return result + 1000LL * callbacksInside;
  };
  table["open-output"] = [](const Words& words) {
    return midiOutOpen(&output, static_cast<UINT>(std::stoul(words.at(1))), 0, 0, CALLBACK_NULL);
  };
  table["unprepare-output"] = [](const Words&) {
    return midiOutUnprepareHeader(output, &outHeader, sizeof(outHeader));
  };
  table["reset-output"] = [](const Words&) { return midiOutReset(output); };
  table["close-output"] = [](const Words&) { return midiOutClose(output); };
  table["null-output"] = [](const Words&) { return midiOutReset(nullptr); };
  table["slow"] = [](const Words& words) {
    callbackMs = static_cast<DWORD>(std::stoul(words.at(1)));
    return 0;
  };
  table["requeue"] = [](const Words& words) {
    requeue = words.at(1) == "1";
    return 0;
  };
  table["inside"] = [](const Words&) { return callbacksInside.load(); };
  return table;
}

}  // namespace

int main() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  const auto actions = Actions();
  std::cerr << "{\"ready\":true}" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream stream(line);
    Words words;
    for (std::string word; stream >> word;) words.push_back(word);
    if (words.empty()) continue;
    if (words[0] == "quit") return 7;
    try {
      if (words[0] == "heard") {
        std::cerr << HeardJson() << std::endl;
      } else {
        std::cerr << "{\"value\":" << actions.at(words[0])(words) << "}" << std::endl;
      }
    } catch (const std::exception& error) {
      std::cerr << "{\"error\":\"" << error.what() << "\"}" << std::endl;
    }
  }
  return 0;
}

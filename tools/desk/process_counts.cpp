#include <winsock2.h>
// winsock2.h before windows.h
#include "process_counts.h"

#include <psapi.h>
#include <tlhelp32.h>

namespace corvalint::desk {

namespace {

// GetProcessHandleCount answers 0 under Wine, so the handle table is walked. Handles are given out
// from the lowest free number, in steps of 4.
constexpr std::uintptr_t kLastHandle = 0x8000;

bool IsSocket(std::uintptr_t handle) {
  int type = 0;
  int size = sizeof(type);
  return getsockopt(static_cast<SOCKET>(handle), SOL_SOCKET, SO_TYPE,
                    reinterpret_cast<char*>(&type), &size) == 0;
}

std::uint32_t CountThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return 0;
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  std::uint32_t count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

}  // namespace

ProcessCounts CountProcess() {
  ProcessCounts counts;
  for (std::uintptr_t handle = 4; handle <= kLastHandle; handle += 4) {
    DWORD flags = 0;
    if (!GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags)) continue;
    ++counts.handles;
    if (IsSocket(handle)) ++counts.sockets;
  }
  counts.threads = CountThreads();
  PROCESS_MEMORY_COUNTERS memory = {};
  if (GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory))) {
    counts.workingSet = memory.WorkingSetSize;
  }
  return counts;
}

}  // namespace corvalint::desk

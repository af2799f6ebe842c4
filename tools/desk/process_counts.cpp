#include <winsock2.h>
// winsock2.h before windows.h
#include "process_counts.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <array>

#include "own_heap.h"

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

// Of all heaps of the process. A heap stands still while it is walked, so nothing is taken from it.
std::uint64_t CountHeapBytes() {
  std::array<HANDLE, 64> heaps = {};
  const DWORD there = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
  if (there > heaps.size()) return 0;  // nothing rather than a part
  std::uint64_t bytes = 0;
  for (DWORD i = 0; i < there; ++i) {
    if (!HeapLock(heaps[i])) return 0;
    PROCESS_HEAP_ENTRY entry = {};
    while (HeapWalk(heaps[i], &entry)) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
    }
    HeapUnlock(heaps[i]);
  }
  return bytes;
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
  counts.deskHeapBytes = OwnHeapBytes();
  counts.heapBytes = CountHeapBytes();
  return counts;
}

}  // namespace corvalint::desk

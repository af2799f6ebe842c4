#include <winsock2.h>
// winsock2.h before windows.h
#include "process_counts.h"

#include <psapi.h>

#include <algorithm>
#include <array>
#include <vector>

#include "own_heap.h"
#include "windows/process_counts.h"

namespace corvalint::desk {

namespace {

bool IsSocket(std::uintptr_t handle) {
  int type = 0;
  int size = sizeof(type);
  return getsockopt(static_cast<SOCKET>(handle), SOL_SOCKET, SO_TYPE,
                    reinterpret_cast<char*>(&type), &size) == 0;
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
  const std::vector<std::uintptr_t> handles = windows::OpenHandles();
  counts.handles = handles.size();
  counts.sockets =
      static_cast<std::size_t>(std::count_if(handles.begin(), handles.end(), IsSocket));
  counts.threads = windows::CountThreads();
  PROCESS_MEMORY_COUNTERS memory = {};
  if (GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory))) {
    counts.workingSet = memory.WorkingSetSize;
  }
  counts.deskHeapBytes = OwnHeapBytes();
  counts.heapBytes = CountHeapBytes();
  return counts;
}

}  // namespace corvalint::desk

#include "windows/process_counts.h"

#include <windows.h>
// Needs windows.h before it.
#include <tlhelp32.h>

#include <cstring>
#include <stdexcept>

namespace corvalint::windows {

namespace {

// The system's table of all open handles, as its native interface lays it out.
struct HandleEntry {
  void* object;
  ULONG_PTR processId;
  ULONG_PTR handle;
  ULONG access;
  USHORT creator;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};
struct HandleTable {
  ULONG_PTR count;
  ULONG_PTR reserved;
};
static_assert(sizeof(HandleEntry) == 40 && sizeof(HandleTable) == 16);

// The table and its entries, in a buffer that is larger than they are.
std::vector<char> ReadHandleTable() {
  using QuerySystem = LONG(WINAPI*)(int kind, void* data, ULONG size, ULONG* needed);
  constexpr int kExtendedHandleInformation = 64;
  constexpr LONG kInfoLengthMismatch = static_cast<LONG>(0xC0000004);
  const FARPROC address =
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation");
  const auto query = reinterpret_cast<QuerySystem>(reinterpret_cast<void*>(address));
  std::vector<char> data(std::size_t{1} << 16);
  LONG status = kInfoLengthMismatch;
  while (query != nullptr && status == kInfoLengthMismatch &&
         data.size() < (std::size_t{1} << 30)) {
    data.resize(data.size() * 2);
    status =
        query(kExtendedHandleInformation, data.data(), static_cast<ULONG>(data.size()), nullptr);
  }
  if (status != 0) throw std::runtime_error("the handles cannot be counted");
  return data;
}

}  // namespace

// GetProcessHandleCount would do on Windows, but under Wine it succeeds and says 0 for any process.
std::vector<std::uintptr_t> OpenHandles() {
  const std::vector<char> data = ReadHandleTable();
  HandleTable table;
  std::memcpy(&table, data.data(), sizeof table);
  std::vector<std::uintptr_t> own;
  for (std::size_t index = 0; index < table.count; ++index) {
    HandleEntry entry;
    std::memcpy(&entry, data.data() + sizeof table + index * sizeof entry, sizeof entry);
    if (entry.processId == GetCurrentProcessId()) own.push_back(entry.handle);
  }
  return own;
}

std::size_t CountThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) throw std::runtime_error("the threads cannot be listed");
  std::size_t count = 0;
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

}  // namespace corvalint::windows

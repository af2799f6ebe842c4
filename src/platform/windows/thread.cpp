#include "platform/thread.h"

#include "platform/windows/system_headers.h"

namespace corvalint {
namespace {

// A thread procedure is called by the system as it stands: the same convention and the same widths.
static_assert(sizeof(DWORD) == sizeof(std::uint32_t));
static_assert(sizeof(void*) == 8);

ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  const auto entry = reinterpret_cast<LPTHREAD_START_ROUTINE>(procedure);
  DWORD newId = 0;
  const HANDLE handle = CreateThread(nullptr, 0, entry, parameter, 0, &newId);
  if (handle != nullptr && id != nullptr) *id = newId;
  return handle;
}

void Terminate(ThreadHandle handle) { TerminateThread(handle, 0); }

void Close(ThreadHandle handle) { CloseHandle(handle); }

std::uint32_t CurrentId() { return GetCurrentThreadId(); }

}  // namespace

const ThreadApi& ThreadApi::System() {
  static constexpr ThreadApi table{
      .create = Create, .terminate = Terminate, .close = Close, .currentId = CurrentId};
  return table;
}

}  // namespace corvalint

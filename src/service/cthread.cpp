#include "service/cthread.h"

#include <exception>

#include "platform/critical_section.h"
#include "service/immortal.h"
#include "service/log.h"

namespace corvalint {

namespace {

// Held while a thread is made and its handle stored, and passed by the new thread before it runs:
// so the object knows its thread before that thread can delete it.
CriticalSection& StartGate() {
  static Immortal<CriticalSection> gate;
  return gate.Get();
}

}  // namespace

std::uint32_t CThread::Run() { return 0; }

void CThread::Stop() { running = false; }

void CThread::Start() {
  if (running.exchange(true)) return;
  if (!MakeThread()) LogError("thread could not be started");
}

bool CThread::MakeThread() {
  CriticalSectionScope gate(StartGate());
  std::uint32_t id = 0;
  const ThreadHandle handle = Use<ThreadApi>().create(ThreadProc, this, &id);
  if (handle == nullptr) return false;
  threadHandle = handle;
  threadId = id;
  return true;
}

CThread::~CThread() {
  running = false;
  const ThreadHandle handle = threadHandle.exchange(nullptr);
  if (handle == nullptr) return;
  const ThreadApi& threads = Use<ThreadApi>();
  if (threads.currentId() != threadId) threads.terminate(handle);
  threads.close(handle);
}

void CThread::LeaveThread() {
  const ThreadHandle handle = threadHandle.exchange(nullptr);
  if (handle != nullptr) Use<ThreadApi>().close(handle);
}

std::uint32_t ThreadProc(void* parameter) {
  { CriticalSectionScope gate(StartGate()); }
  try {
    static_cast<CThread*>(parameter)->Run();
  } catch (const std::exception& failure) {
    LogError("thread ended by an exception: %s", failure.what());
  } catch (...) {
    LogError("thread ended by an unknown exception");
  }
  return 0;
}

}  // namespace corvalint

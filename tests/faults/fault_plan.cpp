#include "fault_plan.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace corvalint::faults {

namespace {

Plan thePlan;
Report* theReport = nullptr;
std::atomic<bool> failing{false};
std::atomic<const char*> failingFunction{nullptr};
std::atomic<const char*> theStep{""};
thread_local bool insideNow = false;

void NoteFirst(const char* function, int device) {
  std::snprintf(theReport->function.data(), theReport->function.size(), "%s", function);
  std::snprintf(theReport->step.data(), theReport->step.size(), "%s", theStep.load());
  theReport->touchedDevice = device;
#if defined(__SANITIZE_ADDRESS__)
  if (std::getenv("FAULT_STACK") != nullptr) __sanitizer_print_stack_trace();
#endif
}

bool Chosen(std::uint64_t number, const char* function) {
  switch (thePlan.mode) {
    case Mode::none:
      return false;
    case Mode::once:
      return number == thePlan.call;
    case Mode::lasting:
      return number >= thePlan.call;
    case Mode::function:
      if (number == thePlan.call) failingFunction = function;
      const char* const chosen = failingFunction;
      return chosen != nullptr && std::strcmp(chosen, function) == 0;
  }
  return false;
}

template <std::size_t size>
void AddLine(std::array<char, size>& lines, const char* format, va_list arguments) {
  static std::mutex mutex;
  const std::lock_guard hold(mutex);
  const std::size_t used = std::strlen(lines.data());
  std::vsnprintf(lines.data() + used, size - used, format, arguments);
  std::strncat(lines.data(), "\n", size - std::strlen(lines.data()) - 1);
}

}  // namespace

const char* NameOf(Table table) {
  static constexpr std::array<const char*, kTables> kNames{
      "winmm",   "virtual MIDI", "mobile device", "sockets",   "datagrams", "threads",
      "process", "file bytes",   "registry",      "libraries", "mutexes",   "allocation"};
  return kNames[static_cast<std::size_t>(table)];
}

void Begin(const Plan& plan, Report& report) {
  thePlan = plan;
  theReport = &report;
  failing = true;
}

void EndFaults() { failing = false; }

void SetStep(const char* step) { theStep = step; }

bool FirstFailed(const char* function) {
  return std::strcmp(theReport->function.data(), function) == 0;
}

int TouchedDevice() { return theReport->touchedDevice; }

void Complain(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  AddLine(theReport->complaints, format, arguments);
  va_end(arguments);
}

void Miss(const char* step) {
  const auto add = [](const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    AddLine(theReport->missed, format, arguments);
    va_end(arguments);
  };
  add("%s", step);
}

bool Fails(Table table, const char* function, int device) {
  if (!failing) return false;
  const std::uint64_t number = ++theReport->calls[static_cast<std::size_t>(table)];
  if (table != thePlan.table || !Chosen(number, function)) return false;
  if (theReport->failed++ == 0) NoteFirst(function, device);
  return true;
}

bool Inside() { return insideNow; }

template <bool inside>
Side<inside>::Side() : before(insideNow) {
  insideNow = inside;
}
template <bool inside>
Side<inside>::~Side() {
  insideNow = before;
}
template class Side<true>;
template class Side<false>;

}  // namespace corvalint::faults

// --- the heap

namespace {

void* Allocate(std::size_t size) noexcept {
  namespace faults = corvalint::faults;
  if (faults::Inside()) {
    const faults::OutsideScope outside;
    if (faults::Fails(faults::Table::allocation, "operator new")) return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size) {
  if (void* const memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

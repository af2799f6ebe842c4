// Loads the DLL from this program's folder and starts the service, and tells how long that took, in
// microseconds.
#include <windows.h>

#include <cstdio>

namespace {

double Microseconds(const LARGE_INTEGER& begin, const LARGE_INTEGER& end) {
  LARGE_INTEGER frequency;
  QueryPerformanceFrequency(&frequency);
  return static_cast<double>(end.QuadPart - begin.QuadPart) * 1e6 /
         static_cast<double>(frequency.QuadPart);
}

}  // namespace

int main() {
  LARGE_INTEGER begin;
  LARGE_INTEGER loaded;
  LARGE_INTEGER started;
  QueryPerformanceCounter(&begin);
  const HMODULE library = LoadLibraryW(L"corvalint_wrapper.dll");
  if (library == nullptr) return 1;
  const FARPROC start = GetProcAddress(library, "corvalintServerStart");
  if (start == nullptr) return 1;
  QueryPerformanceCounter(&loaded);
  reinterpret_cast<void (*)()>(reinterpret_cast<void*>(start))();
  QueryPerformanceCounter(&started);
  std::fprintf(stderr, "%.1f %.1f\n", Microseconds(begin, loaded), Microseconds(begin, started));
  std::fflush(stderr);
  TerminateProcess(GetCurrentProcess(), 0);
}

// Makes a host of corvalint-host's sources whose library reads the performance counter from the
// file counter.bin beside it: eight bytes that a test writes while the host runs. The library
// itself is the shipped one; only where its import of QueryPerformanceCounter points is changed,
// once it is loaded and before anything of it is called.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const volatile std::int64_t* counter = nullptr;

BOOL WINAPI ReadCounter(LARGE_INTEGER* value) {
  value->QuadPart = *counter;
  return TRUE;
}

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "clocked host: %s\n", what);
  std::exit(3);
}

std::wstring BesideProgram(const wchar_t* name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring program = path;
  return program.substr(0, program.rfind(L'\\') + 1) + name;
}

const std::int64_t* MapCounter() {
  const HANDLE file =
      CreateFileW(BesideProgram(L"counter.bin").c_str(), GENERIC_READ | GENERIC_WRITE,
                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) Fail("no counter.bin");
  // Not read-only, so that it is the file's own memory.
  const HANDLE mapping =
      CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, sizeof(std::int64_t), nullptr);
  void* const view = mapping == nullptr ? nullptr : MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0);
  if (view == nullptr) Fail("counter.bin cannot be mapped");
  return static_cast<const std::int64_t*>(view);
}

// Where the module keeps the address of the function that it imports under that name.
void** ImportOf(HMODULE module, const char* name) {
  auto* const base = reinterpret_cast<std::byte*>(module);
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* library =
      reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; library->Name != 0; ++library) {
    const auto* named =
        reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + library->OriginalFirstThunk);
    auto* bound = reinterpret_cast<void**>(base + library->FirstThunk);
    for (; named->u1.AddressOfData != 0; ++named, ++bound) {
      if (IMAGE_SNAP_BY_ORDINAL64(named->u1.Ordinal)) continue;
      const auto* const import =
          reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + named->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) == 0) return bound;
    }
  }
  return nullptr;
}

bool LoadWithCounter() {
  counter = MapCounter();
  const HMODULE library = LoadLibraryW(BesideProgram(L"corvalint_wrapper.dll").c_str());
  if (library == nullptr) Fail("the library cannot be loaded");
  void** const import = ImportOf(library, "QueryPerformanceCounter");
  DWORD before = 0;
  if (import == nullptr || VirtualProtect(import, sizeof(void*), PAGE_READWRITE, &before) == 0) {
    Fail("the library's import cannot be changed");
  }
  *import = reinterpret_cast<void*>(&ReadCounter);
  VirtualProtect(import, sizeof(void*), before, &before);
  return true;
}

// Before the host's own main function loads the library a second time.
[[maybe_unused]] const bool loaded = LoadWithCounter();

}  // namespace

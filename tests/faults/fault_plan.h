#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace corvalint::faults {

// Where calls leave the library; calls are counted for each by itself.
enum class Table {
  winMidi,
  virtualMidi,
  mobileDevice,
  sockets,
  datagrams,
  threads,
  process,
  fileBytes,
  registry,
  libraries,
  mutexes,
  allocation,
};
inline constexpr std::size_t kTables = 12;

const char* NameOf(Table table);

// Tables as bits of one number.
using TableSet = std::uint32_t;
template <class... Tables>
constexpr TableSet SetOf(Tables... tables) {
  return (TableSet{0} | ... | (TableSet{1} << static_cast<unsigned>(tables)));
}

// Which calls of one table fail: none, number `call` alone, it and all after it, or it and all
// later ones of the same function.
enum class Mode { none, once, lasting, function };

struct Plan {
  Table table = Table::winMidi;
  Mode mode = Mode::none;
  std::uint64_t call = 0;  // from 1
};

// What one run of the scenario was like. Lies in memory that the process of the run shares with the
// one that judges it, and survives a crash.
struct Report {
  std::array<std::atomic<std::uint64_t>, kTables> calls;
  std::atomic<std::uint64_t> failed;  // calls that were made to fail
  std::array<char, 64> function;      // the first of them
  std::array<char, 64> step;          // what the scenario was at then
  std::atomic<int> touchedDevice;     // whose stream the first of them was on, 0 for nobody's
  std::array<char, 8192> complaints;  // lines: what was wrong
  std::array<char, 4096> missed;      // lines: steps that did not come to their end
};

// Counts from now on, and fails what the plan says. The report outlives the process's end.
void Begin(const Plan& plan, Report& report);
// Nothing fails any more.
void EndFaults();
// What the scenario is at, for the report.
void SetStep(const char* step);

// Whether the first failed call was of that function.
bool FirstFailed(const char* function);
// The device whose stream the first failed call was on, 0 for nobody's.
int TouchedDevice();

// Adds a line to the report. Any thread.
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));
void Miss(const char* step);

// Counts one call; true when it has to fail. `device` is the number of the device whose stream the
// call is about, 0 when it is about none. Any thread; allocates nothing.
bool Fails(Table table, const char* function, int device = 0);

// Whether the calling thread is inside the library at the moment. Allocations are counted, and
// made to fail, only there.
bool Inside();

// The calling thread is inside the library, or outside of it, for a block.
template <bool inside>
class Side {
 public:
  Side();
  ~Side();
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

 private:
  const bool before;
};
using InsideScope = Side<true>;
using OutsideScope = Side<false>;

}  // namespace corvalint::faults

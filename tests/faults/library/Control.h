// What a test has told this process to do with its calls: a page of memory that both map. The test may change it while
// the process runs, and reads from it what came of it, also when the process has crashed or was killed.
#pragma once

#include <cstdint>

namespace faults {

// Which calls are counted; a set of these. Drivers are what SQL goes through below the programs: the driver manager, the
// drivers, the databases' own libraries. Their memory is counted apart, since what they make of a failure is theirs.
enum Kind : std::uint32_t {
  kAllocation = 1,
  kAllocationOfDrivers = 2,
  kOdbc = 4,
  kSystem = 8,
};

enum Action : std::uint32_t {
  kFail = 0,        // instead of being made
  kLoseAnswer = 1,  // is made, and fails all the same; of ODBC calls alone
  kKill = 2,        // the process is killed in the midst of it
};

// tests/faults/calls.py has the same layout.
struct Control {
  std::uint32_t kinds;
  std::uint32_t action;
  std::uint64_t first;   // the number of the first call that fails, from 1; 0: none
  std::uint64_t last;    // and of the last
  std::uint64_t calls;   // so far
  std::uint64_t failed;  // of them
  char state[8];         // SQLSTATE of an ODBC call that fails
  char name[64];         // of the first call that failed
  char culprit[512];     // where the process crashed: the functions, the innermost first
};

// Counts a call; whether it has to fail, or to be where the process is killed.
bool isChosen(Kind kind, const char* name) noexcept;

// Of a call that is chosen.
Action action() noexcept;

const char* sqlState() noexcept;

[[noreturn]] void killProcess() noexcept;

// Whether code at the address belongs to the programs, their libraries, or the language's.
bool isOurs(const void* address) noexcept;

// The function that this library's one stands before. For use as `static auto* const real = NEXT(open)`.
void* next(const char* name) noexcept;

}  // namespace faults

#define NEXT(function) reinterpret_cast<decltype(&function)>(faults::next(#function))

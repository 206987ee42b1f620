// Names of quarantine areas that are the system's.
#pragma once

#include <cstring>

namespace ZARO {

inline bool isReservedName(const char* name) {
  constexpr char kStart[] = "OPP:";
  return std::strncmp(name, kStart, sizeof kStart - 1) == 0;
}

}  // namespace ZARO

// Names of quarantine areas that are the system's.
#pragma once

#include <cstring>

inline bool isReservedName(const char* name) {
  constexpr char kStart[] = "OPP:";
  return std::strncmp(name, kStart, sizeof kStart - 1) == 0;
}

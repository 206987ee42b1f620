// Where a virtual operation stands in its class's table, and how classes lie in memory: gateways are built against both.
#pragma once

#include <cstddef>
#include <cstring>

// Slot of a virtual operation, from 0; by the rule of the C++ ABI on x86.
template <typename Operation>
std::size_t slotOf(Operation operation) {
  std::size_t offsetPlusOne = 0;
  static_assert(sizeof operation >= sizeof offsetPlusOne, "a pointer to a member begins with its place in the table");
  std::memcpy(&offsetPlusOne, &operation, sizeof offsetPlusOne);
  return (offsetPlusOne - 1) / sizeof(void*);
}

// Bytes from the beginning of an object to one of its bases. `object` is only converted, never used.
template <typename Base, typename Derived>
std::size_t baseOffset(Derived& object) {
  return static_cast<std::size_t>(reinterpret_cast<char*>(static_cast<Base*>(&object)) - reinterpret_cast<char*>(&object));
}

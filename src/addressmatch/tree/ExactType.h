// Whether an object is of a class of this library and of none derived from it.
#pragma once

#include <typeinfo>

namespace zaro_addressmatch {

// The library has one description of such a class, so comparing addresses suffices. Comparing the descriptions would
// compare their names for every object of another class.
template <typename Class, typename Object>
bool isExactly(const Object& object) {
  return &typeid(object) == &typeid(Class);
}

}  // namespace zaro_addressmatch

// Whether an object is of a class of this library and of none derived from it.
#pragma once

#include <typeinfo>

namespace zaro_addressmatch {

// There is one description of such a class, so its address tells. (Comparing the descriptions themselves means
// comparing their names, for every object that is of another class.)
template <typename Class, typename Object>
bool isExactly(const Object& object) {
  return &typeid(object) == &typeid(Class);
}

}  // namespace zaro_addressmatch

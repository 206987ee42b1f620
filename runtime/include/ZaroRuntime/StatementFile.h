// What a statement file asks for.
#pragma once

#include <string>

namespace zaroruntime {

// The conversions of a statement file in order, one letter each ('s', 'd' or 'u'). Throws RuntimeError when the file
// cannot be read or is not one that the loader would take.
std::string statementConversions(const std::string& path);

}  // namespace zaroruntime

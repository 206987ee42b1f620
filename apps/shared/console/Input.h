// What commands read that work as filters.
#pragma once

#include <string>

// All of a file, or of standard input when `file` is empty or "-". Throws RuntimeError naming it.
std::string readInput(const std::string& file);

// The input as diagnostics name it.
std::string inputName(const std::string& file);

// Statement files as texts that can be tried.
#pragma once

#include <string>

// The text of a statement file with harmless parameters: x for texts, 1 for numbers. The file must be one that the
// loader takes. Throws RuntimeError when it cannot be read.
std::string harmlessStatement(const std::string& path);

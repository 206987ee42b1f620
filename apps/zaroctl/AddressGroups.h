// Address groups of the installation, as commands need them.
#pragma once

#include <string>
#include <vector>

// The members of the group of a name, in their order. Throws RuntimeError when there is none or more than one, or when
// it cannot be read whole.
std::vector<std::string> membersOfGroup(const std::string& name);

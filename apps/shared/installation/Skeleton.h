// Where the files that a new installation gets are found.
#pragma once

#include <string>

// The directory that `option` names unless empty, else ZARO_SKELETON, else ../share/zaropolicy/home beside the program.
// Throws RuntimeError when it is no skeleton.
std::string skeletonDirectory(const std::string& option);

// Files that must stay secret.
#pragma once

#include <string>

// The content of a file that only its owner may read, or, when it is root's, its group as well. Throws RuntimeError,
// also for a file that belongs to another user.
std::string readPrivateFile(const std::string& path);

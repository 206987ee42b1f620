// Whole files, read and written.
#pragma once

#include <sys/types.h>

#include <string>

namespace zaroruntime {

// Text of a regular file of at most `limit` bytes; throws RuntimeError naming the file and the reason.
std::string readFileText(const std::string& path, std::size_t limit);

// Replaces a file: the text goes to a temporary name beside it, to the disk, and over the old file. Whoever reads
// meanwhile, or after a crash, finds the old text or the new one. Throws RuntimeError.
void replaceFile(const std::string& path, const std::string& text, mode_t mode);

// "PATH: what: reason", the reason being that of `errno`.
[[noreturn]] void throwFileError(const std::string& path, const char* what);

}  // namespace zaroruntime

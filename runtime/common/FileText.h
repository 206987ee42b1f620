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

// The same for a file that is there: it keeps its permissions and, as far as the writer may, its owner. The caller
// holds a lock against other writers. Throws RuntimeError.
void rewriteFile(const std::string& path, const std::string& text);

// Throws RuntimeError unless the file is there and we may write it. One without any write permission is refused to root
// as well.
void requireWritable(const std::string& path);

// "PATH: what: reason", the reason being that of `errno`.
[[noreturn]] void throwFileError(const std::string& path, const char* what);

}  // namespace zaroruntime

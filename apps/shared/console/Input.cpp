#include "console/Input.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"

namespace {

bool isStandardInput(const std::string& file) {
  return file.empty() || file == "-";
}

[[noreturn]] void throwInputError(const std::string& file, const char* what) {
  throw zaroruntime::RuntimeError(inputName(file) + ": " + what + ": " + std::strerror(errno),
                                  zaroruntime::kindOfFileError(errno));
}

struct Close {
  void operator()(std::FILE* stream) const {
    if (stream != stdin) {
      std::fclose(stream);
    }
  }
};

}  // namespace

std::string inputName(const std::string& file) {
  return isStandardInput(file) ? "standard input" : quoted(file);
}

std::string readInput(const std::string& file) {
  const std::unique_ptr<std::FILE, Close> stream(isStandardInput(file) ? stdin : std::fopen(file.c_str(), "rb"));
  if (stream == nullptr) {
    throwInputError(file, "cannot open");
  }
  std::string text;
  char piece[65536];
  while (const std::size_t count = std::fread(piece, 1, sizeof piece, stream.get())) {
    text.append(piece, count);
  }
  if (std::ferror(stream.get()) != 0) {
    throwInputError(file, "cannot read");
  }
  return text;
}

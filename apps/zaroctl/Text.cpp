#include "Text.h"

#include <cstdio>

#include "ZaroRuntime/PrintableText.h"

namespace {

constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestDiagnostic = 2000;

}  // namespace

std::string quoted(const std::string& name) {
  if (name.size() <= kLongestName) {
    return '"' + name + '"';
  }
  return '"' + name.substr(0, kLongestName) + "...\" (" + std::to_string(name.size()) + " bytes)";
}

void diagnose(const std::string& text) {
  std::string line = zaroruntime::printableText(text.substr(0, kLongestDiagnostic));
  if (text.size() > kLongestDiagnostic) {
    line += "...";
  }
  std::fprintf(stderr, "zaroctl: %s\n", line.c_str());
}

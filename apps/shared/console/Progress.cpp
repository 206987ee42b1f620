#include "console/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "ZaroRuntime/PrintableText.h"

namespace {

constexpr double kSecondsBeforeTheFirst = 0.5;
constexpr double kSecondsBetween = 0.1;
constexpr std::uint64_t kPatternsBetweenLooks = 256;
constexpr std::size_t kBarWidth = 24;
constexpr const char* kEraseLine = "\r\x1b[K";

}  // namespace

Progress::Progress() : m_onTerminal(isatty(STDERR_FILENO) != 0), m_nextShow(kSecondsBeforeTheFirst) {}

Progress::~Progress() {
  finish();
}

void Progress::startFile(const std::string& name, std::uint64_t size) {
  m_name = name;
  m_size = size;
}

void Progress::count(std::uint64_t bytes) {
  ++m_patterns;
  if (!m_onTerminal || m_patterns % kPatternsBetweenLooks != 0 || seconds() < m_nextShow) {
    return;
  }
  m_nextShow = seconds() + kSecondsBetween;
  _show(bytes);
}

void Progress::finish() {
  if (m_shown) {
    std::fputs(kEraseLine, stderr);
    m_shown = false;
  }
}

void Progress::_show(std::uint64_t bytes) {
  m_shown = true;
  std::string bar;
  if (m_size != 0) {
    const double share = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(m_size));
    const auto full = static_cast<std::size_t>(share * kBarWidth);
    bar = " [" + std::string(full, '#') + std::string(kBarWidth - full, ' ') + "] " +
          std::to_string(static_cast<int>(share * 100)) + " %";
  }
  std::fprintf(stderr, "%s%s%s  %s patterns, %s/s", kEraseLine, zaroruntime::printableText(m_name).c_str(), bar.c_str(),
               shownCount(static_cast<double>(m_patterns)).c_str(),
               shownCount(static_cast<double>(m_patterns) / seconds()).c_str());
}

std::string shownCount(double count) {
  struct Unit {
    double size;
    const char* name;
  };
  static constexpr Unit kUnits[] = {{1e9, " G"}, {1e6, " M"}, {1e3, " k"}};
  char text[32];
  for (const Unit& unit : kUnits) {
    if (count >= unit.size) {
      std::snprintf(text, sizeof text, "%.3g%s", count / unit.size, unit.name);
      return text;
    }
  }
  std::snprintf(text, sizeof text, "%.0f", count);
  return text;
}

std::uint64_t memoryInUse() {
  std::ifstream file("/proc/self/statm");
  std::uint64_t total = 0;
  std::uint64_t resident = 0;
  file >> total >> resident;
  return file ? resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) : 0;
}

// Keeps what a subject says on standard error from the terminal: a fuzzer would write gigabytes.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

#include "FuzzInput.h"

// Of the sanitizers' runtime, where that is linked.
extern "C" void __sanitizer_set_report_fd(void* descriptor) __attribute__((weak));

// As long as one lives, standard error goes nowhere, but for what sanitizers and FUZZ_CHECK report.
class QuietErrors {
 public:
  QuietErrors() : m_before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
    reportTo(m_before);
  }
  ~QuietErrors() {
    dup2(m_before, STDERR_FILENO);
    reportTo(STDERR_FILENO);
    close(m_before);
  }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  static void reportTo(int descriptor) {
    fuzzErrors = descriptor;
    if (__sanitizer_set_report_fd != nullptr) {
      __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor)));
    }
  }

  int m_before;
};

// Signals that would end the program, put off while it must not leave anything half-made behind.
#pragma once

#include <signal.h>

class DelayedSignals {
 public:
  DelayedSignals();
  // Lets a signal that came meanwhile have its effect.
  ~DelayedSignals();
  DelayedSignals(const DelayedSignals&) = delete;
  DelayedSignals& operator=(const DelayedSignals&) = delete;

  // Throws RuntimeError when a signal has come.
  static void throwIfInterrupted();

 private:
  sigset_t m_before;
};

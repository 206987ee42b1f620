// Signals that would end the program, put off while it must not leave anything half-made behind.
#pragma once

#include <signal.h>

#include <stdexcept>
#include <string>

// A delayed signal has come, and the work was given up. The signal is gone: who catches this raises it again.
class Interrupted : public std::runtime_error {
 public:
  Interrupted(const std::string& text, int number) : runtime_error(text), m_number(number) {}
  int signal() const { return m_number; }

 private:
  int m_number;
};

class DelayedSignals {
 public:
  // Signals that are ignored stay so.
  DelayedSignals();
  // Lets a signal that came meanwhile have its effect.
  ~DelayedSignals();
  DelayedSignals(const DelayedSignals&) = delete;
  DelayedSignals& operator=(const DelayedSignals&) = delete;

  // Throws Interrupted when a signal has come.
  void throwIfInterrupted() const;
  // Drops what has come: it is too late to stop what it was sent to stop.
  void forget() const;

 private:
  // Takes the signals that have come, and answers one of them; 0 for none.
  int _take() const;

  sigset_t m_delayed;
  sigset_t m_before;
};

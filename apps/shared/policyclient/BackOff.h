// Pauses between attempts that fail: each twice as long as the one before, up to a minute, and shortened by chance, so
// that clients which lost their server together do not come back together.
#pragma once

#include <chrono>

class BackOff {
 public:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;

  static constexpr Milliseconds kFirst{1000};
  static constexpr Milliseconds kLongest{60000};

  // Begins a pause at `now`.
  //   chance    from 0 to 1: half of the pause, to all of it
  //   atLeast   what the server asks for; at most kLongest counts
  void fail(Clock::time_point now, double chance, Milliseconds atLeast = Milliseconds::zero());
  void succeed();

  // Zero when an attempt is due.
  Milliseconds remaining(Clock::time_point now) const;

 private:
  unsigned int m_failures = 0;
  Clock::time_point m_notBefore = Clock::time_point::min();
};

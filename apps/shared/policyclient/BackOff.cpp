#include "policyclient/BackOff.h"

#include <algorithm>

void BackOff::fail(Clock::time_point now, double chance, Milliseconds atLeast) {
  constexpr unsigned int kEnough = 6;  // doublings from the first to the longest
  const Milliseconds whole = std::min(kFirst * (1 << std::min(m_failures, kEnough)), kLongest);
  const auto pause = std::chrono::duration_cast<Milliseconds>(whole * (1 + chance) / 2);
  m_notBefore = now + std::max(pause, std::min(atLeast, kLongest));
  ++m_failures;
}

void BackOff::succeed() {
  m_failures = 0;
  m_notBefore = Clock::time_point::min();
}

BackOff::Milliseconds BackOff::remaining(Clock::time_point now) const {
  return now >= m_notBefore ? Milliseconds::zero() : std::chrono::ceil<Milliseconds>(m_notBefore - now);
}

#include "match/Totals.h"

#include <cmath>
#include <string>

#include "patterns/Decisions.h"

bool Totals::answer(const Addresses& addresses) {
  const std::vector<Decision> decisions = decide(addresses, m_trees);
  for (const Decision& decision : decisions) {
    ++m_byCode[decision.code];
  }
  return allDecided(decisions);
}

void Totals::finish() {
  const double seconds = m_watch.seconds();
  std::uint64_t total = 0;
  for (const auto& [code, count] : m_byCode) {
    total += count;
  }
  Json record = {{"addresses", total}, {"decided", total - m_byCode[0]}, {"undecided", m_byCode[0]}};
  if (m_skipped != 0) {
    record["unreadable"] = m_skipped;
  }
  for (const auto& [code, count] : m_byCode) {
    if (code != 0) {
      record["code " + std::to_string(code)] = count;
    }
  }
  record["seconds"] = std::round(seconds * 1000) / 1000;
  record["addresses per second"] = seconds > 0 ? std::llround(static_cast<double>(total) / seconds) : 0;
  m_out.record(record);
}

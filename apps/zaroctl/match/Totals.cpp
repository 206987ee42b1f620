#include "match/Totals.h"

#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

bool Totals::answer(const Addresses& addresses) {
  const std::vector<Decision> decisions = decide(addresses, m_trees);
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    if (addresses[i].asked) {
      ++m_byCode[decisions[i].code];
    } else if (!addresses[i].given) {
      ++m_unreadable;
    }
  }
  return allDecided(addresses, decisions);
}

void Totals::finish() {
  const double seconds = m_watch.seconds();
  std::uint64_t total = 0;
  for (const auto& [code, count] : m_byCode) {
    total += count;
  }
  Json record = {{"addresses", total}, {"decided", total - m_byCode[0]}, {"undecided", m_byCode[0]}};
  if (m_unreadable != 0) {
    record["unreadable"] = m_unreadable;
  }
  Json document = record;
  document["codes"] = Json::array();
  for (const auto& [code, count] : m_byCode) {
    if (code != 0) {
      record["code " + std::to_string(code)] = count;
      document["codes"].push_back({{"code", code}, {"addresses", count}});
    }
  }
  for (Json* result : {&record, &document}) {
    (*result)["seconds"] = std::round(seconds * 1000) / 1000;
    (*result)["addresses_per_second"] = seconds > 0 ? std::llround(static_cast<double>(total) / seconds) : 0;
  }
  m_out.record(record, document);
}

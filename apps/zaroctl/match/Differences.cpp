#include "match/Differences.h"

#include <cstddef>
#include <utility>
#include <vector>

bool Differences::answer(const Addresses& addresses) {
  const std::vector<Decision> before = decide(addresses, m_old);
  const std::vector<Decision> after = decide(addresses, m_new);
  bool all = true;
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    if (!isSame(before[i], after[i])) {
      Json row = addresses[i].row();
      describe(before[i], m_old, "old_", row);
      describe(after[i], m_new, "new_", row);
      m_rows.add(std::move(row));
      all = false;
    }
  }
  return all;
}

bool Differences::isSame(const Decision& before, const Decision& after) {
  return before.code == after.code && before.kind == after.kind && text(before) == text(after);
}

#include "addressmatch/tree/TreeState.h"

#include "addressmatch/intern/Interner.h"
#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/Level.h"
#include "addressmatch/tree/TreeIndexing.h"

namespace zaro_addressmatch {

UnfilteredIndex TreeState::freeze() {
  if (m_phase == Phase::Indexed || m_root == nullptr) {
    return {};
  }
  const bool wasFilling = isFilling();
  m_phase = Phase::Walked;
  m_domains = DomainMap();
  m_ownTexts.forgetKeys();
  KxStringtable* table = Level(*m_root).table();
  if (!wasFilling || !isExactly<KxWildcardRootNode>(*m_root) || table == nullptr || !table->isLocked() ||
      Interner(*table).hasForeignHolders()) {
    return {};
  }
  return TreeIndexing::indexOf(*m_root);
}

void TreeState::answerFrom(std::unique_ptr<const FrozenIndex> index) {
  m_index = std::move(index);
  SharedFilters::Member& member = m_index->filters().members[m_index->slice()];
  member.index = m_index.get();
  member.root.store(m_root, std::memory_order_relaxed);
  m_phase = Phase::Indexed;
}

}  // namespace zaro_addressmatch

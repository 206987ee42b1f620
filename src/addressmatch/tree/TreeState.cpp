#include "addressmatch/tree/TreeState.h"

#include "addressmatch/intern/Interner.h"
#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/Level.h"
#include "addressmatch/tree/TreeIndexing.h"

namespace zaro_addressmatch {

void TreeState::freeze() {
  if (m_phase == Phase::Indexed || m_root == nullptr) {
    return;
  }
  const bool wasFilling = isFilling();
  m_phase = Phase::Walked;
  m_domains = DomainMap();
  m_ownTexts.forgetKeys();
  KxStringtable* table = Level(*m_root).table();
  if (!wasFilling || !isExactly<KxWildcardRootNode>(*m_root) || table == nullptr || !table->isLocked() ||
      Interner(*table).hasForeignHolders()) {
    return;
  }
  m_index = TreeIndexing::indexOf(*m_root);
  m_phase = m_index != nullptr ? Phase::Indexed : Phase::Walked;
}

}  // namespace zaro_addressmatch

#include "addressmatch/TreeState.h"

#include "addressmatch/ExactType.h"

namespace zaro_addressmatch {

void TreeState::freeze() {
  if (isFrozen || root == nullptr) {
    return;
  }
  isFrozen = true;
  domains = KnownDomains();
  const KxStringtable* table = root->_stringtable;
  const bool isOrdinary = isExactly<KxWildcardRootNode>(*root);
  if (!needsWalk && isOrdinary && table != nullptr && table->isLocked() && !table->_hasForeignHolders) {
    index = FrozenIndex::build(*root);
  }
}

}  // namespace zaro_addressmatch

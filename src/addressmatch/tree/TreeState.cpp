#include "addressmatch/tree/TreeState.h"

#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/TreeIndexing.h"

namespace zaro_addressmatch {

void TreeState::freeze() {
  if (isFrozen || root == nullptr) {
    return;
  }
  isFrozen = true;
  domains = DomainMap();
  const KxStringtable* table = root->_stringtable;
  const bool isOrdinary = isExactly<KxWildcardRootNode>(*root);
  if (!needsWalk && isOrdinary && table != nullptr && table->isLocked() && !table->_hasForeignHolders) {
    index = TreeIndexing::indexOf(*root);
  }
}

}  // namespace zaro_addressmatch

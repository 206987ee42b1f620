// What a big level needs while its tree is being filled.
#pragma once

#include <memory>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/tree/GrowingLevel.h"

namespace zaro_addressmatch {

struct LevelFilling {
  std::unique_ptr<NameIndex<KxWildcardNode>> children;
  std::unique_ptr<NameIndex<KxListedEmailAddress>> leaves;

  // The element of a name among a level's children or leaves, which `growing` tells; over a table the name is an entry.
  template <typename Named>
  static Named* find(KxWildcardNode& level, const std::vector<Named*>& elements,
                     GrowingLevel<Named> (KxWildcardNode::*growing)(), const KxIndexedString& name);
  // Has a level take an element into them.
  template <typename Named>
  static bool take(KxWildcardNode& level, std::vector<Named*>& elements,
                   GrowingLevel<Named> (KxWildcardNode::*growing)(), Named* element);
};

}  // namespace zaro_addressmatch

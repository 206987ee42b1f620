// Adding a pattern to a tree: a refusal is told from memory that runs out.
#pragma once

#include "KxWildcardNode.h"

// As KxWildcardNode::addAddressPattern without an owner: false when the kind is one that the pattern's own leaf does
// not allow beside the kinds that it has. Throws std::bad_alloc when memory runs out, and the tree is of no use then.
bool addPattern(KxWildcardNode& root, const char* pattern, KxEmailBelongsTo kind, const char* annotation);

// The freeze: locks what is queued, in its order, and makes the indexes of the trees among it.
#pragma once

#include "KxLockOnInitQueue.h"

namespace zaro_addressmatch {

// Empties the queue. A null entry is logged at level 1. When memory runs out for an index, that is logged and the tree
// is walked.
void freezeAll(KxLockOnInitQueue& queue);

}  // namespace zaro_addressmatch

#include "addressmatch/tree/Freezing.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "KxWildcardNode.h"
#include "PolicyLog.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/Level.h"
#include "addressmatch/tree/TreeState.h"

namespace zaro_addressmatch {

namespace {

// Prefetches what locking the objects at the front of the queue reads. Called before each of them: every object passes
// all four distances, which are far enough apart for each step to find what the step before prefetched.
void prefetchAhead(const KxLockOnInitQueue& queue) {
  constexpr std::size_t kNode = 24;
  constexpr std::size_t kVectors = 15;
  constexpr std::size_t kElements = 9;
  constexpr std::size_t kNames = 4;
  const auto nodeAhead = [&queue](std::size_t places) -> KxWildcardNode* {
    KxLockableClass* object = queue._ahead(places);
    return object != nullptr && isExactly<KxWildcardNode>(*object) ? static_cast<KxWildcardNode*>(object) : nullptr;
  };
  // Its class is not read yet, so a leaf is prefetched as well.
  if (const KxLockableClass* object = queue._ahead(kNode)) {
    Level::prefetchNode(*object);
  }
  if (KxWildcardNode* node = nodeAhead(kVectors)) {
    Level(*node).prefetchVectors();
  }
  if (KxWildcardNode* node = nodeAhead(kElements)) {
    Level(*node).prefetchElements();
  }
  if (KxWildcardNode* node = nodeAhead(kNames)) {
    Level(*node).prefetchNames();
  }
}

// A tree that is searched by walking for the rest of its life.
void logSlowTree() {
  PolicyLog::log(LogLevel::Error, "KxWildcardEmail::initScanTimeMode: out of memory; a tree will be searched slowly");
}

using Trees = std::vector<std::shared_ptr<TreeState>>;

// Trees that are frozen together share what tells which of them may have something for an address.
void makeIndexes(const Trees& trees) {
  Trees indexed;
  std::vector<UnfilteredIndex> indexes;
  for (const std::shared_ptr<TreeState>& tree : trees) {
    const bool isFrozen = withinMemory([&] {
      UnfilteredIndex made = tree->freeze();
      if (made.index != nullptr) {
        indexed.reserve(indexed.size() + 1);
        indexes.push_back(std::move(made));
        indexed.push_back(tree);
      }
    });
    if (!isFrozen) {
      logSlowTree();
    }
  }
  const bool isWhole = withinMemory([&] { shareFilters(indexes); });
  for (std::size_t i = 0; i != indexed.size(); ++i) {
    if (isWhole) {
      indexed[i]->answerFrom(std::move(indexes[i].index));
    } else {
      logSlowTree();
    }
  }
}

}  // namespace

void freezeAll(KxLockOnInitQueue& queue) {
  Trees trees;
  while (!queue.empty()) {
    KxLockableClass* object = queue.front();
    queue.pop();
    prefetchAhead(queue);
    if (object == nullptr) {
      PolicyLog::log(LogLevel::Error,
                     "KxWildcardEmail::initScanTimeMode has found a NULL pointer on the _lockOnInit queue.");
      continue;
    }
    if (isExactly<KxWildcardRootNode>(*object)) {
      // Without one, memory ran out when the root was made.
      TreeState* tree = Level(*static_cast<KxWildcardRootNode*>(object)).tree();
      if (tree == nullptr || !withinMemory([&] { trees.push_back(tree->shared_from_this()); })) {
        logSlowTree();
      }
    }
    object->lock();
  }
  makeIndexes(trees);
}

}  // namespace zaro_addressmatch

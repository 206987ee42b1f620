#include "addressmatch/tree/TreeIndexing.h"

#include <cstring>

#include "addressmatch/text/Prefetch.h"

namespace zaro_addressmatch {

namespace {

const char* labelOf(Level level) {
  const char* text = level.node().getName().getString();
  return text != nullptr ? text : "";
}

}  // namespace

UnfilteredIndex TreeIndexing::indexOf(KxWildcardNode& root) {
  // Equal hashes of 64 bits are most improbable; another seed keeps even them from making a tree slow.
  constexpr int kAttempts = 3;
  HashSeed seed = processHashSeed();
  for (int attempt = 0; attempt != kAttempts; ++attempt, ++seed.words[0]) {
    FrozenIndexBuilder builder(seed);
    if (!TreeIndexing(Level(root), builder).addAll()) {
      return {};
    }
    UnfilteredIndex made = builder.build();
    if (made.index != nullptr || !builder.hasCollided()) {
      return made;
    }
  }
  return {};
}

bool TreeIndexing::addAll() {
  if (m_root.wildcardChild() != nullptr) {
    m_builder.addBelowRoot(leavesOf(Level(*m_root.wildcardChild())));
  }
  m_path.push_back({m_root, 0});
  while (!m_path.empty()) {
    Step& above = m_path.back();
    if (above.nextChild == above.level.children().size()) {
      m_path.pop_back();
      continue;
    }
    prefetchChildren(above.level, above.nextChild);
    const Level child(*above.level.children()[above.nextChild++]);
    // A child that a caller made elsewhere, or one that its level would not find by its label.
    if (child.tree() != m_root.tree() || (above.level.findsOnlyRankedChildren() && !child.node().getName().isIndexed())) {
      return false;
    }
    // Only a text without "@" gives a label with a dot, and only the walk splits such texts.
    if (std::strchr(labelOf(child), '.') == nullptr) {
      m_path.push_back({child, 0});
      if (holdsSomething(child)) {
        add(child);
      }
    } else {
      m_builder.addDottedLabel();
    }
  }
  return true;
}

void TreeIndexing::add(Level level) {
  m_domain.clear();
  for (std::size_t depth = m_path.size() - 1; depth != 0; --depth) {
    m_domain += labelOf(m_path[depth].level);
    m_domain += '.';
  }
  m_domain.pop_back();
  const std::size_t labelCount = m_path.size() - 1;
  if (level.wildcardChild() == nullptr) {
    m_builder.addDomain(m_domain, labelCount, leavesOf(level), nullptr);
    return;
  }
  const LevelLeaves below = leavesOf(Level(*level.wildcardChild()));
  m_builder.addDomain(m_domain, labelCount, leavesOf(level), &below);
}

LevelLeaves TreeIndexing::leavesOf(Level level) {
  return {LeafRange::of(level.leaves()), level.wildcardLeaf(), level.findsOnlyRankedLeaves()};
}

bool TreeIndexing::holdsSomething(Level level) {
  return !level.leaves().empty() || level.wildcardLeaf() != nullptr || level.wildcardChild() != nullptr;
}

// Prefetches what later children consist of, one part after the other.
void TreeIndexing::prefetchChildren(Level level, std::size_t next) {
  constexpr std::size_t kStep = 4;
  const auto at = [&](std::size_t steps) -> KxWildcardNode* {
    const std::size_t child = next + steps * kStep;
    return child < level.children().size() ? level.children()[child] : nullptr;
  };
  if (const KxWildcardNode* child = at(3)) {
    Level::prefetchNode(*child);
  }
  if (const KxWildcardNode* child = at(2)) {
    prefetchLine(child->getNameAsPtr());
  }
  if (const KxWildcardNode* child = at(1)) {
    prefetchLine(child->getNameAsStr());
  }
}

}  // namespace zaro_addressmatch

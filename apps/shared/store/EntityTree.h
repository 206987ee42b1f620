// Which wildcard groups contain which, as the library tells it, without what follows from the rest.
#pragma once

#include <string>
#include <vector>

#include "store/Administration.h"

class EntityTree {
 public:
  // Asks the library for the children of each. RuntimeError when it has no answer.
  explicit EntityTree(const EntitySet& entities);

  // Those that stand in no other.
  std::vector<std::size_t> tops() const;
  const GroupEntity& entity(std::size_t at) const { return m_entities[at]; }
  // Those directly below one.
  const std::vector<std::size_t>& below(std::size_t at) const { return m_below[at]; }

  // A picture for Graphviz.
  std::string dotText() const;

 private:
  bool _contains(std::size_t one, std::size_t other) const;

  std::vector<GroupEntity> m_entities;
  std::vector<std::vector<bool>> m_children;
  std::vector<std::vector<std::size_t>> m_below;
};

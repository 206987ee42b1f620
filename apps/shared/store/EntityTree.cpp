#include "store/EntityTree.h"

#include <algorithm>

#include "ZaroErrC.h"
#include "ZaroRuntime/PrintableText.h"
#include "console/Text.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

std::string dotName(const std::string& name) {
  std::string text = "\"";
  for (const char byte : zaroruntime::printableText(name)) {
    text.append(byte == '"' ? "\\" : "").append(1, byte);
  }
  return text + '"';
}

}  // namespace

EntityTree::EntityTree(const EntitySet& entities)
    : m_entities(entities.begin(), entities.end()),
      m_children(entities.size(), std::vector<bool>(entities.size())),
      m_below(entities.size()) {
  EntitySet all = entities;
  for (std::size_t at = 0; at < m_entities.size(); ++at) {
    EntitySet found;
    const std::string& name = m_entities[at].name;
    if (EntityUtils::getAllWildcardChildren(name.c_str(), all, found, false) != ZaroErrC::Success) {
      throw RuntimeError(quoted(name) + " is no address pattern", FailureKind::Data);
    }
    for (const GroupEntity& child : found) {
      const auto place = std::lower_bound(m_entities.begin(), m_entities.end(), child, GroupEntityCmp());
      m_children[at][static_cast<std::size_t>(place - m_entities.begin())] = true;
    }
  }
  for (std::size_t one = 0; one < m_entities.size(); ++one) {
    for (std::size_t other = 0; other < m_entities.size(); ++other) {
      bool isDirect = _contains(one, other);
      for (std::size_t middle = 0; isDirect && middle < m_entities.size(); ++middle) {
        isDirect = !_contains(one, middle) || !_contains(middle, other);
      }
      if (isDirect) {
        m_below[one].push_back(other);
      }
    }
  }
}

std::vector<std::size_t> EntityTree::tops() const {
  std::vector<std::size_t> tops;
  for (std::size_t at = 0; at < m_entities.size(); ++at) {
    bool isTop = true;
    for (std::size_t other = 0; other < m_entities.size() && isTop; ++other) {
      isTop = !_contains(other, at);
    }
    if (isTop) {
      tops.push_back(at);
    }
  }
  return tops;
}

std::string EntityTree::dotText() const {
  std::string text = "digraph entities {\n  rankdir=LR;\n  node [shape=box];\n";
  for (const GroupEntity& entity : m_entities) {
    text += "  " + dotName(entity.name) + ";\n";
  }
  for (std::size_t one = 0; one < m_entities.size(); ++one) {
    for (const std::size_t other : m_below[one]) {
      text += "  " + dotName(m_entities[one].name) + " -> " + dotName(m_entities[other].name) + ";\n";
    }
  }
  return text + "}\n";
}

// Of two that contain each other the first is taken for the outer one, so that nothing stands below itself.
bool EntityTree::_contains(std::size_t one, std::size_t other) const {
  return m_children[one][other] && (one < other || !m_children[other][one]);
}

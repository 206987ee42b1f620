#include "SlowMatcher.h"

#include <algorithm>

namespace slow {

std::string lowered(std::string text) {
  for (char& character : text) {
    if (character >= 'A' && character <= 'Z') {
      character = static_cast<char>(character + ('a' - 'A'));
    }
  }
  return text;
}

Split split(const std::string& text) {
  if (text == "*") {
    return {"*", {"*"}};
  }
  const std::size_t at = text.find('@');
  if (at == std::string::npos) {
    return {text, {"", text}};
  }
  Split result = {text.substr(0, at), {""}};
  for (const char character : text.substr(at + 1)) {
    if (character == '.') {
      result.labels.emplace_back();
    } else {
      result.labels.back() += character;
    }
  }
  return result;
}

unsigned int weightOf(const std::string& pattern) {
  const Split parts = split(lowered(pattern));
  const auto wildcards = static_cast<unsigned int>(std::count(parts.labels.begin(), parts.labels.end(), "*"));
  const unsigned int concrete = static_cast<unsigned int>(parts.labels.size()) - wildcards;
  unsigned int weight = 1;
  if (wildcards == 0) {
    weight = 4001 + concrete;
  } else if (concrete != 0) {
    weight = 2001 + concrete;
  }
  return parts.localPart == "*" ? weight : weight + 1000;
}

bool isStateAllowed(unsigned int state) {
  const std::set<unsigned int> pairs = {17, 18, 20, 33, 34, 40, 48};
  const std::set<unsigned int> single = {0, 1, 2, 4, 8, 16, 32};
  return single.count(state) != 0 || pairs.count(state) != 0;
}

void Table::take(const std::string& text) {
  if (!locked) {
    texts.insert(text);
  }
}

bool Leaf::matches(const Split& address) const {
  if (name != "*" && name != address.localPart) {
    return false;
  }
  if (wildcardDomain ? address.labels.size() <= path.size() : address.labels.size() != path.size()) {
    return false;
  }
  return std::equal(path.begin(), path.end(), address.labels.rbegin());
}

bool Leaf::precedes(const Leaf& other) const {
  if (wildcardDomain != other.wildcardDomain) {
    return other.wildcardDomain;
  }
  if (path.size() != other.path.size()) {
    return path.size() > other.path.size();
  }
  return name != "*" && other.name == "*";
}

Tree::Tree(Table* table) : m_table(table) {
  take("");
  m_levels[{}];
}

void Tree::take(const std::string& text) {
  if (m_table != nullptr) {
    m_table->take(text);
  }
}

bool Tree::isOutOfReach(bool indexed, const std::string& key) const {
  return indexed && !m_table->knows(key);
}

bool Tree::add(const std::string& pattern, unsigned int kinds) {
  const std::string text = lowered(pattern);
  const Split parts = split(text);
  std::vector<std::string> path;
  std::vector<std::string> levelPath;
  bool wildcardDomain = false;
  for (auto label = parts.labels.rbegin(); label != parts.labels.rend(); ++label) {
    if (*label == "*") {
      wildcardDomain = true;
      levelPath.push_back("*");
      take("*");
      break;
    }
    if (isOutOfReach(m_levels[path].childrenIndexed, *label)) {
      return isStateAllowed(kinds);
    }
    m_levels[path].children.insert(*label);
    take(*label);
    path.push_back(*label);
    m_levels[path];  // there from now on, whatever hangs from it
    levelPath = path;
  }

  Level& level = m_levels[levelPath];
  const std::string& name = parts.localPart;
  if (name != "*") {
    if (isOutOfReach(level.namesIndexed, name)) {
      return isStateAllowed(kinds);
    }
    level.names.insert(name);
  }
  const auto key = std::make_tuple(path, wildcardDomain, name);
  if (m_leaves.count(key) == 0) {
    take(name);
    take(text);
    m_leaves[key] = {path, wildcardDomain, name, text, 0, false};
  }
  Leaf& leaf = m_leaves[key];
  if (leaf.locked || !isStateAllowed(leaf.state | kinds)) {
    return false;
  }
  leaf.state |= kinds;
  return true;
}

bool Tree::removeKinds(const std::string& text, unsigned int kinds) {
  for (auto& [key, leaf] : m_leaves) {
    if (leaf.fullAddress == text) {
      const unsigned int state = leaf.state & ~kinds;
      if (leaf.locked || !isStateAllowed(state)) {
        return false;
      }
      leaf.state = state;
      return true;
    }
  }
  return false;
}

std::vector<const Leaf*> Tree::findMatches(const std::string& address) const {
  const Split parts = split(lowered(address));
  std::vector<const Leaf*> found;
  for (const auto& [key, leaf] : m_leaves) {
    if (leaf.matches(parts)) {
      found.push_back(&leaf);
    }
  }
  std::sort(found.begin(), found.end(), [](const Leaf* one, const Leaf* other) { return one->precedes(*other); });
  return found;
}

void Tree::lock() {
  const auto known = [this](const std::string& text) { return m_table->knows(text); };
  for (auto& [path, level] : m_levels) {
    if (!level.locked) {
      level.locked = true;
      level.childrenIndexed = std::all_of(level.children.begin(), level.children.end(), known);
      level.namesIndexed = std::all_of(level.names.begin(), level.names.end(), known);
    }
  }
  for (auto& [key, leaf] : m_leaves) {
    leaf.locked = true;
  }
}

namespace {

// A leaf with its tree's position.
struct Candidate {
  const Leaf* leaf;
  unsigned int tree;

  unsigned int weight() const { return weightOf(leaf->fullAddress); }
};

using Candidates = std::vector<Candidate>;

// The first of the heaviest; null for an empty list.
const Candidate* heaviest(const Candidates& candidates) {
  const Candidate* best = nullptr;
  for (const Candidate& candidate : candidates) {
    if (best == nullptr || candidate.weight() > best->weight()) {
      best = &candidate;
    }
  }
  return best;
}

void eraseText(Candidates& candidates, const std::string& text) {
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                  [&](const Candidate& candidate) { return candidate.leaf->fullAddress == text; }),
                   candidates.end());
}

Decision decided(unsigned int code, const Candidate& winner) {
  return {code, winner.tree, winner.leaf->fullAddress, winner.leaf->state};
}

// One of them is there.
Decision compare(const Candidate* kindA, const Candidate* kindB) {
  if (kindB == nullptr || (kindA != nullptr && kindA->weight() > kindB->weight())) {
    return decided(1, *kindA);
  }
  if (kindA == nullptr || kindB->weight() > kindA->weight()) {
    return decided(2, *kindB);
  }
  return decided(9, *kindA);
}

}  // namespace

Decision decide(const std::vector<const Tree*>& trees, const std::string& address) {
  std::map<unsigned int, Candidates> ofKind;
  for (unsigned int tree = 0; tree != trees.size(); ++tree) {
    if (trees[tree] == nullptr) {
      continue;
    }
    ofKind[1].clear();
    ofKind[2].clear();
    for (const Leaf* leaf : trees[tree]->findMatches(address)) {
      ofKind[leaf->state].push_back({leaf, tree});
      if (leaf->state == 16) {
        eraseText(ofKind[8], leaf->fullAddress);
      } else if (leaf->state == 32) {
        eraseText(ofKind[4], leaf->fullAddress);
      }
    }
    const Candidate* kindA = heaviest(ofKind[1]);
    const Candidate* kindB = heaviest(ofKind[2]);
    if (kindA != nullptr || kindB != nullptr) {
      Decision decision = compare(kindA, kindB);
      decision.code += kindA != nullptr && kindB != nullptr ? 128 : 0;
      return decision;
    }
  }
  if (ofKind[8].empty() && ofKind[4].empty()) {
    return {0, 0, "", 0};
  }
  return compare(heaviest(ofKind[8]), heaviest(ofKind[4]));
}

}  // namespace slow

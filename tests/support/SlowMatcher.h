// Address matching by plain strings: no tree, no shared texts, no indexes. Slow, and short enough to be checked by eye;
// the tests compare the library with it.
//
// What it knows about the freeze: a leaf that is locked takes no more kinds, and a frozen level whose keys are all in the
// frozen table looks only for keys that are in that table, so that a pattern with another key is stored out of reach.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace slow {

struct Split {
  std::string localPart;
  std::vector<std::string> labels;  // of the domain, from left to right
};

// `text` in lower case.
Split split(const std::string& text);
std::string lowered(std::string text);
unsigned int weightOf(const std::string& pattern);
bool isStateAllowed(unsigned int state);

struct Table {
  std::set<std::string> texts;
  bool locked = false;
  std::function<bool(const std::string&)> instead;  // answers what is known in the place of `texts`, if it is set

  bool knows(const std::string& text) const { return instead ? instead(text) : texts.count(text) != 0; }
  void take(const std::string& text);
};

// One stored pattern: the labels right of its "*" from right to left, or all of them.
struct Leaf {
  std::vector<std::string> path;
  bool wildcardDomain;
  std::string name;
  std::string fullAddress;
  unsigned int state;
  bool locked;

  bool matches(const Split& address) const;
  // Whether this one comes before the other where both match an address.
  bool precedes(const Leaf& other) const;
};

class Tree {
 public:
  // A floating tree without a table.
  explicit Tree(Table* table);

  bool add(const std::string& pattern, unsigned int kinds);
  // Takes kinds from the leaf of that text; false when there is none, and when its state does not allow it.
  bool removeKinds(const std::string& text, unsigned int kinds);
  // The leaves that match, in the order of the library; they live as long as the tree.
  std::vector<const Leaf*> findMatches(const std::string& address) const;
  // Freezes what was added since the last time; after the table.
  void lock();

 private:
  struct Level {
    bool locked = false;
    std::set<std::string> children;
    bool childrenIndexed = false;
    std::set<std::string> names;
    bool namesIndexed = false;
  };

  void take(const std::string& text);
  bool isOutOfReach(bool indexed, const std::string& key) const;

  Table* m_table;
  std::map<std::vector<std::string>, Level> m_levels;  // by path; the level of a "*" has it at the end
  std::map<std::tuple<std::vector<std::string>, bool, std::string>, Leaf> m_leaves;  // by path, wildcard domain, name
};

struct Decision {
  unsigned int code;
  unsigned int tree;
  std::string name;  // empty when there is none
  unsigned int state;
};

// Null trees are passed over.
Decision decide(const std::vector<const Tree*>& trees, const std::string& address);

}  // namespace slow

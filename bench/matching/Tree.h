// The library as a contender.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KxWildcardEmail.h"

namespace bench {

using Leaves = std::vector<KxListedEmailAddress*>;

class Tree {
 public:
  Tree() : m_table(std::make_unique<KxStringtable>()), m_root(std::make_unique<KxWildcardRootNode>(m_table.get())) {}

  void fill(const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
      m_root->addAddressPattern(pattern.c_str(), 1, nullptr, nullptr);
    }
    KxWildcardEmail::initScanTimeMode();
  }
  void find(const char* address, Leaves& out) const { m_root->findMatches(address, out); }
  KxWildcardNode& root() const { return *m_root; }

 private:
  std::unique_ptr<KxStringtable> m_table;  // goes last
  std::unique_ptr<KxWildcardRootNode> m_root;
};

// A pattern that comes after the freeze makes a tree answer by a walk down its levels.
class WalkedTree : public Tree {
 public:
  void fill(const std::vector<std::string>& patterns) {
    Tree::fill(patterns);
    root().addAddressPattern("nobody@after-the-freeze.invalid", 1, nullptr, nullptr);
  }
};

}  // namespace bench

// The library as a contender.
#pragma once

#include <algorithm>
#include <cstddef>
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
    constexpr std::size_t kTogether = 512;
    std::vector<const char*> texts(std::min(kTogether, patterns.size()));
    for (std::size_t first = 0; first < patterns.size(); first += kTogether) {
      const std::size_t count = std::min(kTogether, patterns.size() - first);
      std::transform(patterns.begin() + static_cast<std::ptrdiff_t>(first),
                     patterns.begin() + static_cast<std::ptrdiff_t>(first + count), texts.begin(),
                     [](const std::string& pattern) { return pattern.c_str(); });
      m_root->addAddressPatterns(texts.data(), count, 1);
    }
    KxWildcardEmail::initScanTimeMode();
  }
  void find(const char* address, Leaves& out) const { m_root->findMatches(address, out); }
  KxWildcardNode& root() const { return *m_root; }

 private:
  std::unique_ptr<KxStringtable> m_table;  // goes last
  std::unique_ptr<KxWildcardRootNode> m_root;
};

// Filled by a call for each pattern.
class OneByOne : public Tree {
 public:
  void fill(const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
      root().addAddressPattern(pattern.c_str(), 1, nullptr, nullptr);
    }
    KxWildcardEmail::initScanTimeMode();
  }
};

// A pattern is added after the freeze, at a domain of its own.
class AddedToTree : public Tree {
 public:
  void fill(const std::vector<std::string>& patterns) {
    Tree::fill(patterns);
    root().addAddressPattern("ann@after-the-freeze.invalid", 1, nullptr, nullptr);
  }
};

// Below "*" alone, a pattern that comes after the freeze makes a tree answer by a walk down its levels.
class WalkedTree : public Tree {
 public:
  void fill(const std::vector<std::string>& patterns) {
    Tree::fill(patterns);
    root().addAddressPattern("after-the-freeze@*", 1, nullptr, nullptr);
  }
};

}  // namespace bench

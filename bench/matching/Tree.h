// The library as a contender.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KxWildcardEmail.h"

namespace bench {

class Tree {
 public:
  using Matches = std::vector<KxListedEmailAddress*>;

  void fill(const std::vector<std::string>& patterns) {
    m_root.reset(KxWildcardEmail::makeNewTree());
    for (const std::string& pattern : patterns) {
      m_root->addAddressPattern(pattern.c_str(), 1, nullptr, nullptr);
    }
    KxWildcardEmail::initScanTimeMode();
  }
  void find(const char* address, Matches& out) const { m_root->findMatches(address, out); }
  KxWildcardNode& root() const { return *m_root; }

 private:
  std::unique_ptr<KxWildcardNode> m_root;
};

}  // namespace bench

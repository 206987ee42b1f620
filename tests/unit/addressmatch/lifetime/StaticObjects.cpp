// A program whose static objects use the library from their constructors to their destructors. It is built with the
// library's sources before and after its own, so that the language leaves the order open both ways.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "KxWildcardEmail.h"
#include "PolicyLog.h"

namespace {

int linesLogged = 0;

// The exit status is settled when static objects go; a failure must not pass for success.
void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
  }
}

std::size_t countMatches(KxWildcardNode& tree, const char* address) {
  std::vector<KxListedEmailAddress*> found;
  return tree.findMatches(address, found).size();
}

class Program {
 public:
  Program()
      : m_firstInQueue(KxWildcardEmail::_lockOnInit.empty() ? nullptr : KxWildcardEmail::_lockOnInit.front()),
        m_tree(KxWildcardEmail::makeNewTree()),
        m_floating(KxWildcardEmail::makeNewFloatingTree()),
        m_ownTree(new KxWildcardRootNode(&m_ownTable)) {
    require(m_firstInQueue == &KxWildcardEmail::_defaultScanTimeStringtable, "the default table is queued first");
    for (KxWildcardNode* tree : trees()) {
      require(tree->addAddressPattern("*@*.example.test", 1, nullptr, nullptr), "a pattern is added");
    }
    const std::unique_ptr<KxWildcardNode> throwAway(KxWildcardEmail::makeNewTree());
    throwAway->addAddressPattern("user@thrown.away", 1, nullptr, nullptr);
  }
  ~Program() {
    for (KxWildcardNode* tree : trees()) {
      require(countMatches(*tree, "user@a.example.test") == 1, "a pattern is found at the end");
    }
    // Made and destroyed while the program goes down.
    const std::unique_ptr<KxWildcardNode> late(KxWildcardEmail::makeNewTree());
    require(late->addAddressPattern("user@late.test", 1, nullptr, nullptr), "a pattern is added at the end");
    require(countMatches(*late, "user@late.test") == 1, "and found");
    require(linesLogged == 0, "nothing is logged");
  }

  std::vector<KxWildcardNode*> trees() const { return {m_tree.get(), m_floating.get(), m_ownTree.get()}; }

 private:
  const KxLockableClass* m_firstInQueue;
  std::unique_ptr<KxWildcardNode> m_tree;
  std::unique_ptr<KxWildcardNode> m_floating;
  KxStringtable m_ownTable;
  std::unique_ptr<KxWildcardNode> m_ownTree;
};

const Program program;

// Comes up before the queue and the default table, and goes after them.
class Older {
 public:
  ~Older() {
    require(m_tree != nullptr, "there is a tree");
    require(countMatches(*m_tree, "user@a.example.test") == 0, "a tree without its table finds nothing");
    require(!m_tree->addAddressPattern("user@late.test", 1, nullptr, nullptr), "and takes nothing");
    std::vector<KxWildcardNode*> trees = {m_tree.get()};
    require(KxWildcardEmail::matchEmailAddress("user@a.example.test", trees, nullptr, nullptr, nullptr) == 0,
            "and decides nothing");
    m_tree.reset();

    const std::unique_ptr<KxWildcardNode> late(KxWildcardEmail::makeNewTree());
    require(late->addAddressPattern("user@late.test", 1, nullptr, nullptr), "a pattern is added after the end");
    KxStringtable table;
    KxWildcardRootNode own(&table);
    require(own.addAddressPattern("user@late.test", 1, nullptr, nullptr), "over a table of one's own, too");
    KxWildcardEmail::initScanTimeMode();
    require(countMatches(*late, "user@late.test") == 1, "and found");
    require(countMatches(own, "user@late.test") == 1, "over a table of one's own, too");
    require(linesLogged == 0, "nothing is logged");
  }
  void keep(KxWildcardNode* tree) { m_tree.reset(tree); }

 private:
  std::unique_ptr<KxWildcardNode> m_tree;
};

__attribute__((init_priority(101))) Older older;

}  // namespace

void PolicyLog::log(LogLevel /*level*/, const char* /*format*/, ...) {
  ++linesLogged;
}

int main() {
  require(KxWildcardEmail::_lockOnInit.front() == &KxWildcardEmail::_defaultScanTimeStringtable,
          "the default table is queued first");
  KxWildcardEmail::initScanTimeMode();
  require(KxWildcardEmail::_defaultScanTimeStringtable.isLocked(), "the default table is locked");
  for (KxWildcardNode* tree : program.trees()) {
    require(countMatches(*tree, "user@a.example.test") == 1, "a pattern is found");
  }
  older.keep(KxWildcardEmail::makeNewTree());
  return 0;
}

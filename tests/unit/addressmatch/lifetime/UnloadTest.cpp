// The library loaded and unloaded at run time. This program is not linked with it.
#include <dlfcn.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "EntityUtils.h"
#include "KxWildcardEmail.h"
#include "ProcessTest.h"
#include "scripted/Platform.h"

namespace {

constexpr int kTimes = 1000;

// What C++ calls the operations that the program looks up.
constexpr const char* kMakeNewTree = "_ZN15KxWildcardEmail11makeNewTreeEv";
constexpr const char* kInitScanTimeMode = "_ZN15KxWildcardEmail16initScanTimeModeEv";
constexpr const char* kMatch = "_ZN15KxWildcardEmail17matchEmailAddressEPKcRSt6vectorIP14KxWildcardNodeSaIS4_EEPjPS1_S8_";
constexpr const char* kAddPattern =
    "_ZN14KxWildcardNode17addAddressPatternEPKcjS1_PNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";

constexpr const char* kGetChildren =
    "_ZN11EntityUtils22getAllWildcardChildrenEPKcRSt3setI11GroupEntity14GroupEntityCmpSaIS3_EES7_b";
constexpr const char* kGetParents =
    "_ZN11EntityUtils21getAllWildcardParentsEPKcRSt3setI11GroupEntity14GroupEntityCmpSaIS3_EES7_b";

class Library {
 public:
  Library() : m_handle(dlopen(ZAROPOLICY_LIBRARY, RTLD_NOW | RTLD_LOCAL)) { EXPECT_NE(m_handle, nullptr) << dlerror(); }
  ~Library() { EXPECT_EQ(dlclose(m_handle), 0) << dlerror(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  template <typename Function>
  Function* function(const char* name) const {
    void* address = dlsym(m_handle, name);
    EXPECT_NE(address, nullptr) << dlerror();
    return reinterpret_cast<Function*>(address);
  }

  static bool isLoaded() {
    void* handle = dlopen(ZAROPOLICY_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) {
      dlclose(handle);
    }
    return handle != nullptr;
  }

  KxWildcardNode* makeTree(const char* pattern) const {
    KxWildcardNode* tree = function<KxWildcardNode*()>(kMakeNewTree)();
    EXPECT_TRUE((function<bool(KxWildcardNode*, const char*, KxEmailBelongsTo, const char*, std::string*)>(kAddPattern))(
        tree, pattern, 1, nullptr, nullptr));
    return tree;
  }
  unsigned int match(const char* address, KxWildcardNode* tree) const {
    std::vector<KxWildcardNode*> trees = {tree};
    return function<unsigned char(const char*, std::vector<KxWildcardNode*>&, unsigned int*, const char**,
                                  KxEmailBelongsTo*)>(kMatch)(address, trees, nullptr, nullptr, nullptr);
  }
  void freeze() const { function<void()>(kInitScanTimeMode)(); }

 private:
  void* m_handle;
};

void useOnce() {
  const Library library;
  const std::unique_ptr<KxWildcardNode> tree(library.makeTree("*@*.example.test"));
  delete library.makeTree("user@thrown.away");
  EXPECT_EQ(library.match("user@a.example.test", tree.get()), 1u);
  library.freeze();
  EXPECT_EQ(library.match("user@a.example.test", tree.get()), 1u);
  EXPECT_EQ(library.match("user@example.test", tree.get()), 0u);
}

// What the process has taken from the heap, where the allocator can tell.
std::size_t bytesInUse() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 0;  // the leak check at the end of the process looks instead
#else
  return mallinfo2().uordblks;
#endif
}

PROCESS_TEST(Unload, isCompleteAndLeavesNothingBehind) {
  ASSERT_FALSE(Library::isLoaded());
  // The loader and the C library keep a little to themselves, once.
  for (int i = 0; i < 100; ++i) {
    useOnce();
  }
  const std::size_t before = bytesInUse();
  for (int i = 0; i < kTimes; ++i) {
    useOnce();
    ASSERT_FALSE(Library::isLoaded()) << i;
  }
  // Half of what a single byte left behind by each would take. The allocator's own caches settle at a little.
  constexpr std::size_t kSmallestBlock = 4 * sizeof(void*);
  EXPECT_LT(bytesInUse(), before + kTimes * kSmallestBlock / 2);
}

// The relations of entities build a tree for each question.
PROCESS_TEST(Unload, mayFollowAnyNumberOfQuestionsAboutEntities) {
  using EntitySet = std::set<GroupEntity, GroupEntityCmp>;
  using Relatives = int(const char*, EntitySet&, EntitySet&, bool);
  EntitySet all;
  for (const char* name : {"*@*.example.test", "*@a.example.test", "user@a.example.test"}) {
    GroupEntity entity;
    entity.name = name;
    all.insert(entity);
  }
  for (const bool frozen : {false, true}) {
    const Library library;
    auto* const children = library.function<Relatives>(kGetChildren);
    auto* const parents = library.function<Relatives>(kGetParents);
    for (int i = 0; i < kTimes; ++i) {
      EntitySet found;
      ASSERT_EQ(children("*@a.example.test", all, found, false), 0);
      ASSERT_EQ(parents("*@a.example.test", all, found, false), 0);
      ASSERT_EQ(found.size(), 2u) << i;
    }
    if (frozen) {
      library.freeze();
    }
  }
  EXPECT_FALSE(Library::isLoaded());
}

// Made before the library is loaded, and so destroyed after the library's own objects.
std::unique_ptr<KxWildcardNode> keptTree;

PROCESS_TEST(Unload, treesInOlderStaticObjectsMayGoLater) {
  static const Library* const library = new Library;
  keptTree.reset(library->makeTree("user@example.test"));
  library->freeze();
  EXPECT_EQ(library->match("user@example.test", keptTree.get()), 1u);
  // The child ends by std::exit: its static objects go now.
}

}  // namespace

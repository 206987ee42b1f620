// The queue of what scan-time mode locks.
#include <chrono>
#include <memory>
#include <queue>
#include <vector>

#include "KxWildcardEmail.h"
#include "ProcessTest.h"
#include "VirtualSlots.h"
#include "scripted/Platform.h"

namespace {

using scripted::error;
using scripted::platform;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// Writes down that it was locked.
class Probe : public KxLockableClass {
 public:
  Probe(bool lockOnInit, std::vector<const Probe*>& locked) : KxLockableClass(lockOnInit), m_locked(locked) {}
  void lock() override {
    _lock();
    m_locked.push_back(this);
  }

 private:
  std::vector<const Probe*>& m_locked;
};

class LockOnInit : public scripted::PlatformTest {
 protected:
  LockOnInit() { KxWildcardEmail::initScanTimeMode(); }

  KxLockOnInitQueue& queue = KxWildcardEmail::_lockOnInit;
  std::vector<const Probe*> locked;
};

TEST_F(LockOnInit, objectsAreAsSmallAsAFlagNeeds) {
  EXPECT_EQ(sizeof(KxLockableClass), 2 * sizeof(void*));
}

TEST_F(LockOnInit, registeredObjectsAreAtTheBackAndNotLocked) {
  const Probe first(true, locked);
  const Probe unregistered(false, locked);
  const Probe second(true, locked);
  ASSERT_EQ(queue.size(), 2u);
  EXPECT_EQ(queue.front(), &first);
  EXPECT_EQ(queue.back(), &second);
  EXPECT_FALSE(first.isLocked());
}

TEST_F(LockOnInit, scanTimeModeLocksInOrderAndEmptiesTheQueue) {
  const Probe first(true, locked);
  const Probe unregistered(false, locked);
  const Probe second(true, locked);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&first, &second));
  EXPECT_TRUE(first.isLocked());
  EXPECT_FALSE(unregistered.isLocked());
  EXPECT_TRUE(queue.empty());
}

TEST_F(LockOnInit, laterObjectsAreLockedByTheNextCall) {
  const Probe first(true, locked);
  KxWildcardEmail::initScanTimeMode();
  const Probe second(true, locked);
  KxWildcardEmail::initScanTimeMode();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&first, &second));
}

TEST_F(LockOnInit, nullEntryIsLoggedAndSkipped) {
  const Probe first(true, locked);
  KxWildcardEmail::_addToLockOnInit(nullptr);
  const Probe second(true, locked);
  queue.push(nullptr);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&first, &second));
  const auto line = error("KxWildcardEmail::initScanTimeMode has found a NULL pointer on the _lockOnInit queue.");
  EXPECT_THAT(platform().log.lines(), ElementsAre(line, line));
}

TEST_F(LockOnInit, tableRegistersItself) {
  KxStringtable table;
  table.getStringtableRef("text");
  EXPECT_EQ(queue.back(), &table);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_TRUE(table.isLocked());
}

TEST_F(LockOnInit, nodesAndLeavesRegisterThemselvesOverATableOnly) {
  KxStringtable table;
  KxWildcardRootNode node(&table);
  EXPECT_EQ(queue.back(), &node);
  KxListedEmailAddress leaf(&table, "a@b", "a");
  EXPECT_EQ(queue.back(), &leaf);
  const std::size_t before = queue.size();
  KxWildcardRootNode floatingNode(nullptr);
  KxListedEmailAddress floatingLeaf(nullptr, "a@b", "a");
  floatingNode.addAddressPattern("a@b", 1, nullptr, nullptr);
  EXPECT_EQ(queue.size(), before);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_FALSE(floatingNode.isLocked());
  EXPECT_FALSE(floatingLeaf.isLocked());
}

// --- Objects that go while they are queued ---

// The entries are looked at through a copy: what the library holds stays as it is.
std::vector<KxLockableClass*> entriesOf(std::queue<KxLockableClass*> entries) {
  std::vector<KxLockableClass*> result;
  for (; !entries.empty(); entries.pop()) {
    result.push_back(entries.front());
  }
  return result;
}

TEST_F(LockOnInit, entryOfADestroyedObjectStaysAndMeansNothing) {
  const Probe first(true, locked);
  auto second = std::make_unique<Probe>(true, locked);
  const Probe third(true, locked);
  const KxLockableClass* gone = second.get();
  second.reset();
  const auto entries = entriesOf(queue);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0], &first);
  EXPECT_NE(entries[1], gone);
  EXPECT_NE(entries[1], nullptr);
  EXPECT_EQ(entries[2], &third);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&first, &third));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(LockOnInit, everyPlaceInTheQueueIsFound) {
  std::vector<std::unique_ptr<Probe>> probes;
  for (int i = 0; i < 1000; ++i) {
    probes.push_back(std::make_unique<Probe>(true, locked));
  }
  for (int taken = 0; taken < 100; ++taken) {
    queue.pop();
  }
  for (std::size_t i = 0; i < probes.size(); i += 2) {
    probes[i].reset();
  }
  EXPECT_EQ(queue.size(), 900u);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_EQ(locked.size(), 450u);
}

TEST_F(LockOnInit, destroyedTreeAndTableAreNotFollowed) {
  {
    KxStringtable table;
    KxWildcardRootNode tree(&table);
    for (const char* pattern : {"a@b.c", "*@b.c", "a@*.c", "*", "bare"}) {
      tree.addAddressPattern(pattern, 1, nullptr, nullptr);
    }
  }
  std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
  tree->addAddressPattern("*@*.c", 1, nullptr, nullptr);
  tree.reset();
  const std::size_t entries = queue.size();
  EXPECT_GT(entries, 10u);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_TRUE(queue.empty());
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(LockOnInit, objectThatGoesAfterItsLockLeavesTheQueueAlone) {
  auto first = std::make_unique<Probe>(true, locked);
  KxWildcardEmail::initScanTimeMode();
  const Probe second(true, locked);
  first.reset();
  EXPECT_EQ(queue.front(), &second);
}

TEST_F(LockOnInit, objectThatIsQueuedTwiceIsForgottenTwice) {
  auto probe = std::make_unique<Probe>(true, locked);
  const Probe between(true, locked);
  KxWildcardEmail::_addToLockOnInit(probe.get());
  probe.reset();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&between));
}

TEST_F(LockOnInit, objectThatIsQueuedAgainAfterItsLockIsForgotten) {
  auto probe = std::make_unique<Probe>(true, locked);
  KxWildcardEmail::initScanTimeMode();
  KxWildcardEmail::_addToLockOnInit(probe.get());
  probe.reset();
  locked.clear();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, IsEmpty());
}

TEST_F(LockOnInit, unregisteredObjectThatIsQueuedByHandIsForgotten) {
  auto probe = std::make_unique<Probe>(false, locked);
  KxWildcardEmail::_addToLockOnInit(probe.get());
  probe.reset();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, IsEmpty());
}

TEST_F(LockOnInit, processThatNeverFreezesHasAQueueOfBoundedLength) {
  std::vector<std::unique_ptr<Probe>> kept;
  for (int i = 0; i < 1000000; ++i) {
    auto probe = std::make_unique<Probe>(true, locked);
    if (i % 100000 == 50000) {
      kept.push_back(std::move(probe));
    }
    if (i % 300000 == 0) {
      KxWildcardEmail::_addToLockOnInit(nullptr);
    }
  }
  EXPECT_LT(queue.size(), 200000u);
  kept.erase(kept.begin() + 3);
  std::vector<const Probe*> want;
  for (const std::unique_ptr<Probe>& probe : kept) {
    want.push_back(probe.get());
  }
  KxWildcardEmail::initScanTimeMode();
  EXPECT_EQ(locked, want);
  EXPECT_EQ(platform().log.lines().size(), 4u);  // a null entry is never passed over in silence
}

// Places change while the queue is looked through.
TEST_F(LockOnInit, everyPlaceIsFoundAfterTheQueueWasLookedThrough) {
  std::vector<std::unique_ptr<Probe>> probes;
  for (int i = 0; i < 300000; ++i) {
    probes.push_back(std::make_unique<Probe>(true, locked));
  }
  for (std::size_t i = 0; i < probes.size(); ++i) {
    if (i % 3 != 0) {
      probes[i].reset();
    }
  }
  const Probe last(true, locked);
  ASSERT_EQ(queue.size(), 100001u);
  const auto start = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < probes.size(); i += 6) {
    probes[i].reset();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  KxWildcardEmail::initScanTimeMode();
  EXPECT_EQ(locked.size(), 50001u);
}

// Whoever takes the queue for a plain one moves entries without its knowledge.
TEST_F(LockOnInit, entriesThatWereMovedAreFoundAllTheSame) {
  std::queue<KxLockableClass*>& plain = queue;
  const Probe first(true, locked);
  const Probe second(true, locked);
  auto third = std::make_unique<Probe>(true, locked);
  auto fourth = std::make_unique<Probe>(true, locked);
  plain.pop();
  third.reset();
  plain.push(plain.front());
  plain.pop();
  fourth.reset();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&second));
}

TEST_F(LockOnInit, queueCanBeSwappedOutAndBack) {
  auto first = std::make_unique<Probe>(true, locked);
  const Probe second(true, locked);
  std::queue<KxLockableClass*> aside;
  std::swap<std::queue<KxLockableClass*>>(queue, aside);
  const Probe third(true, locked);
  EXPECT_EQ(queue.size(), 1u);
  queue = aside;
  first.reset();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&second));
}

// Others are frozen while the queue is away.
TEST_F(LockOnInit, entryIsFoundAfterOthersWentThroughTheQueueMeanwhile) {
  auto first = std::make_unique<Probe>(true, locked);
  const Probe second(true, locked);
  std::queue<KxLockableClass*> aside;
  std::swap<std::queue<KxLockableClass*>>(queue, aside);
  std::vector<std::unique_ptr<Probe>> others;
  for (int i = 0; i < 10; ++i) {
    others.push_back(std::make_unique<Probe>(true, locked));
  }
  KxWildcardEmail::initScanTimeMode();
  std::swap<std::queue<KxLockableClass*>>(queue, aside);
  ASSERT_EQ(queue.front(), first.get());
  first.reset();
  locked.clear();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&second));
}

TEST_F(LockOnInit, copyOfTheQueueThatIsPutBackAfterAFreezeIsFollowedNowhere) {
  for (const bool throughTheBase : {false, true}) {
    auto first = std::make_unique<Probe>(true, locked);
    const Probe second(true, locked);
    const KxLockOnInitQueue copy = queue;
    KxWildcardEmail::initScanTimeMode();
    if (throughTheBase) {
      static_cast<std::queue<KxLockableClass*>&>(queue) = copy;
    } else {
      queue = copy;
    }
    first.reset();
    locked.clear();
    KxWildcardEmail::initScanTimeMode();
    EXPECT_THAT(locked, ElementsAre(&second));
  }
}

// What happens to a copy is no news of the objects in the real queue.
TEST_F(LockOnInit, objectStaysQueuedWhenACopyOfTheQueueIsPopped) {
  auto first = std::make_unique<Probe>(true, locked);
  const KxLockableClass* const gone = first.get();
  const Probe second(true, locked);
  KxLockOnInitQueue copy = queue;
  copy.pop();
  copy.pop();
  first.reset();
  EXPECT_THAT(entriesOf(queue), Not(Contains(gone)));
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, ElementsAre(&second));
}

TEST_F(LockOnInit, treeThatGoesAfterACopyOfTheQueueWasPoppedIsNotFollowed) {
  std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
  tree->addAddressPattern("user@example.test", 1, nullptr, nullptr);
  for (KxLockOnInitQueue copy = queue; !copy.empty();) {
    copy.pop();
  }
  const KxLockableClass* const gone = tree.get();
  tree.reset();
  EXPECT_THAT(entriesOf(queue), Not(Contains(gone)));
  KxWildcardEmail::initScanTimeMode();
  EXPECT_TRUE(queue.empty());
}

TEST_F(LockOnInit, emplacedObjectIsForgotten) {
  auto queued = std::make_unique<Probe>(true, locked);
  auto unregistered = std::make_unique<Probe>(false, locked);
  queue.emplace(queued.get());
  EXPECT_EQ(queue.emplace(unregistered.get()), unregistered.get());
  queued.reset();
  unregistered.reset();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, IsEmpty());
}

TEST_F(LockOnInit, queuedObjectThatThePlainQueueTookAgainIsForgotten) {
  std::queue<KxLockableClass*>& plain = queue;
  auto probe = std::make_unique<Probe>(true, locked);
  plain.push(probe.get());
  auto frozen = std::make_unique<Probe>(true, locked);
  plain.push(frozen.get());
  queue.pop();
  probe.reset();
  queue.pop();
  queue.pop();
  frozen.reset();
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, IsEmpty());
}

TEST_F(LockOnInit, objectsThatWereLockedLeaveNothingInTheQueueToRemove) {
  std::vector<std::unique_ptr<Probe>> probes;
  for (int i = 0; i < 70000; ++i) {
    probes.push_back(std::make_unique<Probe>(true, locked));
  }
  KxWildcardEmail::initScanTimeMode();
  std::make_unique<Probe>(true, locked).reset();
  probes.clear();
  const std::size_t before = queue.size();
  const Probe last(true, locked);
  EXPECT_EQ(queue.size(), before + 1);
}

// A search for every one of them would take minutes.
TEST_F(LockOnInit, manyLockedObjectsGoWithoutASearchWhileOthersAreQueued) {
  constexpr std::size_t kMany = 300000;
  std::vector<std::unique_ptr<Probe>> probes;
  for (std::size_t i = 0; i < 2 * kMany; ++i) {
    if (i == kMany) {
      KxWildcardEmail::initScanTimeMode();
    }
    probes.push_back(std::make_unique<Probe>(true, locked));
  }
  const auto start = std::chrono::steady_clock::now();
  probes.clear();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(queue.size(), kMany);
}

// A search for every one of them would take minutes.
TEST_F(LockOnInit, manyObjectsGoWithoutASearch) {
  constexpr std::size_t kMany = 300000;
  std::vector<std::unique_ptr<Probe>> probes;
  for (std::size_t i = 0; i < kMany; ++i) {
    probes.push_back(std::make_unique<Probe>(true, locked));
  }
  const auto start = std::chrono::steady_clock::now();
  while (!probes.empty()) {
    probes.pop_back();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(queue.size(), kMany);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_THAT(locked, IsEmpty());
}

}  // namespace

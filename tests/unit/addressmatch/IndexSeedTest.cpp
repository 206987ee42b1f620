// What no input brings about. The program compiles the sources itself, and replaces two functions of them:
//
//   processHashSeed       hashes of 64 bits that are the same. No text is known to have them under a seed that is drawn at
//                         random; here a text that begins with the seed's first word has the hash 0, whatever follows in its
//                         first 16 bytes
//   InternedTexts::rank   a table whose ranks run out, without four thousand million texts. The linker has calls of it arrive
//                         here (`--wrap`)
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AllocationCount.h"
#include "KxWildcardEmail.h"
#include "SlowMatcher.h"
#include "addressmatch/intern/InternedTexts.h"
#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"
#include "scripted/Platform.h"

namespace zaro_addressmatch {

// The first letter is the word's lowest byte, so that the next seeds that an index tries are those of "dollide-" and
// "eollide-".
const HashSeed& processHashSeed() {
  static const HashSeed seed = {{load8("collide-"), 0x9AE16A3B2F90404Fu, 0xC949D7C7509E6557u, 0xFF51AFD7ED558CCDu}};
  return seed;
}

}  // namespace zaro_addressmatch

namespace {
unsigned int highestRank = KxIndexedString::HighestIndex;
}  // namespace

// bool InternedTexts::rank(unsigned int), as the linker spells it.
extern "C" {
bool __real__ZN17zaro_addressmatch13InternedTexts4rankEj(zaro_addressmatch::InternedTexts* texts, unsigned int limit);
bool __wrap__ZN17zaro_addressmatch13InternedTexts4rankEj(zaro_addressmatch::InternedTexts* texts, unsigned int limit);
bool __wrap__ZN17zaro_addressmatch13InternedTexts4rankEj(zaro_addressmatch::InternedTexts* texts, unsigned int limit) {
  return __real__ZN17zaro_addressmatch13InternedTexts4rankEj(texts, std::min(limit, highestRank));
}
}

namespace {

using Texts = std::vector<std::string>;
using Leaves = std::vector<KxListedEmailAddress*>;
using LogLines = std::vector<scripted::LogLine>;

struct Case {
  const char* label;
  Texts patterns;
  bool isIndexed;
};

const Case kCases[] = {
    {"nothing collides", {"user@collide-a.test", "user@example.test", "*@*.test"}, true},
    {"domains", {"user@collide-a.test", "*@collide-b.test", "*@*.collide-c.test"}, true},
    {"names at a domain", {"collide-a@x.test", "collide-b@x.test", "*@x.test"}, true},
    {"names below a domain", {"collide-a@*.x.test", "collide-b@*.x.test", "*@*.x.test"}, true},
    {"a name below a domain and below all", {"user@*.collide-a.test", "user@*", "*"}, true},
    {"domains under two seeds",
     {"user@collide-a.test", "user@collide-b.test", "user@dollide-a.test", "user@dollide-b.test"},
     true},
    {"domains under every seed that is tried",
     {"user@collide-a.test", "user@collide-b.test", "user@dollide-a.test", "user@dollide-b.test", "user@eollide-a.test",
      "*@eollide-b.test"},
     false},
};

// What the patterns contain, and what they nearly contain.
Texts addressesFor(const Texts& patterns) {
  Texts addresses;
  for (const std::string& pattern : patterns) {
    std::string address = pattern;
    for (std::size_t star = address.find('*'); star != std::string::npos; star = address.find('*')) {
      address.replace(star, 1, "any");
    }
    addresses.push_back(address);
    addresses.push_back("collide-a@" + address.substr(address.find('@') + 1));
    addresses.push_back("user@a." + address.substr(address.find('@') + 1));
    addresses.push_back("user@collide-d.test");
  }
  return addresses;
}

class IndexSeed : public scripted::PlatformTest {};

const char* const kRanksRanOut =
    "KxStrintable::lock: index exceeded maximum allowed. Remainder of strings will be unindexed. Loss of optimizations likely, but functionality should still be preseng";

TEST_F(IndexSeed, treeWhoseHashesCollideIsIndexedUnderAnotherSeedOrWalked) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.label);
    KxStringtable table;
    KxWildcardRootNode tree(&table);
    slow::Tree slowTree(nullptr);
    for (const std::string& pattern : c.patterns) {
      ASSERT_TRUE(tree.addAddressPattern(pattern.c_str(), 1, nullptr, nullptr)) << pattern;
      slowTree.add(pattern, 1);
    }
    KxWildcardEmail::initScanTimeMode();
    for (const std::string& address : addressesFor(c.patterns)) {
      Texts want;
      for (const slow::Leaf* leaf : slowTree.findMatches(address)) {
        want.push_back(leaf->fullAddress);
      }
      Leaves found;
      found.reserve(8);
      {
        const AllocationCount count;
        tree.findMatches(address.c_str(), found);
        EXPECT_EQ(count.allocations() == 0, c.isIndexed) << "only a walk takes memory";
      }
      Texts got;
      for (const KxListedEmailAddress* leaf : found) {
        got.emplace_back(leaf->getFullAddressAsStr());
      }
      EXPECT_EQ(got, want) << address;
    }
  }
  EXPECT_THAT(scripted::platform().log.lines(), testing::IsEmpty());
}

// The filters let such addresses pass, and they lead to the pattern's own slot.
TEST_F(IndexSeed, textsOfOneHashAreToldApartByEveryCharacter) {
  const std::string text = "collide-abcdefgh";
  for (const auto& [before, behind] : {std::make_pair("", "@x.test"), std::make_pair("user@", "")}) {
    KxStringtable table;
    KxWildcardRootNode tree(&table);
    ASSERT_TRUE(tree.addAddressPattern((before + text + behind).c_str(), 1, nullptr, nullptr));
    KxWildcardEmail::initScanTimeMode();
    for (std::size_t at = std::string("collide-").size(); at != text.size(); ++at) {
      for (const char other : {'a', 'b', 'd', 'h', '-', '7', '~'}) {
        std::string asked = text;
        asked[at] = other;
        Leaves found;
        EXPECT_EQ(tree.findMatches((before + asked + behind).c_str(), found).empty(), asked != text)
            << before << asked << behind;
      }
    }
  }
}

// Those that needed other seeds have filters and queries of their own.
TEST_F(IndexSeed, treesThatWereFrozenTogetherUnderSeveralSeedsDecideTogether) {
  KxStringtable table;
  std::vector<std::unique_ptr<KxWildcardRootNode>> roots;
  std::vector<KxWildcardNode*> frozen;
  std::vector<KxWildcardNode*> floating;
  Texts addresses;
  unsigned int kind = 1;
  for (const Case& c : kCases) {
    for (auto* trees : {&frozen, &floating}) {
      roots.push_back(std::make_unique<KxWildcardRootNode>(trees == &frozen ? &table : nullptr));
      trees->push_back(roots.back().get());
      for (const std::string& pattern : c.patterns) {
        ASSERT_TRUE(trees->back()->addAddressPattern(pattern.c_str(), kind, nullptr, nullptr)) << pattern;
      }
    }
    kind = kind == 8 ? 1 : 2 * kind;
    for (const std::string& address : addressesFor(c.patterns)) {
      addresses.push_back(address);
    }
  }
  KxWildcardEmail::initScanTimeMode();
  std::vector<const char*> texts;
  for (const std::string& address : addresses) {
    texts.push_back(address.c_str());
  }
  std::vector<KxMatchResult> results(texts.size());
  KxWildcardEmail::matchEmailAddressBatch(texts.data(), texts.size(), frozen, results.data());
  for (std::size_t i = 0; i != texts.size(); ++i) {
    unsigned int wantTree = 0;
    unsigned int tree = 0;
    const char* wantName = nullptr;
    const char* name = nullptr;
    KxEmailBelongsTo wantKind = 0;
    KxEmailBelongsTo gotKind = 0;
    const unsigned int want = KxWildcardEmail::matchEmailAddress(texts[i], floating, &wantTree, &wantName, &wantKind);
    EXPECT_EQ(KxWildcardEmail::matchEmailAddress(texts[i], frozen, &tree, &name, &gotKind), want) << texts[i];
    EXPECT_EQ(tree, wantTree) << texts[i];
    EXPECT_STREQ(name, wantName) << texts[i];
    EXPECT_EQ(gotKind, wantKind) << texts[i];
    EXPECT_EQ(results[i].code, want) << texts[i];
    EXPECT_EQ(results[i].treeIndex, wantTree) << texts[i];
    EXPECT_STREQ(results[i].name, wantName) << texts[i];
  }
}

TEST_F(IndexSeed, tableWhoseRanksRunOutSaysSoAndComparesTheRestByText) {
  for (const unsigned int limit : {5u, 4u, 3u}) {
    highestRank = limit;
    scripted::platform().log.clear();
    KxStringtable table;
    for (const char* text : {"d", "a", "c", "b"}) {
      table.getStringtableRef(text);
    }
    table.lock();
    highestRank = KxIndexedString::HighestIndex;
    // The line comes also when the last text has got the last rank.
    const LogLines want = limit > 4 ? LogLines() : LogLines{scripted::error(kRanksRanOut)};
    EXPECT_EQ(scripted::platform().log.lines(), want) << limit;
    EXPECT_TRUE(table.isLocked());
    EXPECT_EQ(table.getRef("c")->getIndex(), 2u);
    EXPECT_EQ(table.getRef("d")->getIndex(), limit > 3 ? 3u : KxIndexedString::TableEntry);
    EXPECT_TRUE(*table.getRef("c") < *table.getRef("d"));
    EXPECT_FALSE(*table.getRef("d") < *table.getRef("a"));
  }
}

TEST_F(IndexSeed, treeWhoseTableRanOutOfRanksIsSearchedAsEver) {
  const Texts patterns = {"user@example.test", "*@example.test", "other@*.test", "*@*.second.test", "*"};
  KxStringtable table;
  KxWildcardRootNode tree(&table);
  slow::Tree slowTree(nullptr);
  for (const std::string& pattern : patterns) {
    ASSERT_TRUE(tree.addAddressPattern(pattern.c_str(), 1, nullptr, nullptr)) << pattern;
    slowTree.add(pattern, 1);
  }
  highestRank = 3;
  KxWildcardEmail::initScanTimeMode();
  highestRank = KxIndexedString::HighestIndex;
  EXPECT_EQ(scripted::platform().log.lines(), LogLines{scripted::error(kRanksRanOut)});
  for (const std::string& address : addressesFor(patterns)) {
    Texts want;
    for (const slow::Leaf* leaf : slowTree.findMatches(address)) {
      want.push_back(leaf->fullAddress);
    }
    Leaves found;
    Texts got;
    for (const KxListedEmailAddress* leaf : tree.findMatches(address.c_str(), found)) {
      got.emplace_back(leaf->getFullAddressAsStr());
    }
    EXPECT_EQ(got, want) << address;
  }
}

}  // namespace

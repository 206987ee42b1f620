#include "KxStringtable.h"

#include <climits>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "NothrowAllocationFailure.h"
#include "VirtualSlots.h"
#include "addressmatch/intern/Ranks.h"
#include "scripted/Platform.h"

namespace {

using scripted::error;
using scripted::LogLines;
using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned int kHighest = 0xFFFFFFFCu;
constexpr unsigned int kEntry = 0xFFFFFFFDu;
constexpr unsigned int kWrapper = 0xFFFFFFFEu;
constexpr unsigned int kDeepCopy = 0xFFFFFFFFu;

const KxIndexedString* const kNoHandle = nullptr;
const char* const kNoText = nullptr;

KxIndexedString handleOf(const char* text, unsigned int index) {
  KxIndexedString handle(text);
  handle._setIndex(index);
  return handle;
}

// An array as the library's own texts are.
const char* newText(const char* text) {
  return std::strcpy(new char[std::strlen(text) + 1], text);
}

class Stringtable : public scripted::PlatformTest {
 protected:
  const LogLines logged() const { return platform().log.lines(); }

  KxStringtable table;
};

// --- KxIndexedString ---

TEST(IndexedString, isASmallPlainValue) {
  EXPECT_TRUE(std::is_trivially_copyable<KxIndexedString>::value);
  EXPECT_FALSE(std::is_polymorphic<KxIndexedString>::value);
  EXPECT_EQ(sizeof(KxIndexedString), 2 * sizeof(void*));
}

TEST(IndexedString, wrapsATextWithoutCopyingIt) {
  const char text[] = "text";
  const KxIndexedString handle(text);
  EXPECT_EQ(handle.getString(), text);
  EXPECT_EQ(handle.getIndex(), kWrapper);
}

TEST(IndexedString, isCopiedWithItsIndex) {
  const KxIndexedString original = handleOf("text", 7);
  const KxIndexedString copy(original);
  EXPECT_EQ(copy.getString(), original.getString());
  EXPECT_EQ(copy.getIndex(), 7u);
}

struct OrderCase {
  const char* label;
  const char* text;
  unsigned int index;
  const char* otherText;
  unsigned int otherIndex;
  int want;  // sign of the comparison
};

const OrderCase kOrderCases[] = {
    {"ranks", "b", 1, "a", 2, -1},
    {"equal ranks", "b", 2, "a", 2, 0},
    {"highest rank", "a", kHighest, "b", kHighest - 1, 1},
    {"ranks are unsigned", "a", 0x80000000u, "b", 1, 1},
    {"rank and entry", "b", 1, "a", kEntry, 1},
    {"rank and wrapper", "a", 9, "b", kWrapper, -1},
    {"rank and deep copy", "a", 9, "a", kDeepCopy, 0},
    {"entries", "a", kEntry, "b", kEntry, -1},
    {"wrapper and deep copy", "b", kWrapper, "a", kDeepCopy, 1},
    {"same text, other markers", "a", kEntry, "a", kWrapper, 0},
    {"beginning of the other", "a", kWrapper, "aa", kWrapper, -1},
    {"bytes are unsigned", "\xc3", kWrapper, "z", kWrapper, 1},
    {"upper case comes first", "B", kWrapper, "a", kWrapper, -1},
    {"null counts as empty", nullptr, kWrapper, "", kWrapper, 0},
    {"null comes first", nullptr, kWrapper, "a", kWrapper, -1},
};

TEST(IndexedString, comparesByRankWhereBothHaveOneAndByTextOtherwise) {
  for (const OrderCase& test : kOrderCases) {
    const KxIndexedString one = handleOf(test.text, test.index);
    const KxIndexedString other = handleOf(test.otherText, test.otherIndex);
    EXPECT_EQ(one < other, test.want < 0) << test.label;
    EXPECT_EQ(other<one, test.want> 0) << test.label;
    EXPECT_EQ(one == other, test.want == 0) << test.label;
    EXPECT_EQ(one != other, test.want != 0) << test.label;
  }
}

TEST(IndexedString, cleaningUpFreesTheTextAndLeavesAWrapper) {
  KxIndexedString handle = handleOf(newText("text"), kEntry);
  const char* before = handle.getString();
  EXPECT_TRUE(handle._explicitCleanupString());
  EXPECT_EQ(handle.getIndex(), kWrapper);
  EXPECT_TRUE(handle.getString() == before);
}

TEST(IndexedString, cleaningUpANullTextFails) {
  KxIndexedString handle = handleOf(nullptr, kEntry);
  EXPECT_FALSE(handle._explicitCleanupString());
  EXPECT_EQ(handle.getIndex(), kEntry);
}

TEST_F(Stringtable, deepCopyOwnsItsText) {
  char text[] = "text";
  const KxIndexedString source = handleOf(text, 3);
  KxIndexedString* copy = KxIndexedString::deepCopy(&source);
  text[0] = 'n';
  ASSERT_NE(copy, nullptr);
  EXPECT_STREQ(copy->getString(), "text");
  EXPECT_EQ(copy->getIndex(), kDeepCopy);
  EXPECT_TRUE(KxStringtable::cleanupReference(copy));
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, deepCopyOfNothingIsLogged) {
  const KxIndexedString nothing(nullptr);
  EXPECT_EQ(KxIndexedString::deepCopy(nullptr), nullptr);
  EXPECT_EQ(KxIndexedString::deepCopy(&nothing), nullptr);
  EXPECT_THAT(logged(), ElementsAre(error("KxIndexedString::deepCopy: argument or string wrapped by argument is NULL!"),
                                    error("KxIndexedString::deepCopy: argument or string wrapped by argument is NULL!")));
}

TEST_F(Stringtable, deepCopyWithoutMemoryIsLogged) {
  const KxIndexedString source("text");
  for (int allocation = 1; allocation <= 2; ++allocation) {
    platform().log.clear();
    NothrowAllocationFailure failure(allocation);
    EXPECT_EQ(KxIndexedString::deepCopy(&source), nullptr);
    EXPECT_TRUE(failure.happened());
    EXPECT_THAT(
        logged(),
        ElementsAre(error("KxIndexedString::deepCopy: could not allocate space for copy of wrapped string: text.")));
  }
}

// --- Filling ---

TEST_F(Stringtable, isLockableAndHasNoOtherVirtualOperations) {
  EXPECT_EQ(slotOf(&KxLockableClass::lock), 0u);
  EXPECT_EQ(slotOf(&KxLockableClass::isLocked), 1u);
  EXPECT_EQ(slotOf(&KxLockableClass::_lock), 2u);
  EXPECT_EQ(slotOf(&KxStringtable::lock), 0u);
  EXPECT_EQ(slotOf(&KxStringtable::isLocked), 1u);
  EXPECT_EQ(slotOf(&KxStringtable::_lock), 2u);
  EXPECT_FALSE(std::has_virtual_destructor<KxLockableClass>::value);
  EXPECT_FALSE(std::has_virtual_destructor<KxStringtable>::value);
}

TEST_F(Stringtable, isEmptyAndOpenAtFirst) {
  EXPECT_EQ(table.size(), 0u);
  EXPECT_FALSE(table.isLocked());
}

TEST_F(Stringtable, internsATextOnce) {
  char text[] = "text";
  const KxIndexedString* entry = table.getStringtableRef(text);
  std::strcpy(text, "else");
  const KxIndexedString wrapper("text");
  EXPECT_EQ(entry->getIndex(), kEntry);
  EXPECT_STREQ(entry->getString(), "text");
  EXPECT_EQ(table.getStringtableRef("text"), entry);
  EXPECT_EQ(table.getStringtableRef(&wrapper), entry);
  EXPECT_EQ(table.getStringtableRef(wrapper), entry);
  EXPECT_EQ(table.getStringtableRef(entry), entry);
  EXPECT_EQ(table._addToStringtable("text"), entry);
  EXPECT_EQ(table._addToStringtable(&wrapper), entry);
  EXPECT_EQ(table.size(), 1u);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, textsThatDifferInCaseAreDifferent) {
  EXPECT_NE(table.getStringtableRef("text"), table.getStringtableRef("Text"));
}

TEST_F(Stringtable, emptyTextIsATextLikeOthers) {
  const KxIndexedString* entry = table.getStringtableRef(&KxStringtable::_theEmptyIndexedString);
  EXPECT_NE(entry, &KxStringtable::_theEmptyIndexedString);
  EXPECT_EQ(entry->getIndex(), kEntry);
  EXPECT_STREQ(entry->getString(), "");
}

TEST_F(Stringtable, handlesOfEveryKindAreTakenInWithATextOfTheirOwn) {
  KxStringtable other;
  const KxIndexedString* foreign = other.getStringtableRef("foreign");
  const KxIndexedString* lockedForeign = other.getStringtableRef("locked");
  const KxIndexedString wrapper("wrapper");
  KxIndexedString* copy = KxIndexedString::deepCopy(&wrapper);
  other.lock();
  for (const KxIndexedString* handle : {foreign, lockedForeign, &wrapper, static_cast<const KxIndexedString*>(copy)}) {
    const KxIndexedString* entry = table.getStringtableRef(handle);
    EXPECT_NE(entry, handle);
    EXPECT_STREQ(entry->getString(), handle->getString());
    EXPECT_NE(entry->getString(), handle->getString());
    EXPECT_EQ(entry->getIndex(), kEntry);
  }
  EXPECT_EQ(table.size(), 3u);
  KxStringtable::cleanupReference(copy);
}

TEST_F(Stringtable, entriesStayWhereTheyAre) {
  std::vector<const KxIndexedString*> entries;
  std::vector<const char*> texts;
  for (int i = 0; i < 1000; ++i) {
    entries.push_back(table.getStringtableRef(std::to_string(i * 7919 % 1000).c_str()));
    texts.push_back(entries.back()->getString());
  }
  table.lock();
  for (int i = 0; i < 1000; ++i) {
    const KxIndexedString* entry = table.getRef(std::to_string(i * 7919 % 1000).c_str());
    EXPECT_EQ(entry, entries[static_cast<std::size_t>(i)]);
    EXPECT_EQ(entry->getString(), texts[static_cast<std::size_t>(i)]);
  }
}

TEST_F(Stringtable, internedHandlesThatAreNullOrWrapNullAreLoggedAndReturned) {
  const KxIndexedString nothing(nullptr);
  EXPECT_EQ(table.getStringtableRef(kNoHandle), nullptr);
  EXPECT_EQ(table.getStringtableRef(&nothing), &nothing);
  EXPECT_EQ(table.getStringtableRef(nothing), &nothing);
  const auto line = error(
      "KxStringtable::getStringtableRef(const KxIndexedString *): could not insert argument into stringtable because the argument or the string it wraps is NULL!");
  EXPECT_THAT(logged(), ElementsAre(line, line, line));
}

TEST_F(Stringtable, internedNullTextIsLogged) {
  EXPECT_EQ(table.getStringtableRef(kNoText), nullptr);
  EXPECT_THAT(
      logged(),
      ElementsAre(error(
          "KxStringtable::getStringtableRef(const char *): could not insert argument into stringtable because the argument is NULL!")));
}

TEST_F(Stringtable, addedNullIsLogged) {
  const KxIndexedString nothing(nullptr);
  EXPECT_EQ(table._addToStringtable(kNoHandle), nullptr);
  EXPECT_EQ(table._addToStringtable(kNoText), nullptr);
  EXPECT_EQ(table._addToStringtable(&nothing), nullptr);
  const auto line = error("KxStringtable::_addToStringtable: the argument for insertion is NULL!");
  EXPECT_THAT(logged(), ElementsAre(line, line, line));
  EXPECT_EQ(table.size(), 0u);
}

TEST_F(Stringtable, entryThatClaimsToBeNoneIsLoggedAndReturned) {
  auto* entry = const_cast<KxIndexedString*>(table.getStringtableRef("text"));
  entry->_setIndex(kWrapper);
  EXPECT_EQ(table._addToStringtable(entry), entry);
  entry->_setIndex(kEntry);
  EXPECT_EQ(table._addToStringtable(entry), entry);
  EXPECT_THAT(
      logged(),
      ElementsAre(error(
          "KxStringtable::_addToStringtable: looking up the entry in the stringtable returned the original entry. However, the entry is not in the stringtable : text, 4294967294. Insertion failed.")));
}

// --- Looking up ---

TEST_F(Stringtable, lookingUpDoesNotTakeIn) {
  const KxIndexedString* entry = table.getStringtableRef("known");
  const KxIndexedString known("known");
  const KxIndexedString unknown("unknown");
  EXPECT_EQ(table.getRef(&known), entry);
  EXPECT_EQ(table.getRef("known"), entry);
  EXPECT_EQ(table._findInStringtable(&known), entry);
  EXPECT_EQ(table._findInStringtable("known"), entry);
  EXPECT_EQ(table.getRef(&unknown), &unknown);
  EXPECT_EQ(table._findInStringtable(&unknown), nullptr);
  EXPECT_EQ(table._findInStringtable("unknown"), nullptr);
  EXPECT_EQ(table.size(), 1u);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, unknownTextIsAnsweredWithAWrapperThatBorrowsIt) {
  const char text[] = "unknown";
  const KxIndexedString* wrapper = table.getRef(text);
  EXPECT_EQ(wrapper->getString(), text);
  EXPECT_EQ(wrapper->getIndex(), kWrapper);
  EXPECT_TRUE(KxStringtable::cleanupReference(wrapper));
  EXPECT_EQ(table.size(), 0u);
}

TEST_F(Stringtable, lookingUpNullIsLogged) {
  EXPECT_EQ(table.getRef(kNoHandle), nullptr);
  EXPECT_EQ(table._findInStringtable(kNoHandle), nullptr);
  EXPECT_EQ(table.getRef(kNoText), nullptr);
  EXPECT_EQ(table._findInStringtable(kNoText), nullptr);
  const auto handleLine =
      error("KxStringtable::_findInStringtable: the search argument (const KxIndexedString *) is NULL!");
  const auto textLine = error("KxStringtable::_findInStringtable: the search argument (const char *) is NULL!");
  EXPECT_THAT(logged(), ElementsAre(handleLine, handleLine, textLine, textLine));
}

// --- Memory ---

TEST_F(Stringtable, entryWithoutMemoryForItsTextStaysAndBorrowsTheCallersText) {
  const KxIndexedString wrapper("text");
  {
    NothrowAllocationFailure failure;
    EXPECT_EQ(table._addToStringtable(&wrapper), nullptr);
    EXPECT_TRUE(failure.happened());
  }
  EXPECT_THAT(
      logged(),
      ElementsAre(error(
          "KxStringtable::_addToStringtable: could not allocate memory for inserting text , 4294967294 into a stringtable. Insertion failed.")));
  EXPECT_EQ(table.size(), 1u);
  const KxIndexedString* entry = table.getStringtableRef("text");
  EXPECT_NE(entry, &wrapper);
  EXPECT_EQ(entry->getString(), wrapper.getString());
  // A holder's release must not harm the table.
  EXPECT_TRUE(KxStringtable::cleanupReference(entry));
  table.lock();
  EXPECT_EQ(table.getRef("text"), entry);
}

TEST_F(Stringtable, handleThatCannotBeTakenInIsReturned) {
  const KxIndexedString wrapper("text");
  NothrowAllocationFailure failure;
  EXPECT_EQ(table.getStringtableRef(&wrapper), &wrapper);
  EXPECT_THAT(
      logged(),
      ElementsAre(
          error("KxStringtable::_addToStringtable: could not allocate memory for inserting text , 4294967294 into a stringtable. Insertion failed."),
          error("KxStringtable::getStringtableRef(const KxIndexedString *): could not insert argument into stringtable : text, 4294967294")));
}

TEST_F(Stringtable, textThatCannotBeTakenInIsWrappedWithoutACopy) {
  const char text[] = "text";
  const KxIndexedString* wrapper = nullptr;
  {
    NothrowAllocationFailure failure;
    wrapper = table.getStringtableRef(text);
  }
  EXPECT_THAT(
      logged(),
      ElementsAre(
          error("KxStringtable::_addToStringtable: could not allocate memory for inserting text , 4294967294 into a stringtable. Insertion failed."),
          error("KxStringtable::getStringtableRef(const KxIndexedString *): could not insert argument into stringtable : text, 4294967294"),
          error("KxStringtable::getStringtableRef(const char *): warning: could not insert argument into stringtable or the reference returned by the KxIndexedString * version of this method is on the stack. Allocating new copy of text; memory leak may result.")));
  EXPECT_EQ(wrapper->getString(), text);
  EXPECT_EQ(wrapper->getIndex(), kWrapper);
  EXPECT_TRUE(KxStringtable::cleanupReference(wrapper));
}

TEST_F(Stringtable, lookUpWithoutMemoryForTheWrapperAnswersNull) {
  NothrowAllocationFailure failure;
  EXPECT_EQ(table.getRef("text"), nullptr);
}

// --- Frozen ---

TEST_F(Stringtable, lockRanksTheEntriesInTextOrder) {
  const std::vector<const char*> texts = {"b", "", "*", "aa", "a", "B", "\xc3\xbc", "a.b", "~", "a*b"};
  for (const char* text : texts) {
    table.getStringtableRef(text);
  }
  table.lock();
  EXPECT_TRUE(table.isLocked());
  const auto byBytes = [](const char* one, const char* other) { return std::strcmp(one, other) < 0; };
  const std::set<const char*, decltype(byBytes)> sorted(texts.begin(), texts.end(), byBytes);
  unsigned int rank = 0;
  for (const char* text : sorted) {
    EXPECT_EQ(table.getRef(text)->getIndex(), rank++) << text;
  }
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, emptyFrozenTableKnowsNoRankOfAnother) {
  KxStringtable other;
  other.getStringtableRef("text");
  other.lock();
  table.lock();
  EXPECT_EQ(table._findInStringtable(other.getRef("text")), nullptr);
}

TEST_F(Stringtable, emptyTableCanBeLocked) {
  table.lock();
  EXPECT_TRUE(table.isLocked());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, secondLockIsLoggedAndChangesNothing) {
  const KxIndexedString* entry = table.getStringtableRef("text");
  table.lock();
  table.lock();
  EXPECT_TRUE(table.isLocked());
  EXPECT_EQ(entry->getIndex(), 0u);
  EXPECT_THAT(logged(),
              ElementsAre(error("KxStringtable::lock: warning: attempt made to lock a locked stringtable. Ignoring...")));
}

TEST_F(Stringtable, frozenTableTakesNothingIn) {
  const KxIndexedString* entry = table.getStringtableRef("known");
  table.lock();
  const char text[] = "unknown";
  const KxIndexedString handle(text);
  EXPECT_EQ(table.getStringtableRef("known"), entry);
  EXPECT_EQ(table.getStringtableRef(&handle), &handle);
  EXPECT_EQ(table.getStringtableRef(handle), &handle);
  const KxIndexedString* wrapper = table.getStringtableRef(text);
  EXPECT_EQ(wrapper->getString(), text);
  EXPECT_EQ(wrapper->getIndex(), kWrapper);
  EXPECT_TRUE(*entry < *wrapper);
  EXPECT_TRUE(KxStringtable::cleanupReference(wrapper));
  EXPECT_EQ(table.size(), 1u);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, addingToAFrozenTableIsLogged) {
  table.lock();
  const KxIndexedString handle = handleOf("text", 5);
  EXPECT_EQ(table._addToStringtable(&handle), nullptr);
  EXPECT_EQ(table._addToStringtable("other"), nullptr);
  EXPECT_THAT(
      logged(),
      ElementsAre(
          error("KxStringtable::_addToStringtable: warning: an attempt was made to add to a locked stringtable and not caught by KxStringtable::getStringtableRef. Data: text, 5."),
          error("KxStringtable::_addToStringtable: warning: an attempt was made to add to a locked stringtable and not caught by KxStringtable::getStringtableRef. Data: other, 4294967294.")));
  EXPECT_EQ(table.size(), 0u);
}

struct RankCase {
  std::size_t elements;
  bool wantExhausted;
  std::size_t wantRanked;
};

TEST(Ranks, endBelowTheLimit) {
  for (const RankCase& test : {RankCase{0, false, 0}, {2, false, 2}, {3, true, 3}, {4, true, 3}}) {
    const std::vector<char> elements(test.elements);
    std::vector<unsigned int> ranks;
    EXPECT_EQ(zaro_addressmatch::assignRanks(elements.begin(), elements.end(), 3,
                                             [&](char, unsigned int rank) { ranks.push_back(rank); }),
              test.wantExhausted)
        << test.elements;
    ASSERT_EQ(ranks.size(), test.wantRanked);
    for (unsigned int i = 0; i != ranks.size(); ++i) {
      EXPECT_EQ(ranks[i], i);
    }
  }
}

// --- Releasing ---

TEST_F(Stringtable, releasingAnEntryLeavesIt) {
  const KxIndexedString* entry = table.getStringtableRef("text");
  EXPECT_TRUE(KxStringtable::cleanupReference(entry));
  EXPECT_TRUE(KxStringtable::_deepDelete(entry));
  table.lock();
  EXPECT_TRUE(KxStringtable::cleanupReference(entry));
  EXPECT_TRUE(KxStringtable::cleanupReference(const_cast<KxIndexedString*>(entry)));
  EXPECT_TRUE(KxStringtable::_deepDelete(const_cast<KxIndexedString*>(entry)));
  EXPECT_STREQ(entry->getString(), "text");
}

TEST_F(Stringtable, releasingAWrapperLeavesTheText) {
  const std::unique_ptr<const char[]> text(newText("text"));
  EXPECT_TRUE(KxStringtable::cleanupReference(new KxIndexedString(text.get())));
  EXPECT_STREQ(text.get(), "text");
}

TEST_F(Stringtable, releasingADeepCopyFreesBoth) {
  const KxIndexedString source("text");
  EXPECT_TRUE(KxStringtable::cleanupReference(KxIndexedString::deepCopy(&source)));
  EXPECT_TRUE(KxStringtable::_deepDelete(KxIndexedString::deepCopy(&source)));
}

TEST_F(Stringtable, deepDeleteFreesAWrappersTextToo) {
  EXPECT_TRUE(KxStringtable::_deepDelete(new KxIndexedString(newText("text"))));
  const KxIndexedString* constant = new KxIndexedString(newText("text"));
  EXPECT_TRUE(KxStringtable::_deepDelete(constant));
}

TEST_F(Stringtable, deepDeleteOfANullTextFreesTheHandleAndFails) {
  EXPECT_FALSE(KxStringtable::_deepDelete(new KxIndexedString(nullptr)));
  KxIndexedString* copy = new KxIndexedString(nullptr);
  copy->_setIndex(kDeepCopy);
  EXPECT_FALSE(KxStringtable::cleanupReference(copy));
}

TEST_F(Stringtable, releasingNullFails) {
  EXPECT_FALSE(KxStringtable::cleanupReference(static_cast<KxIndexedString*>(nullptr)));
  EXPECT_FALSE(KxStringtable::cleanupReference(kNoHandle));
  EXPECT_FALSE(KxStringtable::_deepDelete(static_cast<KxIndexedString*>(nullptr)));
  EXPECT_FALSE(KxStringtable::_deepDelete(kNoHandle));
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, staticHandlesAreWrappersThatNobodyFrees) {
  KxIndexedString* const handles[] = {&KxStringtable::_theEmptyIndexedString, &KxStringtable::_theWildcardIndexedString};
  const char* const texts[] = {"", "*"};
  for (std::size_t i = 0; i != 2; ++i) {
    const KxIndexedString* constant = handles[i];
    EXPECT_TRUE(KxStringtable::cleanupReference(handles[i]));
    EXPECT_TRUE(KxStringtable::cleanupReference(constant));
    EXPECT_TRUE(KxStringtable::_deepDelete(handles[i]));
    EXPECT_TRUE(KxStringtable::_deepDelete(constant));
    EXPECT_STREQ(constant->getString(), texts[i]);
    EXPECT_EQ(constant->getIndex(), kWrapper);
  }
}

TEST_F(Stringtable, destructionFreesEveryTextSilently) {
  {
    KxStringtable open;
    open.getStringtableRef("a");
    KxStringtable locked;
    locked.getStringtableRef("a");
    locked.lock();
  }
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stringtable, destructionLogsATextThatIsNoLongerThere) {
  {
    KxStringtable damaged;
    auto* entry = const_cast<KxIndexedString*>(damaged.getStringtableRef("text"));
    KxIndexedString nothing(nullptr);
    delete[] entry->getString();
    *entry = nothing;
    entry->_setIndex(kEntry);
  }
  EXPECT_THAT(logged(),
              ElementsAre(error(
                  "~KxStringtable: deallocating the KxIndexedString's private data copy failed: NULL, 4294967293.")));
}

TEST(Allocating, countsUntilItIsReset) {
  EXPECT_EQ(allocating(true), 0u);
  EXPECT_EQ(allocating(false), 1u);
  EXPECT_EQ(allocating(false), 2u);
  EXPECT_EQ(allocating(true), 0u);
  EXPECT_EQ(allocating(false), 1u);
}

}  // namespace

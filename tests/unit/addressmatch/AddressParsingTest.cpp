// How addresses and patterns are split into handles.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "AddressTexts.h"
#include "KxWildcardEmail.h"
#include "NothrowAllocationFailure.h"
#include "SlowMatcher.h"
#include "scripted/Platform.h"

namespace {

using scripted::error;
using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using LabelStack = KxWildcardNode::LabelStack;
using Texts = std::vector<std::string>;

constexpr unsigned int kWrapper = 0xFFFFFFFEu;

class AddressParsing : public scripted::PlatformTest {
 protected:
  KxStringtable table;
};

// An address parsed as callers do it.
class Parsed {
 public:
  Parsed(KxStringtable* table, const char* address) : scratch(KxWildcardEmail::allocateNewEmailAddressString(address)) {
    EXPECT_EQ(&KxWildcardNode::parseAddress(table, address, scratch.get(), stack), &stack);
  }
  ~Parsed() { KxWildcardEmail::cleanupDomainStack(&stack, nullptr); }

  // From the top.
  std::vector<const KxIndexedString*> handles() const {
    std::vector<const KxIndexedString*> result;
    for (LabelStack rest = stack; !rest.empty(); rest.pop()) {
      result.push_back(rest.top());
    }
    return result;
  }
  Texts texts() const {
    Texts result;
    for (const KxIndexedString* handle : handles()) {
      result.emplace_back(handle->getString());
    }
    return result;
  }

  std::unique_ptr<char[]> scratch;
  LabelStack stack;
};

struct ParseCase {
  const char* address;
  Texts want;  // local part, then the labels from right to left
};

const ParseCase kParseCases[] = {
    {"user@example.test", {"user", "test", "example"}},
    {"User@A.Example.Test", {"User", "test", "example", "a"}},
    {"*", {"*", "*"}},
    {"*@*", {"*", "*"}},
    {"*@*.example.test", {"*", "test", "example", "*"}},
    {"user@", {"user", ""}},
    {"@", {"", ""}},
    {"@dom", {"", "dom"}},
    {"bare", {"bare", "bare", ""}},
    {"Bare.Text", {"Bare.Text", "Bare.Text", ""}},
    {"", {"", "", ""}},
    {"**", {"**", "**", ""}},
    {"*x", {"*x", "*x", ""}},
    {"a@b@c.d", {"a", "d", "b@c"}},
    {"a.b@c", {"a.b", "c"}},
    {"a@.", {"a", "", ""}},
    {"a@b..c", {"a", "c", "", "b"}},
    {"a@b.c.", {"a", "", "c", "b"}},
    {"a@.b", {"a", "b", ""}},
    {"a@B*C.*D", {"a", "*d", "b*c"}},
    {"a@[Z`{@z", {"a", "[z`{@z"}},
    {"\xc3\x9c@\xc3\x9c.De", {"\xc3\x9c", "de", "\xc3\x9c"}},
};

TEST_F(AddressParsing, piecesAreOnTheStackWithTheLocalPartOnTop) {
  for (const ParseCase& test : kParseCases) {
    EXPECT_EQ(Parsed(nullptr, test.address).texts(), test.want) << test.address;
    EXPECT_EQ(Parsed(&table, test.address).texts(), test.want) << test.address;
  }
  EXPECT_EQ(table.size(), 0u);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(AddressParsing, handlesAreEntriesWhereTheTableHasThemAndWrappersOtherwise) {
  const KxIndexedString* user = table.getStringtableRef("user");
  const KxIndexedString* test = table.getStringtableRef("test");
  for (const bool frozen : {false, true}) {
    if (frozen) {
      table.lock();
    }
    const Parsed parsed(&table, "user@Unknown.Test");
    const auto handles = parsed.handles();
    ASSERT_EQ(handles.size(), 3u);
    EXPECT_EQ(handles[0], user);
    EXPECT_EQ(handles[1], test);
    EXPECT_EQ(handles[2]->getIndex(), kWrapper);
    EXPECT_STREQ(handles[2]->getString(), "unknown");
    EXPECT_EQ(table.size(), 2u);
  }
}

TEST_F(AddressParsing, localPartIsLookedUpInItsOwnLetterCase) {
  table.getStringtableRef("user");
  EXPECT_EQ(Parsed(&table, "User@b").handles()[0]->getIndex(), kWrapper);
}

TEST_F(AddressParsing, wrappersPointIntoTheScratchSpaceWhichIsCutInPlace) {
  const Parsed parsed(nullptr, "user@a.b");
  const auto handles = parsed.handles();
  const char* scratch = parsed.scratch.get();
  EXPECT_EQ(handles[0]->getString(), scratch);
  EXPECT_EQ(handles[1]->getString(), scratch + std::strlen("user@a."));
  EXPECT_EQ(handles[2]->getString(), scratch + std::strlen("user@"));
}

TEST_F(AddressParsing, everyHandleIsReleasedOnItsOwn) {
  // Twice the whole text: two handles all the same.
  const Parsed parsed(nullptr, "bare");
  const auto handles = parsed.handles();
  EXPECT_NE(handles[0], handles[1]);
}

TEST_F(AddressParsing, parsingGoesOnTopOfWhatIsOnTheStack) {
  LabelStack stack;
  stack.push(new KxIndexedString("before"));
  const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString("a@b"));
  KxWildcardNode::parseAddress(nullptr, "a@b", scratch.get(), stack);
  EXPECT_EQ(stack.size(), 3u);
  KxWildcardEmail::cleanupDomainStack(&stack, nullptr);
}

TEST_F(AddressParsing, nullAddressIsNothing) {
  EXPECT_THAT(Parsed(&table, nullptr).handles(), IsEmpty());
  EXPECT_EQ(KxWildcardEmail::allocateNewEmailAddressString(nullptr), nullptr);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(AddressParsing, takingTheNameTakesTheTop) {
  Parsed parsed(nullptr, "user@a.b");
  const KxIndexedString* name = KxWildcardNode::getEmailAddressName(parsed.stack);
  EXPECT_STREQ(name->getString(), "user");
  EXPECT_EQ(parsed.texts(), (Texts{"b", "a"}));
  parsed.stack.push(name);
  LabelStack empty;
  EXPECT_EQ(KxWildcardNode::getEmailAddressName(empty), nullptr);
}

TEST_F(AddressParsing, scratchSpaceHoldsTheAddressAndItsTerminator) {
  for (const char* address : {"", "a", "*", "**", "*@*", "user@example.test"}) {
    const std::size_t size = std::strcmp(address, "*") == 0 ? 4 : std::strlen(address) + 1;
    const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString(address));
    std::memset(scratch.get(), 'x', size);  // the sanitizer knows where it ends
  }
}

TEST_F(AddressParsing, scratchSpaceWithoutMemoryIsNull) {
  NothrowAllocationFailure failure;
  EXPECT_EQ(KxWildcardEmail::allocateNewEmailAddressString("a@b"), nullptr);
}

TEST_F(AddressParsing, releasingTheStackEmptiesItAndReleasesEveryHandle) {
  LabelStack stack;
  const KxIndexedString source("text");
  stack.push(table.getStringtableRef("entry"));
  stack.push(KxIndexedString::deepCopy(&source));
  stack.push(new KxIndexedString("wrapper"));
  stack.push(&KxStringtable::_theEmptyIndexedString);
  stack.push(nullptr);
  KxWildcardEmail::cleanupDomainStack(&stack, &table);
  EXPECT_TRUE(stack.empty());
  KxWildcardEmail::cleanupDomainStack(&stack, nullptr);
  KxWildcardEmail::cleanupDomainStack(nullptr, nullptr);
  EXPECT_EQ(table.size(), 1u);
}

// --- Without scratch space ---

std::string forcedMessage(const std::string& address, const KxStringtable* table) {
  char shownTable[2 * sizeof(void*) + 1];
  std::snprintf(shownTable, sizeof shownTable, "%x", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(table)));
  return "KxWildcardNode::parseAddress forced to allocate new string space: emailAddress = \"" + address +
         "\" allStrings = \"" + shownTable + "\". Memory leak likely as a result; continuing...";
}

// Texts of wrappers are the caller's then.
Texts takeTextsAndFree(LabelStack& stack) {
  Texts texts;
  for (; !stack.empty(); stack.pop()) {
    texts.emplace_back(stack.top()->getString());
    KxStringtable::_deepDelete(stack.top());
  }
  return texts;
}

TEST_F(AddressParsing, missingScratchSpaceIsLoggedWithTheTable) {
  for (const ParseCase& test : kParseCases) {
    if (std::strcmp(test.address, "*") == 0) {
      continue;
    }
    for (KxStringtable* either : {&table, static_cast<KxStringtable*>(nullptr)}) {
      platform().log.clear();
      LabelStack stack;
      KxWildcardNode::parseAddress(either, test.address, nullptr, stack);
      EXPECT_EQ(takeTextsAndFree(stack), test.want) << test.address;
      EXPECT_THAT(platform().log.lines(), ElementsAre(error(forcedMessage(test.address, either))));
    }
  }
}

TEST_F(AddressParsing, missingScratchSpaceIsLoggedForBothReadingsOfTheWildcard) {
  LabelStack stack;
  KxWildcardNode::parseAddress(nullptr, "*", nullptr, stack);
  EXPECT_EQ(takeTextsAndFree(stack), (Texts{"*", "*"}));
  EXPECT_THAT(platform().log.lines(),
              ElementsAre(error(forcedMessage("*", nullptr)), error(forcedMessage("*@*", nullptr))));
}

TEST_F(AddressParsing, withoutScratchSpaceTheCopyOfAKnownTextIsFreed) {
  const KxIndexedString* entry = table.getStringtableRef("known");
  LabelStack stack;
  KxWildcardNode::parseAddress(&table, "known@Known", nullptr, stack);
  for (; !stack.empty(); stack.pop()) {
    EXPECT_EQ(stack.top(), entry);
  }
}

TEST_F(AddressParsing, withoutScratchSpaceTheCopiesOutliveTheAddress) {
  LabelStack stack;
  {
    std::string address = "user@a.b";
    KxWildcardNode::parseAddress(nullptr, address.c_str(), nullptr, stack);
    address.assign(address.size(), 'x');
  }
  EXPECT_EQ(takeTextsAndFree(stack), (Texts{"user", "b", "a"}));
}

TEST_F(AddressParsing, handleThatMemoryDoesNotSufficeForIsNull) {
  const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString("user@a.b"));
  LabelStack stack;
  NothrowAllocationFailure failure(2);
  KxWildcardNode::parseAddress(nullptr, "user@a.b", scratch.get(), stack);
  EXPECT_TRUE(failure.happened());
  ASSERT_EQ(stack.size(), 3u);
  KxStringtable::cleanupReference(KxWildcardNode::getEmailAddressName(stack));
  EXPECT_EQ(stack.top(), nullptr);
  KxWildcardEmail::cleanupDomainStack(&stack, nullptr);
}

TEST_F(AddressParsing, randomTextsAreSplitAsBySimpleMeans) {
  slow::Random random(1);
  for (int i = 0; i < 20000; ++i) {
    const std::string text = slow::lowered(slow::randomAddressText(random));
    const slow::Split parts = slow::split(text);
    Texts want(parts.labels.rbegin(), parts.labels.rend());
    want.insert(want.begin(), parts.localPart);
    ASSERT_EQ(Parsed(&table, text.c_str()).texts(), want) << text;
  }
}

}  // namespace

// The display string of an action bitmap.
#include <gmock/gmock.h>

#include <iterator>
#include <string>
#include <vector>

#include "ZaroAction.h"
#include "scripted/Prelude.h"

using testing::Contains;
using testing::Not;

namespace {

struct PositionCase {
  int position;
  const char* key;
};

// In the order of the output.
const PositionCase kPositions[] = {
    {0, "Delete"},    {1, "Quarantine"},        {3, "Archive"},        {5, "Readdress"},
    {6, "Stamped"},   {7, "DeleteAttachment"},  {8, "SubjectTagging"}, {9, "Postpone"},
    {10, "Notify"},   {11, "VirusClean"},       {12, "Bcc"},           {4, "Handoff"},
    {17, "Veridock"}, {13, "InsertXHeaderTag"}, {15, "IBEEncrypt"},
};

constexpr const char* kInvalidBitMap = "ZaroAction::CreateActionTokenString: invalid pActionBitMap ";
constexpr const char* kMissingText =
    "ZaroAction::CreateActionTokenString: ERROR: failed to retrieve string \"Delete\" from resource file ";

std::string bitMapOf(const std::vector<int>& positions) {
  std::string bitMap(17, '0');
  for (const int position : positions) {
    bitMap.at(static_cast<std::size_t>(position)) = '1';
  }
  return bitMap;
}

class ActionTokenString : public scripted::PlatformTest {
 protected:
  ActionTokenString() {
    for (const PositionCase& row : kPositions) {
      platform().resources.texts[row.key] = "<" + std::string(row.key) + ">";
    }
  }

  static std::string tokens(const std::string& bitMap) {
    std::string text = "replaced";
    EXPECT_TRUE(ZaroAction::CreateActionTokenString(bitMap.c_str(), text)) << bitMap;
    return text;
  }

  static void expectRefused(const char* bitMap) {
    platform().reset();
    std::string text = "replaced";
    EXPECT_FALSE(ZaroAction::CreateActionTokenString(bitMap, text)) << testing::PrintToString(bitMap);
    EXPECT_EQ(text, "");
    EXPECT_EQ(platform().log.lines(), LogLines{error(kInvalidBitMap)});
    EXPECT_THAT(platform().calls.all(), Not(Contains("KxResbundle()")));
  }
};

}  // namespace

TEST_F(ActionTokenString, isEmptyWhenNothingIsSet) {
  EXPECT_EQ(tokens("00000000000000000"), "");
  EXPECT_EQ(platform().log.lines(), LogLines());
}

TEST_F(ActionTokenString, showsEachPositionAlone) {
  for (int position = 0; position < 17; ++position) {
    std::string expected;
    for (const PositionCase& row : kPositions) {
      if (row.position == position) {
        expected = "<" + std::string(row.key) + ">";
      }
    }
    EXPECT_EQ(tokens(bitMapOf({position})), expected) << position;
  }
}

TEST_F(ActionTokenString, joinsWithoutASeparatorAtTheEnd) {
  EXPECT_EQ(tokens("11000000000000000"), "<Delete>; <Quarantine>");
}

TEST_F(ActionTokenString, showsHandoffAfterBcc) {
  EXPECT_EQ(tokens(bitMapOf({4, 12})), "<Bcc>; <Handoff>");
}

TEST_F(ActionTokenString, showsEveryPositionInItsOrder) {
  EXPECT_EQ(tokens("11111111111111111"),
            "<Delete>; <Quarantine>; <Archive>; <Readdress>; <Stamped>; <DeleteAttachment>; <SubjectTagging>; "
            "<Postpone>; <Notify>; <VirusClean>; <Bcc>; <Handoff>; <InsertXHeaderTag>; <IBEEncrypt>");
}

TEST_F(ActionTokenString, ignoresPositionsWithoutAText) {
  EXPECT_EQ(tokens(bitMapOf({2, 14, 16})), "");
  EXPECT_THAT(platform().calls.beginningWith("KxResbundle.getString"), ElementsAre());
}

TEST_F(ActionTokenString, takesOnlyADigitOneForSet) {
  EXPECT_EQ(tokens("2y \x01\xFF-+IlTt9!?*"
                   "a1"),
            "");
  EXPECT_EQ(tokens("2100000000000000y"), "<Quarantine>");
}

TEST_F(ActionTokenString, isRefusedForAnyOtherLength) {
  for (std::size_t length = 0; length < 40; ++length) {
    if (length != 17) {
      expectRefused(std::string(length, '1').c_str());
    }
  }
  expectRefused(std::string(100000, '0').c_str());
  expectRefused("%s%n%d");
}

TEST_F(ActionTokenString, isRefusedForNull) {
  expectRefused(nullptr);
}

TEST_F(ActionTokenString, readsTheDisplayTextsOfTheInstallation) {
  platform().resources.fileName = "some file";
  tokens("01000000000010000");
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxResbundle()", "KxResbundle._init(\"some file\", \"UiDisplay\", null)",
                          "KxResbundle.getString(\"Quarantine\")", "KxResbundle.getString(\"Bcc\")", "~KxResbundle()"));
}

TEST_F(ActionTokenString, showsTheKeyOfAMissingText) {
  platform().resources.texts.erase("Quarantine");
  EXPECT_EQ(tokens("11000000000000000"), "<Delete>; Quarantine");
  EXPECT_EQ(platform().log.lines(), LogLines{error(kMissingText)});
}

TEST_F(ActionTokenString, showsEveryKeyWhenAllTextsAreMissing) {
  platform().resources.texts.clear();
  EXPECT_EQ(tokens("11111111111111111"),
            "Delete; Quarantine; Archive; Readdress; Stamped; DeleteAttachment; SubjectTagging; Postpone; Notify; "
            "VirusClean; Bcc; Handoff; InsertXHeaderTag; IBEEncrypt");
  EXPECT_EQ(platform().log.lines(), LogLines(14, error(kMissingText)));
}

TEST_F(ActionTokenString, keepsSeparatorsInsideDisplayTexts) {
  platform().resources.texts["Delete"] = "a; ";
  platform().resources.texts["Archive"] = "";
  EXPECT_EQ(tokens(bitMapOf({0})), "a; ");
  EXPECT_EQ(tokens(bitMapOf({0, 3})), "a; ; ");
  EXPECT_EQ(tokens(bitMapOf({3})), "");
}

TEST_F(ActionTokenString, mayReplaceItsOwnBitMap) {
  std::string text = "11000000000000000";
  EXPECT_TRUE(ZaroAction::CreateActionTokenString(text.c_str(), text));
  EXPECT_EQ(text, "<Delete>; <Quarantine>");
}

TEST_F(ActionTokenString, letsAThrownTextThroughWhenTheBundleDoesNotOpen) {
  platform().faults.throwText(Point::ResourceOpen, "no file");
  std::string text = "replaced";
  try {
    ZaroAction::CreateActionTokenString("11000000000000000", text);
    FAIL() << "nothing was thrown";
  } catch (const char* thrown) {
    EXPECT_STREQ(thrown, "no file");
  }
  EXPECT_EQ(text, "");
  EXPECT_EQ(platform().calls.all().back(), "~KxResbundle()");
}

TEST_F(ActionTokenString, letsAThrownTextThroughAndKeepsWhatWasListed) {
  platform().faults.throwText(Point::ResourceRead, "bad file", 2);
  std::string text = "replaced";
  EXPECT_THROW(ZaroAction::CreateActionTokenString("11000000000000000", text), const char*);
  EXPECT_EQ(text, "<Delete>; ");
  EXPECT_EQ(platform().calls.all().back(), "~KxResbundle()");
}

TEST_F(ActionTokenString, opensABundleOfItsOwnEachTime) {
  tokens("10000000000000000");
  tokens("10000000000000000");
  EXPECT_EQ(platform().calls.countOf("KxResbundle._init"), 2U);
  EXPECT_EQ(platform().calls.countOf("~KxResbundle"), 2U);
}

TEST(ActionTokenPositions, areListedInTheOrderOfTheOutput) {
  ASSERT_EQ(ZaroAction::tokenPositions().size(), std::size(kPositions));
  const PositionCase* row = kPositions;
  for (const ZaroAction::TokenPosition& token : ZaroAction::tokenPositions()) {
    EXPECT_EQ(token.position, row->position);
    EXPECT_STREQ(token.resourceKey, row->key);
    ++row;
  }
  EXPECT_EQ(ZaroAction::kActionBitMapLength, 17);
}

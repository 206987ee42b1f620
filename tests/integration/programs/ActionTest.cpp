// zaroctl action: the known actions, and the display string of a bitmap.
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "programs/Program.h"
#include "support/TemporaryDirectory.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::readFile;
using zarotest::zaroctl;

TEST(ActionList, hasALineForEachKnownAction) {
  const ProgramResult result = zaroctl({"action", "list"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(
      linesOf(result.out),
      ElementsAre("0\tArchiveAction\tarchive\tno\tno\tno", "1\tDeleteAction\tdelete\tyes\tno\tno",
                  "2\tQuarantineAction\tquarantine\tyes\tno\tno", "3\tReaddressAction\treaddress\tyes\tyes\tno",
                  "4\tDeleteAttachmentAction\tdelete_attachment\tno\tno\tyes",
                  "5\tVirusCleanAction\tclean\tno\tno\tyes", "6\tHeaderTaggingAction\ttag\tno\tunexpected\tunexpected",
                  "7\tSubjectTaggingAction\ttag\tno\tno\tyes", "8\tStampAction\tstamp\tno\tno\tyes",
                  "9\tBccAction\tBCC\tno\tyes\tno", "10\tNotifyAction\tnotification\tno\tno\tno",
                  "11\tHandoffAction\thandoff\tyes\tno\tno", "12\tPostponeAction\tpostpone\tno\tno\tno",
                  "13\tLogOnly\tlog\tno\tno\tno", "16\tVeridockAction\tveridock\tno\tno\tno",
                  "18\tInsertXHeaderTag\txheader\tno\tno\tno", "21\tIBEEncryptAction\tibeencrypt\tno\tno\tno",
                  "22\tIBEEncryptAction\tunknown\tno\tunexpected\tunexpected"));
}

TEST(ActionList, isATableOnATerminal) {
  const ProgramResult result = zarotest::zaroctlOnTerminal({"action", "list"}, "");
  EXPECT_EQ(result.status, 0);
  const auto lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 19u);
  EXPECT_EQ(lines[0], "VALUE  NAME                    X-HEADER           TERMINAL  CHANGES HEADER  CHANGES BODY");
  EXPECT_EQ(lines[1], "0      ArchiveAction           archive            no        no              no");
}

TEST(ActionList, isAnArrayOfObjectsInJson) {
  const json actions = json::parse(zaroctl({"action", "list", "--json"}).out);
  ASSERT_EQ(actions.size(), 18u);
  EXPECT_EQ(actions.at(3), (json{{"value", 3},
                                 {"name", "ReaddressAction"},
                                 {"x_header_name", "readdress"},
                                 {"terminal", true},
                                 {"changes_header", "yes"},
                                 {"changes_body", "no"}}));
}

class ActionShow : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(zaroctl({"init", home()}).status, 0); }

  std::string home() const { return m_directory.path("gateway"); }
  std::string file(const std::string& language) const { return home() + "/resources/display." + language + ".ini"; }

  ProgramResult show(const std::string& bitMap, const std::string& locale = "C", bool asJson = false) const {
    ProgramRun run;
    run.environment = {{"LC_ALL", locale}};
    std::vector<std::string> arguments = {"--home", home(), "action", "show", bitMap};
    if (asJson) {
      arguments.emplace_back("--json");
    }
    return zaroctl(arguments, run);
  }
  std::string display(const std::string& bitMap, const std::string& locale) const {
    return json::parse(show(bitMap, locale, true).out).at("display");
  }

  const zarotest::TemporaryDirectory m_directory;
};

TEST_F(ActionShow, showsTheDisplayStringAndThePositions) {
  const ProgramResult result = show("11001000000010000");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("display\tDelete; Quarantine; Send blind copy (BCC); Hand off to another server",
                          "positions\t0, 1, 4, 12", "keys\tDelete, Quarantine, Handoff, Bcc", "without_text\t-"));
}

TEST_F(ActionShow, tellsOfPositionsWithoutAText) {
  const json shown = json::parse(show("10100000000000101", "C", true).out);
  EXPECT_EQ(
      shown,
      (json{{"display", "Delete"}, {"positions", {0, 2, 14, 16}}, {"keys", {"Delete"}}, {"without_text", {2, 14, 16}}}));
}

TEST_F(ActionShow, showsNothingForABitMapWithNothingSet) {
  const ProgramResult result = show("00000000000000000");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(result.out), ElementsAre("display\t", "positions\t-", "keys\t-", "without_text\t-"));
}

TEST_F(ActionShow, speaksTheLanguageOfTheLocale) {
  const struct {
    const char* locale;
    const char* display;
  } cases[] = {
      {"en_GB.UTF-8", "Delete; Quarantine"},
      {"de_DE.UTF-8", "L\u00f6schen; In Quarant\u00e4ne stellen"},
      {"fr_FR.UTF-8", "Supprimer; Mettre en quarantaine"},
      {"es_MX.UTF-8", "Eliminar; Poner en cuarentena"},
      {"ja_JP.UTF-8", "\u524a\u9664; \u9694\u96e2"},
      {"zh_CN.UTF-8", "\u5220\u9664; \u9694\u79bb"},
      {"sv_SE.UTF-8", "Delete; Quarantine"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(display("11000000000000000", row.locale), row.display) << row.locale;
  }
}

TEST_F(ActionShow, speaksTheLanguageOfTheInstallationFirst) {
  m_directory.write("gateway/config/zaro.ini", "[display]\nlanguage=ja\n");
  EXPECT_EQ(display("10000000000000000", "de_DE.UTF-8"), "\u524a\u9664");
}

TEST_F(ActionShow, everyLanguageHasADifferentTextForEachPosition) {
  for (const char* locale : {"en", "de", "fr", "es", "ja", "zh"}) {
    std::vector<std::string> texts;
    for (std::size_t position = 0; position < 17; ++position) {
      std::string bitMap(17, '0');
      bitMap[position] = '1';
      const std::string text = display(bitMap, locale);
      if (!text.empty()) {
        EXPECT_THAT(texts, testing::Not(testing::Contains(text))) << locale;
        EXPECT_THAT(text, testing::Not(HasSubstr(";"))) << locale;
        texts.push_back(text);
      }
    }
    EXPECT_EQ(texts.size(), 14u) << locale;
  }
}

TEST_F(ActionShow, explainsABitMapOfTheWrongLength) {
  for (const std::size_t length : {0u, 1u, 16u, 18u}) {
    const ProgramResult result = show(std::string(length, '1'));
    EXPECT_EQ(result.status, 64) << length;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(linesOf(result.err).size(), 1u);
    EXPECT_THAT(result.err, HasSubstr("has " + std::to_string(length) + " bytes; it takes 17 characters, one for each"));
  }
}

TEST_F(ActionShow, countsTheLengthOfABitMapInBytes) {
  const ProgramResult result = show("1111111111111111\xc3\xbc");
  EXPECT_EQ(result.status, 64);
  EXPECT_THAT(result.err, HasSubstr("has 18 bytes"));
}

TEST_F(ActionShow, explainsOtherCharacters) {
  const ProgramResult result = show("1y00000000000000\x01");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(result.err), ElementsAre("zaroctl: position 1 holds \"y\", which counts as not set",
                                               "zaroctl: position 16 holds \"\\x01\", which counts as not set"));
  EXPECT_THAT(linesOf(result.out), testing::Contains("positions\t0"));
}

TEST_F(ActionShow, saysWhichFileIsMissing) {
  std::filesystem::remove(file("en"));
  const ProgramResult result = show("10000000000000000");
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zaroctl: no display strings: " + file("en") + ": cannot open: No such file or directory\n");
}

TEST_F(ActionShow, saysThatThereIsNoInstallation) {
  const ProgramResult result = zaroctl({"action", "show", "10000000000000000"});
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(result.err, HasSubstr("ZARO_HOME is not set"));
}

TEST_F(ActionShow, showsTheKeyOfATextThatNoFileHas) {
  m_directory.write("gateway/resources/display.en.ini", "[UiDisplay]\nQuarantine=Hold\n");
  m_directory.write("gateway/resources/display.de.ini", "[UiDisplay]\nStamped=Gestempelt\n");
  const std::string bitMap = "11010010000000000";
  const auto missing = [](const std::string& key) {
    return "zaroctl: no file of display strings has a text for \"" + key + "\"; the key is shown instead";
  };
  EXPECT_EQ(display(bitMap, "C"), "Delete; Hold; Archive; Stamped");
  EXPECT_THAT(linesOf(show(bitMap, "C").err), ElementsAre(missing("Delete"), missing("Archive"), missing("Stamped")));
  EXPECT_EQ(display(bitMap, "de"), "Delete; Hold; Archive; Gestempelt");
  EXPECT_THAT(linesOf(show(bitMap, "de").err), ElementsAre(missing("Delete"), missing("Archive")));
}

}  // namespace

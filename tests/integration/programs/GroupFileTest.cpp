// Members of address groups in files, and which of them are the same.
#include <random>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

const std::string kMark = "\xEF\xBB\xBF";

// Whatever a member may be that a file could read as something else.
const Words kOddMembers = {
    kMark + "first@b.test",
    "#comment@b.test",
    "##@b.test",
    kMark + "#marked@b.test",
    kMark + kMark + "twice@b.test",
    "\\#escaped@b.test",
    "\\x41@b.test",
    "\\\\@b.test",
    "\\@b.test",
    "@",
    "\"quoted\"@b.test",
    "\"a@b.test\"",
    "'@b.test",
    "o'b''@b.test",
    "%s%n@b.test",
    "a;b,c@b.test",
    "-@b.test",
    "/a@b.test/",
    "<a@b.test>",
    "\xC2\xA0@b.test",
    "\xC3\xA4@\xC3\xB6.test",
    "\xF0\x9F\x93\xA7@b.test",
    "last@b.test#",
};

class GroupFile : public zarotest::SampleInstallation {
 protected:
  // As they are stored, whatever bytes they have.
  Words members(const std::string& group) const {
    Words found;
    for (const auto& row : session()->rows("SELECT address FROM address_group_member JOIN named_object ON id = group_id "
                                           "WHERE name = " +
                                           zaroruntime::sqlLiteral(group) + " ORDER BY position")) {
      found.push_back(row[0].value_or("NULL"));
    }
    return found;
  }
  ProgramResult mustRun(const Words& words, const std::string& input = {}) const {
    ProgramResult result = run(words, input);
    EXPECT_EQ(result.status, 0) << result.err;
    return result;
  }
  ProgramResult add(const std::string& name, const Words& addresses) const {
    Words command = {"group", "add", "--as", "postmaster", "--", name};
    command.insert(command.end(), addresses.begin(), addresses.end());
    return mustRun(command);
  }
  void expectRoundTrip(const Words& addresses) const {
    const std::string text = mustRun({"group", "export", "Odd"}).out;
    EXPECT_EQ(mustRun({"group", "import", "Board", "-"}, text).err, "");
    EXPECT_THAT(members("Board"), ElementsAreArray(addresses));
    EXPECT_EQ(mustRun({"group", "export", "Board"}).out, text);
  }
};

TEST_P(GroupFile, everyMemberComesBackFromAnExport) {
  add("Odd", kOddMembers);
  ASSERT_THAT(members("Odd"), ElementsAreArray(kOddMembers));
  expectRoundTrip(kOddMembers);
}

TEST_P(GroupFile, randomMembersComeBackFromAnExport) {
  const std::string pieces[] = {"#", kMark, "\\", "\\x", "23", "n", "@", "a", "\"", "'", "<", ";", "\xC3\xA4", "."};
  std::mt19937 random(14);
  Words addresses;
  for (int i = 0; i < 300; ++i) {
    std::string address;
    for (std::size_t left = 1 + random() % 4; left > 0; --left) {
      address += pieces[random() % std::size(pieces)];
    }
    addresses.push_back(address + "@" + std::to_string(i));
  }
  add("Odd", addresses);
  expectRoundTrip(addresses);
}

// Other programs can store what zaroctl would not. It must not come back as other members.
TEST_P(GroupFile, whatCannotBeAMemberIsExportedSoThatImportRefusesIt) {
  add("Odd", {"a@b.test"});
  const Words stored = {"line\nend@b.test", "ending@b.test\r", "\\ blank@b.test", " ", "\x01@b.test"};
  for (std::size_t i = 0; i < stored.size(); ++i) {
    session()->run("INSERT INTO address_group_member (group_id, position, address) SELECT id, " + std::to_string(i + 7) +
                   ", " + zaroruntime::sqlLiteral(stored[i]) + " FROM named_object WHERE name = 'Odd'");
  }
  const std::string text = mustRun({"group", "export", "Odd"}).out;
  EXPECT_EQ(text, "a@b.test\n\\ line\\nend@b.test\n\\ ending@b.test\\r\n\\ \\\\ blank@b.test\n\\  \n\\ \\x01@b.test\n");
  const ProgramResult refused = run({"group", "import", "Board", "-"}, text);
  EXPECT_EQ(refused.status, 65);
  EXPECT_THAT(linesOf(refused.err), testing::SizeIs(6));
  EXPECT_THAT(refused.err, HasSubstr("nothing is imported: 5 lines cannot be members"));
  EXPECT_THAT(members("Board"), testing::SizeIs(3));
}

TEST_P(GroupFile, linesOfOldFilesMeanWhatTheyDid) {
  mustRun({"group", "import", "Board", "-"},
          kMark + "a@b.test\r\n#no@b.test\n\n \t \n\\#b@b.test\n\\\\c@b.test\n\"d@b.test\"\n" + kMark + "e@b.test\n");
  EXPECT_THAT(members("Board"),
              ElementsAre("a@b.test", "\\#b@b.test", "\\\\c@b.test", "\"d@b.test\"", kMark + "e@b.test"));
}

TEST_P(GroupFile, wrongEscapesAreToldWithTheirLines) {
  const ProgramResult result = run({"group", "import", "Board", "-"}, "\\ \\q@b.test\n\\ \n\\ a\\\n");
  EXPECT_EQ(result.status, 65);
  const Words told = linesOf(result.err);
  ASSERT_EQ(told.size(), 4u) << result.err;
  EXPECT_THAT(told[0], HasSubstr("standard input:1: a backslash that escapes nothing"));
  EXPECT_THAT(told[1], HasSubstr("standard input:2: \"\" is empty"));
  EXPECT_THAT(told[2], HasSubstr("standard input:3: a backslash that escapes nothing"));
}

TEST_P(GroupFile, membersThatAreGivenTwiceAreAddedOnceByEveryCommand) {
  const Words given = {"A@b.test", "a@B.test", "c@b.test", "A@b.test"};
  EXPECT_THAT(linesOf(add("New", given).err),
              ElementsAre("zaroctl: \"a@B.test\" is given twice", "zaroctl: \"A@b.test\" is given twice"));
  EXPECT_THAT(members("New"), ElementsAre("A@b.test", "c@b.test"));

  mustRun({"group", "import", "Board", "-"}, "A@b.test\na@B.test\nc@b.test\nA@b.test\n");
  EXPECT_THAT(members("Board"), ElementsAre("A@b.test", "c@b.test"));

  const Words before = members("Sales team");
  mustRun({"group", "modify", "Sales team", "--add", "A@b.test", "--add", "a@B.test", "--add", "c@b.test"});
  const Words after = members("Sales team");
  EXPECT_EQ(after.size(), before.size() + 2);
  EXPECT_EQ(after[before.size()], "A@b.test");
}

TEST_P(GroupFile, membersThatAreThereInOtherCaseAreNotAddedByAnyCommand) {
  EXPECT_THAT(linesOf(mustRun({"group", "modify", "Board", "--add", "Chair@Example.TEST"}).err),
              ElementsAre("zaroctl: \"Chair@Example.TEST\" is a member already"));
  const ProgramResult imported =
      mustRun({"group", "import", "--append", "Board", "-"}, "new@b.test\nCHAIR@example.test\n");
  EXPECT_THAT(linesOf(imported.err),
              ElementsAre("zaroctl: standard input:2: \"CHAIR@example.test\" is a member already"));
  EXPECT_THAT(linesOf(imported.out), ElementsAre("id\t5", "name\tBoard", "members\t4", "duplicates\t1"));
  EXPECT_THAT(members("Board"),
              ElementsAre("chair@example.test", "treasurer@example.test", "secretary@example.test", "new@b.test"));
}

TEST_P(GroupFile, onlyAsciiLettersAreTheSameInBothCases) {
  add("New", {"\xC3\xA4@b.test", "\xC3\x84@b.test", "I@b.test", "\xC4\xB1@b.test", "\xE2\x84\xAA@b.test", "k@b.test"});
  EXPECT_THAT(members("New"), testing::SizeIs(6));
  EXPECT_EQ(mustRun({"group", "modify", "New", "--add", "\xC3\x84@B.test"}).err,
            "zaroctl: \"\xC3\x84@B.test\" is a member already\n");
}

TEST_P(GroupFile, removalTakesEverySpelling) {
  session()->run(
      "INSERT INTO address_group_member (group_id, position, address) VALUES (5, 7, 'CHAIR@example.test'), (5, 8, "
      "'chair@example.test')");
  const ProgramResult removed =
      mustRun({"group", "modify", "Board", "--remove", "Chair@example.test", "--remove", "chair@example.test"});
  EXPECT_THAT(linesOf(removed.out), ElementsAre("id\t5", "name\tBoard", "removed\t3", "added\t0"));
  EXPECT_THAT(members("Board"), ElementsAre("treasurer@example.test", "secretary@example.test"));
}

TEST_P(GroupFile, spellingChangesByRemovingAndAdding) {
  mustRun({"group", "modify", "Board", "--remove", "chair@example.test", "--add", "Chair@example.test"});
  EXPECT_THAT(members("Board"), ElementsAre("treasurer@example.test", "secretary@example.test", "Chair@example.test"));
}

TEST_P(GroupFile, listsOfOtherProgramsAreReadIntoPatterns) {
  const struct {
    Words options;
    std::string text;
    Words members;
  } kRows[] = {
      {{"--format", "plain"},
       kMark + "a@b.test\r\n# no\n\n \t\n f@b.test # note\nc.test\n.d.test\n@e.test\n*.g.test\n<>\n",
       {"a@b.test", "f@b.test", "*@c.test", "*@*.d.test", "*@e.test", "*@*.g.test", "<>"}},
      {{"--format", "access"},
       "# no\nbad@b.test REJECT no\n  more of it\n\n  # no\nc.test\tREJECT\n.d.test reject\nspam@ Reject\n<> REJECT\n",
       {"bad@b.test", "*@c.test", "*@*.c.test", "*@*.d.test", "spam@*", "<>"}},
      {{"--format", "access", "--action", "ok"}, "a@b.test OK\nc@b.test REJECT\n192.0.2 REJECT\n", {"a@b.test"}},
      {{"--format", "access"}, ",.d.test REJECT\n,e.test REJECT\n", {"*@*.d.test", "*@e.test", "*@*.e.test"}},
      {{"--format", "csv", "--column", "e-mail"},
       "name,e-mail,\"said \"\"it\"\"\"\r\n\"Doe, J\",j@b.test,\r\nx, \"k@b.test\"\r\nx,\"l@b.test\"\r\n\r\ny,\r\n",
       {"j@b.test", "k@b.test", "l@b.test"}},
      {{"--format", "csv", "--column", "2"}, "1,a@b.test\n2,c.test,x\n", {"a@b.test", "*@c.test"}},
  };
  for (const auto& row : kRows) {
    Words command = {"group", "import", "Board", "-"};
    command.insert(command.end(), row.options.begin(), row.options.end());
    EXPECT_EQ(mustRun(command, row.text).err, "");
    EXPECT_THAT(members("Board"), ElementsAreArray(row.members)) << row.text;
  }
}

TEST_P(GroupFile, whatNoPatternSaysIsToldAndKeepsTheRestOut) {
  const struct {
    Words options;
    std::string text;
    const char* told;
  } kRows[] = {
      {{"--format", "plain"}, "a@b.test\n/^x/\n", "standard input:2: \"/^x/\" cannot be said in patterns for certain"},
      {{"--format", "plain"}, "*\n", "standard input:1: \"*\" cannot be said"},
      {{"--format", "access"}, "a@b.test OK\n192.0.2 OK\n", "standard input:2: \"192.0.2\" cannot be said"},
      {{"--format", "access"}, "*.c.test OK\n", "standard input:1: \"*.c.test\" has a \"*\", which is no wildcard"},
      {{"--format", "access"}, "a@b.test\n", "standard input:1: \"a@b.test\" has no action on its line"},
      {{"--format", "access"}, "a@b.test OK\nc@b.test reject\n", "the actions \"OK\", \"REJECT\"; --action takes"},
      {{"--format", "csv", "--column", "2"}, "1,a@b.test\n2\n", "standard input:2: \"2\" has no column 2"},
      {{"--format", "csv", "--column", "1"}, "\"a@b.test\n", "standard input:1: \"\"a@b.test\" has quotes"},
      {{"--format", "csv", "--column", "mail"}, "e-mail\na@b.test\n", "the first line names no column \"mail\""},
  };
  for (const auto& row : kRows) {
    Words command = {"group", "import", "Board", "-"};
    command.insert(command.end(), row.options.begin(), row.options.end());
    const ProgramResult refused = run(command, row.text);
    EXPECT_EQ(refused.status, 65) << row.told;
    EXPECT_THAT(refused.err, HasSubstr(row.told));
    EXPECT_THAT(members("Board"), testing::SizeIs(3));
  }
  const ProgramResult taken =
      mustRun({"group", "import", "--format", "plain", "--leave-out", "Board", "-"}, "a@b.test\n/^x/\nA@b.test\nword\n");
  EXPECT_THAT(linesOf(taken.out), ElementsAre("id\t5", "name\tBoard", "members\t1", "duplicates\t1", "left_out\t2"));
  EXPECT_THAT(taken.err, HasSubstr("standard input:4: \"word\" cannot be said"));
}

TEST_P(GroupFile, optionsOfAFormatGoWithIt) {
  for (const Words& options : {Words{"--column", "1"}, Words{"--format", "plain", "--column", "1"},
                               Words{"--format", "csv"}, Words{"--action", "OK"}, Words{"--leave-out"},
                               Words{"--format", "plain", "--action", "OK"}, Words{"--format", "xml"}}) {
    Words command = {"group", "import", "Board", "-"};
    command.insert(command.end(), options.begin(), options.end());
    EXPECT_EQ(run(command).status, 64) << testing::PrintToString(options);
  }
}

ZARO_ON_EVERY_DATABASE(GroupFile);

}  // namespace

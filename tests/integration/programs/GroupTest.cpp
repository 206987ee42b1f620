// zaroctl group: address groups and their members, with import and export.
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

class Group : public zarotest::SampleInstallation {
 protected:
  std::vector<std::string> members(const std::string& group) const {
    const ProgramResult result = run({"group", "show", group});
    EXPECT_EQ(result.status, 0) << result.err;
    return linesOf(result.out);
  }
  std::string write(const std::string& name, const std::string& text) const {
    writeFile(name, text);
    return homeFile(name);
  }
};

TEST_P(Group, areListedByName) {
  EXPECT_THAT(
      linesOf(run({"group", "list"}).out),
      ElementsAre("5\tBoard\t3\tHeadquarters", "8\tBuild robots\t2\t*@engineering.example.test",
                  "7\tPartners\t3\t*@example.test, *@sales.example.test", "6\tSales team\t3\t*@sales.example.test"));
  const auto document = nlohmann::json::parse(run({"group", "list", "--json"}).out);
  EXPECT_EQ(document[0], (nlohmann::json{{"id", 5}, {"name", "Board"}, {"members", 3}, {"owners", {"Headquarters"}}}));
}

TEST_P(Group, membersAreShownInTheirOrder) {
  EXPECT_THAT(members("Board"), ElementsAre("chair@example.test", "treasurer@example.test", "secretary@example.test"));
  EXPECT_THAT(linesOf(run({"group", "show", "--id", "5"}).out), testing::SizeIs(3));
}

TEST_P(Group, addedGroupBelongsToTheAdministratorsEntities) {
  const ProgramResult added = run({"group", "add", "--as", "sales-admin", "O'Neil's 100% friends",
                                   "o'brien@example.test", "*@*.example.org", "\xC3\xA4@example.test"});
  EXPECT_EQ(added.status, 0) << added.err;
  EXPECT_THAT(linesOf(added.out), ElementsAre("id\t12", "name\tO'Neil's 100% friends", "members\t3"));
  EXPECT_THAT(members("O'Neil's 100% friends"),
              ElementsAre("o'brien@example.test", "*@*.example.org", "\xC3\xA4@example.test"));
  EXPECT_EQ(session()->value("SELECT count(*) FROM named_object_owner WHERE object_id = 12"), "3");
}

TEST_P(Group, addedGroupMayBelongToOneEntity) {
  const std::string entity = session()->value("SELECT id FROM entity WHERE name = '*@sales.example.test'").value_or("");
  EXPECT_EQ(run({"group", "add", "--as", "sales-admin", "--entity", entity, "Friends"}).status, 0);
  EXPECT_EQ(session()->value("SELECT entity_id FROM named_object_owner WHERE object_id = 12"), entity);
  EXPECT_THAT(members("Friends"), IsEmpty());
}

TEST_P(Group, administratorMustHaveTheEntity) {
  expectRefused({"group", "add", "--as", "auditor", "Friends"}, 1, "\"auditor\" is assigned to no managing group");
  for (const char* entity : {"10", "4000"}) {
    expectRefused({"group", "add", "--as", "sales-admin", "--entity", entity, "Friends"}, 77,
                  std::string("\"Friends\" was not added: \"sales-admin\" has no managing group ") + entity);
  }
  expectRefused({"group", "add", "--as", "admin", "--entity", "4000", "Friends"}, 77,
                "\"admin\" has no managing group 4000");
  for (const char* wrong : {"0", "0x8", "x", "-1"}) {
    expectRefused({"group", "add", "--as", "sales-admin", "--entity=" + std::string(wrong), "Friends"}, 64,
                  "--entity: \"" + std::string(wrong) + "\" is not an identifier");
  }
  expectRefused({"group", "add", "--as", "nobody", "Friends"}, 1, "no administrator named \"nobody\"");
  EXPECT_EQ(linesOf(run({"group", "list"}).out).size(), 4u);
}

TEST_P(Group, nameAndMembersAreModified) {
  const ProgramResult result = run({"group", "modify", "Board", "--name", "Directors", "--remove", "chair@example.test",
                                    "--add", "a@b.test", "--add", "o'b@b.test"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(members("Directors"),
              ElementsAre("treasurer@example.test", "secretary@example.test", "a@b.test", "o'b@b.test"));
  expectRefused({"group", "modify", "Directors", "--remove", "chair@example.test"}, 77, "is no member of \"Directors\"");
  EXPECT_THAT(members("Directors"), testing::SizeIs(4));
}

TEST_P(Group, removedGroupIsGoneUnlessARuleUsesIt) {
  EXPECT_EQ(run({"group", "remove", "Board"}).status, 0);
  expectRefused({"group", "remove", "Board"}, 1, "no address group named \"Board\"");
  expectRefused({"group", "show", "--id", "5"}, 1, "no address group 5");
  expectRefused({"group", "remove", "Partners"}, 77,
                "the address group \"Partners\" was not removed: in use by \"Hold confidential mail to partners\"");
  EXPECT_THAT(members("Partners"), testing::SizeIs(3));
}

TEST_P(Group, importReplacesMembers) {
  const std::string file = write("list",
                                 "\xEF\xBB\xBF"
                                 "# the board\r\na@b.test\r\n\n  \no'b@b.test\n*@*.c.test");
  const ProgramResult result = run({"group", "import", "Board", file});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out), ElementsAre("id\t5", "name\tBoard", "members\t3", "duplicates\t0"));
  EXPECT_THAT(members("Board"), ElementsAre("a@b.test", "o'b@b.test", "*@*.c.test"));
}

TEST_P(Group, importTellsOfDuplicatesWithTheirLines) {
  const std::string file = write("list", "a@b.test\nchair@example.test\na@b.test\n");
  const ProgramResult result = run({"group", "import", "--append", "Board", file, "-"}, "a@b.test\nz@z.test\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(result.err), ElementsAre("zaroctl: " + file + ":3: \"a@b.test\" is given in " + file + ":1",
                                               "zaroctl: standard input:1: \"a@b.test\" is given in " + file + ":1",
                                               "zaroctl: " + file + ":2: \"chair@example.test\" is a member already"));
  EXPECT_THAT(members("Board"), ElementsAre("chair@example.test", "treasurer@example.test", "secretary@example.test",
                                            "a@b.test", "z@z.test"));
}

TEST_P(Group, importOfBadLinesChangesNothing) {
  const std::string file = write(
      "list", "a@b.test\nbad line@b.test\nno-at\n<ma>@b.test\n" + std::string(513, 'x') + "@b\n\xFF@b.test\na\tb@c\n");
  const ProgramResult result = run({"group", "import", "Board", file});
  EXPECT_EQ(result.status, 65);
  const auto told = linesOf(result.err);
  ASSERT_EQ(told.size(), 7u) << result.err;
  EXPECT_EQ(told[0], "zaroctl: " + file + ":2: \"bad line@b.test\" holds a blank");
  EXPECT_EQ(told[1], "zaroctl: " + file + ":3: \"no-at\" has no @");
  EXPECT_EQ(told[2], "zaroctl: " + file + ":4: \"<ma>@b.test\" holds a tag of the list of members");
  EXPECT_THAT(told[3], HasSubstr(":5: "));
  EXPECT_THAT(told[4], HasSubstr(":6: "));
  EXPECT_THAT(told[5], HasSubstr(":7: "));
  EXPECT_EQ(told[6], "zaroctl: nothing is imported: 6 lines cannot be members");
  EXPECT_THAT(members("Board"), testing::SizeIs(3));
}

TEST_P(Group, exportIsWhatImportReads) {
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    text += "user" + std::to_string(i) + "@example.test\n";
  }
  EXPECT_EQ(run({"group", "import", "Board", write("list", text)}).status, 0);
  EXPECT_TRUE(run({"group", "export", "Board"}).out == text);
}

TEST_P(Group, injectionsAreRefusedOrStoredAsTheyAre) {
  const std::string name = "x'); DELETE FROM entity; --";
  EXPECT_EQ(run({"group", "add", "--as", "sales-admin", name, "'||(SELECT'@b.test", "''@b.test"}).status, 0);
  EXPECT_THAT(members(name), ElementsAre("'||(SELECT'@b.test", "''@b.test"));
  EXPECT_NE(session()->value("SELECT count(*) FROM entity"), "0");
  expectRefused({"group", "add", "--as", "sales-admin", "x", "</ma><ma>@b.test"}, 64,
                "holds a tag of the list of members");
  expectRefused({"group", "add", "--as", "sales-admin", "x", "a\n@b.test"}, 64, "holds control characters");
  expectRefused({"group", "add", "--as", "sales-admin", "x\n"}, 64, "holds control characters");
  expectRefused({"group", "add", "--as", "sales-admin", std::string(41, '\'')}, 64, "has more than 40 quotes");
  expectRefused({"group", "add", "--as", "sales-admin", ""}, 64, "is empty");
  expectRefused({"group", "modify", "Board", "--name", ""}, 64, "is empty");
  expectRefused({"group", "add", "--as", "admin", "OPP:x"}, 64, "the name \"OPP:x\" begins with \"OPP:\"");
  expectRefused({"group", "modify", "Board", "--name", "OPP:x"}, 64, "the name \"OPP:x\" begins with \"OPP:\"");
  expectRefused({"group", "modify", "Board", "--add", ""}, 64, "is empty");
  EXPECT_EQ(run({"group", "add", "--as", "sales-admin", std::string(40, '\'')}).status, 0);
}

TEST_P(Group, failedAdditionLeavesNothing) {
  const struct {
    const char* file;
    const char* statement;
    int status;
    const char* told;
  } cases[] = {
      {"sql/ui_AddEntityNamedObj.sql", "INSERT INTO nothing VALUES (%u,%u,%d)", 69, "nothing"},
      {"sql/ui_AddEntityNamedObj.sql", "", 78, ""},
      {"sql/ui_AddNamedObj.sql", "SELECT %d,'%s','%s' WHERE 1=0", 65, "\"Friends\" was not added"},
  };
  const auto before = rowCounts();
  for (const auto& tried : cases) {
    writeFile(tried.file, tried.statement);
    expectRefused({"group", "add", "--as", "sales-admin", "Friends", "a@b.test"}, tried.status, tried.told);
    EXPECT_EQ(rowCounts(), before) << tried.file;
  }
}

TEST_P(Group, namesMayBeAmbiguous) {
  EXPECT_EQ(run({"group", "add", "--as", "customer-admin", "Board"}).status, 0);
  expectRefused({"group", "show", "Board"}, 64, "2 address groups are named \"Board\"");
  EXPECT_EQ(run({"group", "remove", "--id", "12"}).status, 0);
  expectRefused({"group", "show", "--id", "x"}, 64, "GROUP: \"x\" is not an identifier");
  expectRefused({"group", "show", "--id", "0"}, 64, "GROUP: \"0\" is not an identifier");
}

ZARO_ON_EVERY_DATABASE(Group);

}  // namespace

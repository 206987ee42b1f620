// zaroctl entity: entities are listed, shown, added and removed, and their patterns compared.
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

class Entity : public zarotest::SampleInstallation {
 protected:
  std::vector<std::string> lines(const Words& words) const {
    Words command = {"entity"};
    command.insert(command.end(), words.begin(), words.end());
    const ProgramResult result = run(command);
    EXPECT_EQ(result.status, 0) << result.err;
    return linesOf(result.out);
  }
};

TEST_P(Entity, areListedByTypeAndName) {
  const auto list = lines({"list"});
  ASSERT_EQ(list.size(), 10u);
  EXPECT_EQ(list[0], "1\t0\tHeadquarters");
  EXPECT_EQ(list[2], "3\tldap\tcn=mail-administrators,ou=groups,dc=example,dc=test");
  EXPECT_EQ(list[4], "6\twildcard\t*@*.example.test");
}

TEST_P(Entity, ofOneNameAndTwoTypesAreBothListed) {
  lines({"add", "--type", "1", "Headquarters"});
  EXPECT_EQ(lines({"list"}).size(), 11u);
  expectRefused({"entity", "show", "Headquarters"}, 64, "2 managing groups are named \"Headquarters\": ");
  EXPECT_THAT(lines({"show", "--id", "11"}), testing::Contains("type\t1"));
}

TEST_P(Entity, isShownWithAdministratorsAndObjects) {
  EXPECT_THAT(lines({"show", "*@engineering.example.test"}),
              ElementsAre("id\t9", "type\twildcard", "name\t*@engineering.example.test",
                          "administrators\tengineering-admin", "objects\tBuild robots, Company disclaimer", "rules\t-"));
  const auto document = nlohmann::json::parse(run({"entity", "show", "--id", "9", "--json"}).out);
  EXPECT_EQ(document["objects"], (nlohmann::json{"Build robots", "Company disclaimer"}));
}

TEST_P(Entity, patternsAreStoredInLowerCaseWithANotice) {
  const ProgramResult result = run({"entity", "add", "*@Example.NET"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "zaroctl: \"*@Example.NET\" is stored in lower case, as \"*@example.net\"\n");
  EXPECT_THAT(linesOf(result.out), ElementsAre("id\t11", "type\twildcard", "name\t*@example.net"));
  EXPECT_EQ(run({"entity", "add", "--type", "0", "The Capitals"}).err, "");
  EXPECT_EQ(value("SELECT name FROM entity WHERE id = 12"), "The Capitals");
}

TEST_P(Entity, whatIsHardlyAPatternIsTold) {
  const ProgramResult result = run({"entity", "add", "*@a.*.test"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, testing::StartsWith("zaroctl: \"*@a.*.test\": "));
  EXPECT_EQ(run({"entity", "add", "*@*"}).err, "");
}

TEST_P(Entity, wrongOnesAreRefused) {
  expectRefused({"entity", "add", ""}, 64, "NAME: \"\" is empty");
  expectRefused({"entity", "add", "--type", "8", "x"}, 64, "--type: \"8\" is neither ldap, nor wildcard, nor a number");
  expectRefused({"entity", "add", "--type", "ldap", "a\nb"}, 64, "holds control characters");
  expectRefused({"entity", "add", "*@example.org"}, 77, "named \"*@example.org\" already");
  EXPECT_EQ(lines({"list"}).size(), 10u);
}

TEST_P(Entity, isRemovedUnlessItOwnsObjects) {
  expectRefused({"entity", "remove", "*@example.org"}, 77, "owns 1 objects, which would be left without an owner");
  EXPECT_THAT(lines({"remove", "*@*.sales.example.test"}), testing::Contains("id\t8"));
  expectRefused({"entity", "remove", "*@*.sales.example.test"}, 1, "no managing group named");
  EXPECT_EQ(value("SELECT count(*) FROM administrator_entity WHERE entity_id = 8"), "0");
}

TEST_P(Entity, isNotRemovedWhileItIsTheScopeOfRules) {
  const std::string entity = "*@*.sales.example.test";
  for (const char* name : {"Second", "First"}) {
    ASSERT_EQ(
        run({"rule", "add", "--as", "sales-admin", "--for", entity, "--list", "Partners:block", "--position", "1", name})
            .status,
        0);
  }
  EXPECT_THAT(lines({"show", entity}), testing::Contains("rules\tFirst, Second"));
  expectRefused({"entity", "remove", entity}, 77,
                "\"*@*.sales.example.test\" is not removed: it is the scope of \"First\", \"Second\"");
  EXPECT_EQ(value("SELECT count(*) FROM administrator_entity WHERE entity_id = 8"), "1");
  for (const char* name : {"Second", "First"}) {
    ASSERT_EQ(run({"rule", "remove", "--as", "sales-admin", name}).status, 0);
  }
  EXPECT_THAT(lines({"remove", entity}), testing::Contains("id\t8"));
}

TEST_P(Entity, relativesAreWhatTheLibraryFinds) {
  EXPECT_THAT(lines({"relatives", "*@*.example.test"}),
              ElementsAre("child\t8\t*@*.sales.example.test", "child\t9\t*@engineering.example.test",
                          "child\t7\t*@sales.example.test"));
  EXPECT_THAT(lines({"relatives", "*@sales.example.test"}), ElementsAre("parent\t6\t*@*.example.test"));
  EXPECT_THAT(lines({"relatives", "--id", "3"}), IsEmpty());
  EXPECT_THAT(lines({"relatives", "Headquarters"}), IsEmpty());
  expectRefused({"entity", "relatives", "nothing"}, 1, "no managing group named \"nothing\"");
}

TEST_P(Entity, containsAnswersForOneAddress) {
  EXPECT_THAT(lines({"contains", "*@*.example.test", "User@Mail.example.test"}), ElementsAre("yes"));
  const ProgramResult other = run({"entity", "contains", "*@*.example.test", "user@example.test"});
  EXPECT_EQ(other.status, 1);
  EXPECT_EQ(other.out, "no\n");
}

TEST_P(Entity, treeShowsDirectContainmentOnly) {
  lines({"add", "*@*"});
  EXPECT_THAT(lines({"tree"}), ElementsAre("*@*\t11", "  *@*.example.test\t6", "    *@*.sales.example.test\t8",
                                           "    *@engineering.example.test\t9", "    *@sales.example.test\t7",
                                           "  *@example.org\t10", "  *@example.test\t5"));
  const auto document = nlohmann::json::parse(run({"entity", "tree", "--json"}).out);
  EXPECT_EQ(document[0]["contains"][0]["contains"][2]["id"], 7);
}

TEST_P(Entity, dotHasANodeForEachAndItsEdges) {
  run({"entity", "add", "a\"b\\c@example.test"});
  const auto dot = lines({"tree", "--dot"});
  EXPECT_EQ(dot.front(), "digraph entities {");
  EXPECT_EQ(dot.back(), "}");
  EXPECT_THAT(dot, testing::Contains("  \"*@*.example.test\" -> \"*@sales.example.test\";"));
  EXPECT_THAT(dot, testing::Contains("  \"*@example.test\" -> \"a\\\"b\\\\c@example.test\";"));
}

TEST_P(Entity, wholeListFailsWithTheDatabase) {
  writeFile("sql/ui_GetEntitiesByType.sql", "SELECT %d FROM nowhere");
  expectRefused({"entity", "list"}, 69, "cannot read the managing groups: ");
}

ZARO_ON_EVERY_DATABASE(Entity);

}  // namespace

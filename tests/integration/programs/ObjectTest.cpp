// zaroctl object and quarantine: who sees, changes and removes which named object.
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

class Object : public zarotest::SampleInstallation {
 protected:
  ProgramResult object(const Words& words, const std::string& input = {}) const {
    Words command = {"object"};
    command.insert(command.end(), words.begin(), words.end());
    return run(command, input);
  }
  std::vector<std::string> lines(const Words& words, const std::string& input = {}) const {
    const ProgramResult result = object(words, input);
    EXPECT_EQ(result.status, 0) << result.err;
    return linesOf(result.out);
  }
  nlohmann::json document(Words words) const {
    words.emplace_back("--json");
    const ProgramResult result = object(words);
    EXPECT_EQ(result.status, 0) << result.err;
    return nlohmann::json::parse(result.out);
  }
};

TEST_P(Object, listShowsWhatAnAdministratorMayDo) {
  EXPECT_THAT(lines({"list", "--as", "sales-admin"}),
              ElementsAre("10\t2\tCompany disclaimer\tno\tno\tno", "3\tquarantine\tSales quarantine\tyes\tyes\tyes",
                          "11\t4\tOffice hours\tyes\tyes\tyes", "7\tgroup\tPartners\tno\tno\tno",
                          "6\tgroup\tSales team\tyes\tyes\tyes"));
  EXPECT_THAT(lines({"list", "--as", "sales-admin", "--type", "quarantine"}),
              ElementsAre("3\tquarantine\tSales quarantine\tyes\tyes\tyes"));
  EXPECT_EQ(document({"list", "--as", "sales-admin", "--type", "5"})[1]["name"], "Sales team");
  EXPECT_EQ(lines({"list", "--as", "admin"}).size(), 10u);
}

TEST_P(Object, whoeverSeesNothingIsTold) {
  expectRefused({"object", "list", "--as", "auditor"}, 1,
                "\"auditor\" is assigned to no managing group, and sees no object");
  expectRefused({"object", "list", "--as", "nobody"}, 1, "no administrator named \"nobody\"");
  expectRefused({"object", "list", "--as", "admin", "--type", "x"}, 64,
                "--type: \"x\" is neither quarantine, nor group, nor a");
}

TEST_P(Object, isShownToWhoeverSeesIt) {
  EXPECT_THAT(lines({"show", "--as", "postmaster", "2"}),
              ElementsAre("id\t2", "type\tquarantine", "name\tCompany quarantine", "editable\tyes", "modifiable\tyes",
                          "deletable\tno", "rules\t1", "content\tdays=14;notify=yes"));
  EXPECT_EQ(document({"show", "--as", "admin", "2"})["rules"], nlohmann::json{"Hold confidential mail to partners"});
  expectRefused({"object", "show", "--as", "sales-admin", "2"}, 1,
                "\"sales-admin\" sees no object 2; see zaroctl object why");
  expectRefused({"object", "show", "--as", "admin", "1"}, 1, "\"admin\" sees no object 1");
  expectRefused({"object", "show", "--as", "admin", "99"}, 1, "no object 99");
  expectRefused({"object", "show", "--as", "admin", "-1"}, 64, "");
  expectRefused({"object", "show", "--as", "admin", "4294967295"}, 64, "ID: \"4294967295\" is not an identifier");
}

TEST_P(Object, addedOneBelongsToEveryEntityOfTheAdministrator) {
  const std::string name = "O'Neil's 100% \xC3\xA4rea";
  EXPECT_THAT(lines({"add", "--as", "sales-admin", "--type", "quarantine", "--content", "it's\n100%\\n", name}),
              ElementsAre("id\t12", "type\tquarantine", "name\t" + name));
  EXPECT_EQ(document({"show", "--as", "sales-admin", "12"})["content"], "it's\n100%\\n");
  EXPECT_EQ(value("SELECT count(*) FROM named_object_owner WHERE object_id = 12"), "3");
}

TEST_P(Object, injectionsAreStoredAsTheyAre) {
  const std::string text = "x'); DELETE FROM entity; --";
  lines({"add", "--as", "sales-admin", "--type", "1", "--content", text, text});
  const auto shown = document({"show", "--as", "sales-admin", "12"});
  EXPECT_EQ(shown["name"], text);
  EXPECT_EQ(shown["content"], text);
  EXPECT_EQ(value("SELECT count(*) FROM entity"), "10");
}

TEST_P(Object, badInputIsRefused) {
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", ""}, 64, "NAME: \"\" is empty");
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", "a\nb"}, 64, "holds control characters");
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", "--content", "\xFF", "x"}, 64,
                "the content is not UTF-8");
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", "--file", "-", "x"}, 64,
                "the content is not UTF-8", std::string("a\0b", 3));
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "2147483648", "x"}, 64, "nor a number");
  expectRefused({"object", "add", "--as", "auditor", "--type", "1", "x"}, 1, "is assigned to no managing group");
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", "--file", "/nowhere/at/all", "x"}, 74,
                "/nowhere/at/all");
  EXPECT_EQ(value("SELECT count(*) FROM named_object"), "11");
}

TEST_P(Object, whatDoesNotFitTheStatementIsToldBefore) {
  const auto add = [this](std::size_t size) {
    return object({"add", "--as", "sales-admin", "--type", "1", "--file", "-", "n"}, std::string(size - 1, 'x'));
  };
  EXPECT_EQ(add(8000).status, 0);
  const ProgramResult refused = add(8291);
  EXPECT_EQ(refused.status, 65);
  EXPECT_THAT(refused.err, HasSubstr("they have 8291 bytes, and the statement takes up to "));
  const std::string limit = refused.err.substr(refused.err.find(" up to ") + 7);
  const std::size_t longest = std::stoul(limit);
  EXPECT_GT(longest, 8050u);
  EXPECT_EQ(add(longest).status, 0);
  EXPECT_EQ(add(longest + 1).status, 65);
  EXPECT_EQ(add(8292).status, 0);
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE name = 'n'"), "3");

  const auto modify = [this](std::size_t size) {
    return object({"modify", "--as", "sales-admin", "12", "--file", "-"}, std::string(size - 1, '\''));
  };
  EXPECT_EQ(modify(4000).status, 0);
  EXPECT_THAT(modify(4100).err, HasSubstr("with quotes counted twice they have 8199 bytes"));
  EXPECT_EQ(modify(5000).status, 0);
}

TEST_P(Object, largeContentsComeBack) {
  std::string text;
  while (text.size() < 5000000) {
    text += "it's line " + std::to_string(text.size()) + "\n";
  }
  const ProgramResult added = object({"add", "--as", "sales-admin", "--type", "1", "--file", "-", "large"}, text);
  EXPECT_EQ(added.status, 0) << added.err;
  EXPECT_TRUE(document({"show", "--as", "sales-admin", "12"})["content"] == text);
}

TEST_P(Object, isModifiedByWhoeverMayEditIt) {
  EXPECT_THAT(lines({"modify", "--as", "sales-admin", "3", "--name", "Area"}), Contains("name\tArea"));
  EXPECT_EQ(document({"show", "--as", "sales-admin", "3"})["content"], "days=7;notify=yes");
  lines({"modify", "--as", "sales-admin", "3", "--content", "", "--type", "9"});
  EXPECT_EQ(document({"show", "--as", "sales-admin", "3"})["content"], "");
  EXPECT_THAT(lines({"list", "--as", "sales-admin", "--type", "9"}), ElementsAre("3\t9\tArea\tyes\tyes\tyes"));
  expectRefused({"object", "modify", "--as", "sales-admin", "10", "--name", "x"}, 77, "may not edit object 10 (");
  expectRefused({"object", "modify", "--as", "postmaster", "3", "--name", "x"}, 77, "(code 6024): not every owner");
  expectRefused({"object", "modify", "--as", "sales-admin", "99", "--name", "x"}, 1, "no object 99");
  expectRefused({"object", "modify", "--as", "sales-admin", "3", "--name", ""}, 64, "--name: \"\" is empty");
  expectRefused({"object", "modify", "--as", "sales-admin", "3", "--content", "a", "--file", "-"}, 64, "excludes");
  expectRefused({"object", "modify", "--as", "sales-admin", "6", "--type", "9"}, 77,
                "object 6 (\"Sales team\") was not changed: an address group with members stays one");
}

// A document may give a rule such recipients; the library does not ask for them.
TEST_P(Object, isInUseAsTheRecipientsOfARuleWithoutACondition) {
  session()->run("UPDATE policy_rule SET recipients_id = 5 WHERE name = 'Deliver builds at once'");
  expectRefused({"object", "remove", "--as", "admin", "5"}, 77, "in use (code 6025) by \"Deliver builds at once\"");
  expectRefused({"group", "remove", "Board"}, 77, "was not removed: in use by \"Deliver builds at once\"");
}

TEST_P(Object, refusalsToRemoveAreExplained) {
  expectRefused({"object", "remove", "--as", "postmaster", "2"}, 77, "was not removed: in use (code 6025) by a rule");
  expectRefused({"object", "remove", "--as", "admin", "2"}, 77,
                "was not removed: in use (code 6025) by \"Hold confidential mail to partners\"");
  expectRefused({"object", "remove", "--as", "sales-admin", "10"}, 77,
                "(code 6024): not every owner is a managing group");
  expectRefused({"object", "remove", "--as", "sales-admin", "99"}, 1, "no object 99");
  EXPECT_THAT(lines({"remove", "--as", "sales-admin", "3"}), Contains("id\t3"));
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE id = 3"), "0");
  writeFile("sql/ui_RemoveNamedObj.sql", "SELECT -1 AS \"retId\", %u, %u");
  expectRefused({"object", "remove", "--as", "sales-admin", "11"}, 1, "is gone already (code 6022)");
  writeFile("sql/ui_RemoveNamedObj.sql", "SELECT -2 AS \"retId\", %u, %u");
  expectRefused({"object", "remove", "--as", "sales-admin", "11"}, 77, "a rule came to use it meanwhile (code 6023)");
  writeFile("sql/ui_RemoveNamedObj.sql", "SELECT 1 AS \"retId\", %u, %u");
  expectRefused({"object", "remove", "--as", "sales-admin", "11"}, 65, "was not removed, though the database said so");
  writeFile("sql/ui_RemoveNamedObj.sql", "SELECT %u FROM nowhere WHERE 1=%u");
  expectRefused({"object", "remove", "--as", "sales-admin", "11"}, 69, "was not removed: ");
}

TEST_P(Object, whyTellsOfAContainedOwner) {
  EXPECT_THAT(
      lines({"why", "--as", "postmaster", "3"}),
      ElementsAre("read\t-\t*@sales.example.test\tno\t*@sales.example.test", "direct\t-\t-\tno\t*@sales.example.test",
                  "children\t*@example.test\t-\tno\t*@sales.example.test",
                  "children\t*@*.example.test\t*@sales.example.test\teditable\t-",
                  "parents\t*@example.test\t-\teditable\t-", "parents\t*@*.example.test\t-\teditable\t-",
                  "ldap\t-\t-\teditable\t-", "visible\t-\t-\tyes\t-", "editable\t-\t-\tyes\t-",
                  "deletable\t-\t-\tyes\t-", "modify/remove\t-\t-\tno\t-", "used by\t-\t-\t-\t-"));
}

TEST_P(Object, whyTellsOfAContainingOwnerAndOfOwnersLeft) {
  session()->run("INSERT INTO named_object_owner (entity_id, object_id, object_type) VALUES (6, 3, 3)");
  const auto why = document({"why", "--as", "sales-admin", "3"});
  EXPECT_EQ(why["steps"][1]["owners"], nlohmann::json{"*@sales.example.test"});
  EXPECT_EQ(why["steps"][1]["seen"], "read-only");
  EXPECT_EQ(why["steps"][4]["step"], "parents");
  EXPECT_EQ(why["steps"][4]["through"], "*@sales.example.test");
  EXPECT_EQ(why["steps"][4]["owners"], nlohmann::json{"*@*.example.test"});
  EXPECT_EQ(why["visible"], true);
  EXPECT_EQ(why["editable"], false);
  EXPECT_EQ(why["owners_left"], nlohmann::json{"*@*.example.test"});
}

TEST_P(Object, whyTellsOfRulesAndOfWhoSeesNothing) {
  const auto used = document({"why", "--as", "postmaster", "2"});
  EXPECT_EQ(used["editable"], true);
  EXPECT_EQ(used["deletable"], false);
  EXPECT_EQ(used["directly_editable"], true);
  EXPECT_EQ(used["rules"], nlohmann::json{"Hold confidential mail to partners"});
  const auto hidden = document({"why", "--as", "customer-admin", "3"});
  EXPECT_EQ(hidden["visible"], false);
  EXPECT_EQ(hidden["directly_editable"], false);
  const auto root = document({"why", "--as", "admin", "3"});
  EXPECT_EQ(root["root"], true);
  EXPECT_EQ(root["editable"], true);
  EXPECT_EQ(root["deletable"], false);
  EXPECT_EQ(root["steps"].size(), 1u);
  const auto reserved = document({"why", "--as", "postmaster", "1"});
  EXPECT_EQ(reserved["steps"][0]["step"], "not listed");
  EXPECT_EQ(reserved["visible"], false);
  session()->run("DELETE FROM named_object_owner WHERE object_id = 11");
  EXPECT_EQ(document({"why", "--as", "sales-admin", "11"})["owners_left"], nlohmann::json{"nobody"});
  expectRefused({"object", "why", "--as", "admin", "99"}, 1, "no object 99");
}

TEST_P(Object, whyAgreesWithTheListForEveryAdministratorAndObject) {
  for (const char* admin : {"postmaster", "sales-admin", "engineering-admin", "customer-admin"}) {
    std::map<int, nlohmann::json> listed;
    for (const auto& row : document({"list", "--as", admin})) {
      listed[row["id"]] = row;
    }
    for (int id = 1; id <= 11; ++id) {
      const auto why = document({"why", "--as", admin, std::to_string(id)});
      const bool isListed = listed.count(id) != 0;
      EXPECT_EQ(why["visible"], isListed) << admin << id;
      if (isListed) {
        EXPECT_EQ(why["editable"], listed[id]["editable"]) << admin << id;
        EXPECT_EQ(why["deletable"], listed[id]["deletable"]) << admin << id;
      }
    }
  }
}

TEST_P(Object, policyTextHasLengthsBeforeItsTexts) {
  EXPECT_EQ(object({"policy-text", "3", "2", "--lead", "7"}).out,
            "2;7;2;3;18;Company quarantine;18;days=14;notify=yes;3;3;16;Sales quarantine;17;days=7;notify=yes;");
  EXPECT_EQ(object({"policy-text", "6"}).out,
            "1;0;6;5;10;Sales team;77;head@sales.example.test\n*@north.sales.example.test\n*@south.sales.example.test;");
  EXPECT_EQ(object({"policy-text", "--type", "77"}).out, "0;0;");
  EXPECT_THAT(object({"policy-text"}).out, testing::StartsWith("11;0;1;3;21;OPP:System quarantine;"));
  EXPECT_EQ(document({"policy-text", "3"})["estimate"], 16 + 17 + 65 + 64);
  expectRefused({"object", "policy-text", "99"}, 1, "no object 99");
  expectRefused({"object", "policy-text", "x"}, 64, "ID: \"x\" is not an identifier");
  expectRefused({"object", "policy-text", "--type", "3", "3"}, 64, "excludes");
}

TEST_P(Object, quarantineAreasEndWithTheReservedOne) {
  EXPECT_THAT(linesOf(run({"quarantine", "list", "--as", "postmaster"}).out),
              ElementsAre("2\tCompany quarantine\tyes\tyes\tdays=14;notify=yes",
                          "3\tSales quarantine\tyes\tno\tdays=7;notify=yes",
                          "1\tOPP:System quarantine\tno\tno\tdays=30;notify=no"));
  const ProgramResult none = run({"quarantine", "list", "--as", "auditor"});
  EXPECT_EQ(none.status, 1);
  EXPECT_THAT(none.err, HasSubstr("is assigned to no managing group"));
  session()->run("DELETE FROM named_object WHERE id = 1");
  EXPECT_EQ(linesOf(run({"quarantine", "list", "--as", "admin"}).out).size(), 3u);
}

ZARO_ON_EVERY_DATABASE(Object);

}  // namespace

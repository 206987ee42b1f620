// The whole policy out of one installation and into another: `export` and `import`.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::zaroctl;
using Json = nlohmann::ordered_json;

constexpr const char* kHead = R"("format": "zaropolicy", "version": 1)";

class Transfer : public zarotest::SampleInstallation {
 protected:
  std::string exported() const {
    const ProgramResult result = run({"export"});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }
  Json policy() const { return Json::parse(exported()); }

  ProgramResult import(const std::string& document, const std::vector<std::string>& options = {}) const {
    std::vector<std::string> arguments = {"import", "-"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments, document);
  }
  std::vector<std::string> importedLines(const Json& document, const std::vector<std::string>& options = {}) const {
    const ProgramResult result = import(document.dump(), options);
    EXPECT_EQ(result.status, 0) << result.err;
    return linesOf(result.out);
  }

  // What no text of the sample has.
  void addOddTexts() const {
    session()->runTogether(
        {"INSERT INTO administrator (id, name) VALUES (4294967294, 'it''s \"one\" \\ <b>')",
         "INSERT INTO named_object (id, type, name, content) VALUES (70, -2147483648, 'Büro 😀', 'a\tb\nc\r\n')",
         "INSERT INTO named_object (id, type, name) VALUES (71, 5, 'odd'), (72, 5, 'empty')",
         "INSERT INTO address_group_member (group_id, position, address) VALUES (71, 3, '#a@b.test'), "
         "(71, 9, 'A@b.test'), (71, 10, 'a@b.test'), (71, 11, 'a@b.test'), (71, 12, ' x ')",
         "INSERT INTO policy_rule (id, name, enabled) VALUES (9, 'nothing', 1)",
         "INSERT INTO policy_rule (id, name, quarantine_id, position, enabled, scope_id, recipients_id, compares, "
         "actions, reply, tag, header_value, address) VALUES (30, 'all', 2, 2147483646, 0, 5, 6, 3, "
         "'01000000000000001', 'it''s\r\n\\', 'ü', '%', 'a@b.test')",
         "INSERT INTO policy_rule_object (rule_id, object_id) VALUES (30, 5), (30, 7)",
         "INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (30, 0, 7, 2), (30, 4, 5, 1), "
         "(30, 9, 7, 32)",
         "INSERT INTO global_setting (section, name, value) VALUES ('s', 'n', '')"});
  }
};

// A document with one rule, which is what `changes` make of a sound one.
std::string documentWithRule(const Json& changes) {
  Json rule = Json::parse(R"({"id": 50, "name": "r", "position": 50, "enabled": false, "scope": null, "recipients": null,
    "compares": 1, "actions": "00000000000000000", "quarantine": null, "reply": "", "tag": "", "header_value": "",
    "address": "", "objects": [], "lists": []})");
  rule.update(changes);
  return Json({{"format", "zaropolicy"}, {"version", 1}, {"rules", Json::array({rule})}}).dump();
}

// An installation with the embedded database, whatever the test's.
class EmbeddedInstallation {
 public:
  explicit EmbeddedInstallation(const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"init", m_home};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(zaroctl(arguments).status, 0);
  }
  std::string exported() const { return zaroctl({"--home", m_home, "export"}).out; }
  void import(const std::string& document) const {
    zarotest::ProgramRun run;
    run.input = document;
    const ProgramResult result = zaroctl({"--home", m_home, "import", "-"}, run);
    EXPECT_EQ(result.status, 0) << result.err;
  }

 private:
  zarotest::TemporaryDirectory m_directory;
  std::string m_home = m_directory.path("embedded");
};

TEST_P(Transfer, everythingGoesToAnotherDatabaseAndBack) {
  addOddTexts();
  const std::string document = exported();
  const EmbeddedInstallation other({});
  other.import(document);
  EXPECT_EQ(other.exported(), document);
  session()->runTogether({"DELETE FROM policy_rule", "DELETE FROM named_object", "DELETE FROM administrator",
                          "DELETE FROM entity", "DELETE FROM global_setting", "DELETE FROM component",
                          "DELETE FROM manual_rule_order"});
  EXPECT_EQ(import(other.exported()).status, 0);
  EXPECT_EQ(exported(), document);
  EXPECT_THAT(import(document).out, IsEmpty());
}

TEST_P(Transfer, equalPoliciesAreEqualDocuments) {
  EXPECT_EQ(exported(), EmbeddedInstallation({"--sample"}).exported());
}

TEST_P(Transfer, installationBecomesWhatTheDocumentSays) {
  Json wanted = policy();
  wanted["administrators"].erase(5);
  wanted["administrators"][1]["entities"] = {5, 2, 1};
  wanted["objects"][4]["members"].push_back("new@x.test");
  std::reverse(wanted["objects"][5]["members"].begin(), wanted["objects"][5]["members"].end());
  wanted["rules"].erase(0);
  wanted["objects"].erase(1);  // which that rule used
  wanted["servers"].push_back({{"type", "P"}, {"number", 9}, {"address", "192.0.2.9"}, {"port", 15505}});
  EXPECT_THAT(importedLines(wanted),
              ElementsAre("changed\tadministrator\t2\tpostmaster\tentities\t3, 6\t2",
                          "removed\tadministrator\t6\tauditor\t-\t-\t-", "removed\tobject\t2\tCompany quarantine\t-\t-\t-",
                          "changed\tobject\t5\tBoard\tmembers\t-\tnew@x.test",
                          "changed\tobject\t6\tSales team\tmembers\t-\tin another order",
                          "removed\trule\t1\tHold confidential mail to partners\t-\t-\t-",
                          "added\tserver\tP 9\t-\t-\t-\t-", "administrators: 1 changed, 1 removed",
                          "objects: 2 changed, 1 removed", "rules: 1 removed", "servers: 1 added"));
  EXPECT_THAT(importedLines(wanted), IsEmpty());
}

TEST_P(Transfer, trialTellsWhatWouldChangeAndChangesNothing) {
  const std::string before = exported();
  Json wanted = policy();
  wanted["rule_order"] = Json::array();
  const auto document = Json::parse(import(wanted.dump(), {"--dry-run", "--json"}).out);
  EXPECT_EQ(document.at("applied"), false);
  EXPECT_EQ(document.at("summary").at("rule_order"), (Json{{"added", 0}, {"changed", 0}, {"removed", 6}}));
  ASSERT_EQ(document.at("differences").size(), 6u);
  EXPECT_EQ(document.at("differences")[0].at("before"), (Json{{"rank", 1}, {"group", 1}, {"name", "Virus"}}));
  EXPECT_EQ(exported(), before);
}

TEST_P(Transfer, mergingRemovesNothing) {
  const Json before = policy();
  const Json more = Json::parse(std::string("{") + kHead + R"(,
    "administrators": [{"id": 90, "name": "ninety", "root": false, "entities": [5]}],
    "objects": [{"id": 9, "type": 1, "name": "words", "content": "c", "owners": [], "members": []}],
    "rule_order": [{"rank": 1, "group": 4, "name": "Spam"}]})");
  EXPECT_EQ(importedLines(more, {"--merge"}).front(), "added\tadministrator\t90\tninety\t-\t-\t-");
  Json wanted = before;
  wanted["administrators"].push_back(more["administrators"][0]);
  wanted["objects"][8] = more["objects"][0];
  wanted["rule_order"] = more["rule_order"];
  EXPECT_EQ(policy(), wanted);
}

TEST_P(Transfer, namesMayChangePlaces) {
  Json wanted = policy();
  std::swap(wanted["administrators"][0]["name"], wanted["administrators"][1]["name"]);
  std::swap(wanted["entities"][4]["name"], wanted["entities"][5]["name"]);
  // And one goes to a new row, while the old one goes.
  Json moved = wanted["administrators"][5];
  moved["id"] = 60;
  wanted["administrators"][5] = moved;
  EXPECT_EQ(import(wanted.dump()).status, 0);
  EXPECT_EQ(policy(), wanted);
}

TEST_P(Transfer, rulesChangePlacesAndLists) {
  addOddTexts();
  Json wanted = policy();
  const auto expectImported = [&](const char* step) {
    const ProgramResult result = import(wanted.dump());
    EXPECT_EQ(result.status, 0) << step << ": " << result.err;
    EXPECT_EQ(policy(), wanted) << step;
  };
  ASSERT_EQ(wanted["rules"].size(), 4u);
  std::swap(wanted["rules"][0]["position"], wanted["rules"][3]["position"]);
  expectImported("two change places");

  wanted["rules"][3]["objects"] = {5, 6, 7};
  expectImported("objects change, and lists stay");
  std::reverse(wanted["rules"][3]["lists"].begin(), wanted["rules"][3]["lists"].end());
  expectImported("lists in another order");

  wanted["rules"][3].update(Json{{"objects", {5, 6}},
                                 {"lists", {{{"group", 6}, {"kind", 4}}, {{"group", 5}, {"kind", 1}}}},
                                 {"scope", nullptr},
                                 {"recipients", 8}});
  wanted["rules"][0]["objects"] = {9};
  wanted["objects"].erase(6);   // of which all this was
  wanted["entities"].erase(4);  // the scope
  for (const char* table : {"administrators", "objects"}) {
    for (Json& row : wanted[table]) {
      Json& list = row[table == std::string("objects") ? "owners" : "entities"];
      list.erase(std::remove(list.begin(), list.end(), 5), list.end());
    }
  }
  expectImported("what a rule used goes");

  Json added = wanted["rules"][3];
  added["id"] = 31;
  added["name"] = "in its place";
  wanted["rules"][3] = added;
  expectImported("another takes the place of one that goes");
}

TEST_P(Transfer, importIsOneChangeOfTheAdministratorWhoActs) {
  const auto version = [&] { return std::stoi(value("SELECT version FROM policy_version")); };
  const auto entries = [&] { return std::stoi(value("SELECT count(*) FROM audit")); };
  Json wanted = policy();
  std::swap(wanted["rules"][0]["position"], wanted["rules"][1]["position"]);
  wanted["objects"][4]["members"].push_back("new@x.test");
  wanted["objects"].erase(10);
  wanted["rule_order"] = Json::array();
  const int oldVersion = version();
  const int oldEntries = entries();
  EXPECT_EQ(import(wanted.dump(), {"--as", "nobody"}).status, 1);
  EXPECT_EQ(version(), oldVersion);
  EXPECT_EQ(import(wanted.dump(), {"--as", "postmaster"}).status, 0);
  EXPECT_EQ(version(), oldVersion + 1);
  EXPECT_GE(entries(), oldEntries + 10);
  EXPECT_EQ(value("SELECT count(*) FROM audit WHERE administrator = 'postmaster' AND program = 'zaroctl'"),
            std::to_string(entries() - oldEntries));

  const int newEntries = entries();
  EXPECT_EQ(import(wanted.dump(), {"--as", "postmaster"}).status, 0);
  EXPECT_EQ(version(), oldVersion + 1);
  EXPECT_EQ(entries(), newEntries);
}

TEST_P(Transfer, identifiersOfADocumentAreNotGivenAway) {
  Json wanted = policy();
  wanted["administrators"].push_back({{"id", 50}, {"name", "fifty"}, {"root", false}, {"entities", Json::array()}});
  EXPECT_EQ(import(wanted.dump()).status, 0);
  EXPECT_EQ(run({"admin", "add", "next"}).status, 0);
  EXPECT_EQ(value("SELECT id FROM administrator WHERE name = 'next'"), "51");
}

TEST_P(Transfer, failureInTheMiddleChangesNothing) {
  session()->run("DROP TABLE manual_rule_order");
  session()->run(
      "CREATE TABLE manual_rule_order (rule_order INTEGER, filter_id INTEGER, filter_type TEXT, CHECK "
      "(filter_id <> 4))");
  const std::string before = exported();
  Json wanted = policy();
  wanted["administrators"].erase(5);
  wanted["rule_order"] = {{{"rank", 1}, {"group", 4}, {"name", "Spam"}}};
  EXPECT_NE(import(wanted.dump()).status, 0);
  EXPECT_EQ(exported(), before);
}

TEST_P(Transfer, wrongDocumentsAreRefusedWithTheirPlaces) {
  const std::string before = exported();
  const struct {
    std::string text;
    const char* told;
  } kRows[] = {
      {"", "is no JSON: "},
      {"[]", "is no exported policy"},
      {R"({"format": 1e999})", "is no JSON: "},
      {R"({"entities": )" + std::string(100000, '[') + std::string(100000, ']') + R"(, "format": "zaropolicy"})",
       "nests values more than 8 levels deep"},
      {R"({"format": "zaropolicy", "version": 2})", "of another version than 1"},
      {std::string("{") + kHead + R"(, "admins": []})", "unknown key, \"admins\""},
      {std::string("{") + kHead + R"(, "servers": {}})", "servers is no list"},
      {std::string("{") + kHead + R"(, "servers": [1]})", "servers[0] is no object"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 1, "name": "a"}]})", "entities[0] lacks the key \"type\""},
      {std::string("{") + kHead + R"(, "entities": [{"id": 0, "type": 0, "name": "a"}]})",
       "entities[0].id is no number from 1 to 4294967294"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 1.5, "type": 0, "name": "a"}]})",
       "entities[0].id is no number"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 18446744073709551615, "type": 0, "name": "a"}]})",
       "entities[0].id is no number"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 99, "type": 0, "name": ""}]})", "entities[0].name is empty"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 99, "type": 0, "name": "a\u0000"}]})", "holds a NUL"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 99, "type": 0, "name": ")" + std::string(513, 'a') + "\"}]}",
       "entities[0].name is longer than 512 characters"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 99, "type": 6, "name": "*@A.test"}]})", "with capitals"},
      {std::string("{") + kHead + R"(, "entities": [{"id": 99, "type": 6, "name": "*@example.test"}]})",
       "entity 99 has the name of entity 5: \"*@example.test\""},
      {std::string("{") + kHead +
           R"(, "entities": [{"id": 99, "type": 0, "name": "a"}, {"id": 99, "type": 1, "name": "b"}]})",
       "entities holds entity 99 twice"},
      {std::string("{") + kHead + R"(, "administrators": [{"id": 1, "name": "admin", "root": 1, "entities": []}]})",
       "administrators[0].root is neither true nor false"},
      {std::string("{") + kHead + R"(, "administrators": [{"id": 1, "name": "admin", "root": true, "entities": [77]}]})",
       "administrator 1 refers to 77, which is not among the entities"},
      {std::string("{") + kHead + R"(, "administrators": [{"id": 1, "name": "admin", "root": true, "entities": [5, 5]}]})",
       "administrators[0].entities holds 5 twice"},
      {std::string("{") + kHead +
           R"(, "objects": [{"id": 80, "type": 1, "name": "o", "content": "", "owners": [], "members": ["a@b"]}]})",
       "objects[0] has members, but is no address group"},
      {std::string("{") + kHead + R"(, "servers": [{"type": "p", "number": 1, "address": "::1", "port": 1}]})",
       "servers[0] has a type that is no capital"},
      {std::string("{") + kHead + R"(, "rules": [{"id": 50, "name": "r", "quarantine": null, "objects": []}]})",
       "rules[0] lacks the key \"position\""},
      {documentWithRule({{"position", nullptr}}), "rules[0].position is no number from 1 to 2147483647"},
      {documentWithRule({{"position", 2}}), "rule 50 has the position of rule 2: 2"},
      {documentWithRule({{"scope", 99}}), "rule 50 refers to 99, which is not among the entities"},
      {documentWithRule({{"compares", 4}}), "rules[0].compares is no number from 1 to 3"},
      {documentWithRule({{"actions", "1"}}), "rules[0] has actions that are not 17 digits, each 0 or 1"},
      {documentWithRule({{"objects", {5}}, {"lists", {{{"group", 5}, {"kind", 3}}}}}),
       "rules[0] has a list of the kind 3, which is none"},
      {documentWithRule({{"objects", {6}}, {"lists", {{{"group", 5}, {"kind", 1}}}}}),
       "rules[0] has a list of the group 5, which is not among its objects"},
      {documentWithRule({{"objects", {9}}, {"lists", {{{"group", 9}, {"kind", 1}}}}}),
       "rule 50 refers to 9 of the objects, whose type is not 5"},
      {documentWithRule({{"enabled", true}, {"quarantine", 9}}),
       "has a rule that cannot be applied: rule 50 (\"r\") refers to object 9, which is no quarantine area"},
      {documentWithRule({{"enabled", true}, {"actions", "01111111111111111"}}),
       "has a rule that cannot be applied: rule 50 (\"r\"): the action bitmap "},
      {documentWithRule({{"enabled", true}, {"reply", "a\nb"}}),
       "has a rule that cannot be applied: rule 50 (\"r\") has a control character in "},
  };
  for (const auto& row : kRows) {
    const ProgramResult result = import(row.text, {"--merge"});
    EXPECT_EQ(result.status, 65) << row.told;
    EXPECT_THAT(result.err, AllOf(HasSubstr(row.told), HasSubstr("; nothing is changed")));
    EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_EQ(result.out, "");
  }
  EXPECT_THAT(import(std::string("{") + kHead + "}").err, HasSubstr("lacks the key \"entities\", and without --merge"));
  EXPECT_EQ(exported(), before);
}

TEST_P(Transfer, rulesThatCannotBeAppliedComeDisabledOrWereThere) {
  const std::string area = documentWithRule({{"enabled", false}, {"quarantine", 9}});
  EXPECT_EQ(import(area, {"--merge", "--dry-run"}).status, 0);
  EXPECT_EQ(import(area, {"--merge"}).status, 0);
  const std::string enabled = documentWithRule({{"enabled", true}, {"quarantine", 9}});
  EXPECT_EQ(import(enabled, {"--merge", "--dry-run"}).status, 65);
  session()->run("UPDATE policy_rule SET enabled = 1 WHERE id = 50");
  EXPECT_EQ(import(enabled, {"--merge"}).status, 0);
  EXPECT_EQ(import(exported()).status, 0);
}

ZARO_ON_EVERY_DATABASE(Transfer);

}  // namespace

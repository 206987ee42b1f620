// The audit trail: what it says of changes, by every program that makes some.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "programs/ProgramTest.h"

namespace {

using testing::HasSubstr;
using zarotest::Dialect;
using zarotest::linesOf;
using zarotest::ProgramResult;
using Json = nlohmann::json;

class Audit : public zarotest::SampleInstallation {
 protected:
  // The entries that `change` brings.
  template <typename Change>
  std::vector<Json> entriesOf(Change change) const {
    const std::string last = value("SELECT max(id) FROM audit");
    change();
    std::vector<Json> entries;
    for (const Json& entry : entriesBy({})) {
      if (entry["id"] > std::stoll(last)) {
        entries.push_back(entry);
      }
    }
    return entries;
  }

  std::vector<Json> entriesBy(std::vector<std::string> options) const {
    options.insert(options.begin(), {"audit", "--json"});
    const ProgramResult result = run(options);
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<Json> entries;
    for (const std::string& line : linesOf(result.out)) {
      entries.push_back(Json::parse(line));
    }
    return entries;
  }

  // The only one that some statements bring.
  Json entryOf(const std::vector<std::string>& statements) const {
    const auto entries = entriesOf([&] { session()->runTogether(statements); });
    EXPECT_EQ(entries.size(), 1u) << Json(entries).dump();
    return entries.empty() ? Json() : entries.front();
  }
  void mustRun(const std::vector<std::string>& arguments, const std::string& input = {}) const {
    const ProgramResult result = run(arguments, input);
    EXPECT_EQ(result.status, 0) << result.err;
  }
  std::string idOf(const std::string& name) const {
    return value("SELECT id FROM named_object WHERE name = '" + name + "'");
  }
};

struct ChangeRow {
  const char* label;
  const char* statement;
  const char* change;
  const char* subject;
  const char* before;
  const char* after;
};

const ChangeRow kChanges[] = {
    {"administrator", "INSERT INTO administrator (id, name) VALUES (70, 'alice')", "added", "administrator", "null",
     R"({"id":70,"name":"alice","is_root":0})"},
    {"its rights", "UPDATE administrator SET is_root = 1 WHERE id = 6", "changed", "administrator",
     R"({"id":6,"name":"auditor","is_root":0})", R"({"id":6,"name":"auditor","is_root":1})"},
    {"without assignments", "DELETE FROM administrator WHERE id = 6", "removed", "administrator",
     R"({"id":6,"name":"auditor","is_root":1})", "null"},
    {"entity", "UPDATE entity SET name = 'HQ' WHERE id = 1", "changed", "entity",
     R"({"id":1,"name":"Headquarters","type":0})", R"({"id":1,"name":"HQ","type":0})"},
    {"assignment", "DELETE FROM administrator_entity WHERE administrator_id = 1", "removed", "administrator_entity",
     R"({"administrator_id":1,"entity_id":1})", "null"},
    {"object", "UPDATE named_object SET content = 'days=1' WHERE id = 3", "changed", "named_object",
     R"({"id":3,"type":3,"name":"Sales quarantine","content":"days=7;notify=yes"})",
     R"({"id":3,"type":3,"name":"Sales quarantine","content":"days=1"})"},
    {"owner", "INSERT INTO named_object_owner (entity_id, object_id, object_type) VALUES (1, 3, 3)", "added",
     "named_object_owner", "null", R"({"entity_id":1,"object_id":3,"object_type":3})"},
    {"rule", "UPDATE policy_rule SET quarantine_id = NULL WHERE id = 1", "changed", "policy_rule", nullptr, nullptr},
    {"use of an object", "DELETE FROM policy_rule_object WHERE object_id = 8", "removed", "policy_rule_object",
     R"({"rule_id":2,"object_id":8})", "null"},
    {"setting", "UPDATE global_setting SET value = 'off' WHERE name = 'manualRuleOrder'", "changed", "global_setting",
     R"({"section":"email-scan","name":"manualRuleOrder","value":"on"})",
     R"({"section":"email-scan","name":"manualRuleOrder","value":"off"})"},
    {"server", "DELETE FROM component WHERE type = 'S' AND scanner_id = 4", "removed", "component",
     R"({"scanner_id":4,"type":"S","ip_addr":"192.0.2.20","agent_port":15506})", "null"},
    {"rule order", "UPDATE manual_rule_order SET filter_id = 9 WHERE rule_order = 6", "changed", "manual_rule_order",
     R"({"rule_order":6,"filter_id":6,"filter_type":"Other"})", R"({"rule_order":6,"filter_id":9,"filter_type":"Other"})"},
    {"member", "DELETE FROM address_group_member WHERE address = 'chair@example.test'", "removed",
     "address_group_member", R"({"group_id":5,"members":1,"addresses":["chair@example.test"]})", "null"},
    {"member's address", "UPDATE address_group_member SET address = 'x@y.test' WHERE address = 'treasurer@example.test'",
     "changed", "address_group_member", R"({"group_id":5,"members":1,"addresses":["treasurer@example.test"]})",
     R"({"group_id":5,"members":1,"addresses":["x@y.test"]})"},
};

TEST_P(Audit, everyChangeByAnyProgramIsAnEntry) {
  for (const ChangeRow& row : kChanges) {
    SCOPED_TRACE(row.label);
    const Json entry = entryOf({row.statement});
    EXPECT_EQ(entry["change"], row.change);
    EXPECT_EQ(entry["subject"], row.subject);
    if (row.before != nullptr) {
      EXPECT_EQ(entry["before"], Json::parse(row.before));
      EXPECT_EQ(entry["after"], Json::parse(row.after));
    }
    EXPECT_EQ(entry["administrator"], "");
  }
}

TEST_P(Audit, statementThatChangesNothingIsNoEntry) {
  const auto entries = entriesOf([&] {
    for (const char* table : {"administrator", "entity", "policy_rule"}) {
      session()->run(std::string("UPDATE ") + table + " SET name = name");
    }
    session()->run("UPDATE address_group_member SET address = address");
  });
  EXPECT_TRUE(entries.empty()) << Json(entries).dump();
}

TEST_P(Audit, changeThatIsTakenBackIsNoEntry) {
  const auto entries = entriesOf([&] {
    const auto database = session();
    database->run("BEGIN");
    database->run("DELETE FROM administrator WHERE id = 6");
    database->run("ROLLBACK");
    EXPECT_EQ(run({"object", "remove", "--as", "admin", idOf("Partners")}).status, 77);
  });
  EXPECT_TRUE(entries.empty()) << Json(entries).dump();
}

TEST_P(Audit, whoActedIsTold) {
  const auto entries = entriesOf([&] {
    mustRun({"object", "modify", "--as", "sales-admin", idOf("Sales quarantine"), "--content", "days=8"});
  });
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0]["administrator"], "sales-admin");
  EXPECT_EQ(entries[0]["program"], "zaroctl");
  EXPECT_NE(entries[0]["login"], "");
  EXPECT_EQ(entries[0]["object"], std::stoi(idOf("Sales quarantine")));
  EXPECT_THAT(entries[0]["at"].get<std::string>(),
              testing::MatchesRegex("20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9:]+\\.[0-9][0-9][0-9]Z"));
  // Nothing of it stays for the next who changes something.
  EXPECT_EQ(entryOf({"DELETE FROM administrator WHERE id = 6"})["administrator"], "");
}

TEST_P(Audit, textsComeBackAsTheyAre) {
  const std::string text = "l\xc3\xa4nge \"double\" 'single' \\ back\nline\ttab {\"json\": 1} </ma><ma>";
  mustRun({"object", "modify", "--as", "admin", idOf("Sales quarantine"), "--content", text});
  EXPECT_EQ(entriesBy({}).back()["after"]["content"], text);
}

TEST_P(Audit, longContentIsKeptByItsEndsAndItsLength) {
  const std::string begin(1000, 'b');
  const std::string end(1000, 'e');
  const auto content = [&](char middle) { return begin + std::string(100000, middle) + end; };
  session()->run("UPDATE named_object SET content = '" + content('x') + "' WHERE id = 3");
  // Also when the change is in the part that is not kept.
  const Json entry = entryOf({"UPDATE named_object SET content = '" + content('y') + "' WHERE id = 3"});
  for (const char* side : {"before", "after"}) {
    const Json kept = entry[side]["content"];
    EXPECT_EQ(kept["length"], 102000);
    EXPECT_EQ(kept["begin"], begin);
    EXPECT_EQ(kept["end"], end);
    EXPECT_EQ(kept.contains("sha256"), GetParam() == Dialect::PostgreSQL);
  }
}

TEST_P(Audit, valuesOfPasswordsAreNotKept) {
  const auto entries = entriesOf([&] {
    session()->run("INSERT INTO global_setting (section, name, value) VALUES ('LDAP', 'Bind_Password', 'geheim-1')");
    session()->run("UPDATE global_setting SET value = 'geheim-2' WHERE name = 'Bind_Password'");
    session()->run("DELETE FROM global_setting WHERE name = 'Bind_Password'");
  });
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(Json(entries).dump().find("geheim"), std::string::npos);
  EXPECT_EQ(entries[1]["after"]["value"], "(not kept)");
}

TEST_P(Audit, membersOfOneStatementAreOneEntry) {
  std::string addresses;
  for (int i = 0; i < 1200; ++i) {
    addresses += "user" + std::to_string(i) + "@example.test\n";
  }
  auto entries = entriesOf([&] { mustRun({"group", "import", "Board", "-"}, addresses); });
  // The three that go, and three pieces of new ones, each of them by name.
  ASSERT_EQ(entries.size(), 4u) << Json(entries).dump().substr(0, 1000);
  EXPECT_EQ(entries[0]["before"]["members"], 3);
  std::size_t named = 0;
  for (std::size_t i = 1; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i]["after"]["members"], entries[i]["after"]["addresses"].size());
    named += entries[i]["after"]["addresses"].size();
  }
  EXPECT_EQ(named, 1200u);

  entries = entriesOf([&] { mustRun({"group", "modify", "Board", "--add", "new@example.test"}); });
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0]["after"]["addresses"], Json({"new@example.test"}));

  // The members go with the group, and its owner too.
  entries = entriesOf([&] { mustRun({"group", "remove", "--as", "admin", "Board"}); });
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]["subject"], "named_object");
  EXPECT_EQ(entries[0]["before"]["members"], 1201);
  EXPECT_EQ(entries[0]["before"]["addresses"].size(), 500u);
}

TEST_P(Audit, groupsThatTheStatementFilesWriteAreFewEntries) {
  const std::string members = "<mas><ma>a@b.test</ma><ma>\"c\"@d.test</ma></mas>";
  const bool isSqlite = GetParam() == Dialect::SQLite;
  auto entries = entriesOf([&] {
    session()->run(isSqlite ? "INSERT INTO new_group VALUES (1, 'New', 1, '" + members + "')"
                            : "SELECT add_group(1, 'New', 1, '" + members + "')");
  });
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[2]["after"]["addresses"], Json({"a@b.test", "\"c\"@d.test"}));
  const std::string id = idOf("New");
  entries = entriesOf([&] {
    session()->run(isSqlite ? "INSERT INTO group_change VALUES (" + id + ", 'Newer', '<mas><ma>a@b.test</ma></mas>')"
                            : "SELECT change_group(" + id + ", 'Newer', '<mas><ma>a@b.test</ma></mas>')");
  });
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0]["after"]["name"], "Newer");
  EXPECT_EQ(entries[1]["before"]["members"], 2);
  EXPECT_EQ(entries[2]["after"]["members"], 1);
}

TEST_P(Audit, trailIsAskedByObjectAndTime) {
  session()->run("UPDATE audit SET changed_at = '2020-01-02T03:04:05.678Z'");
  mustRun({"object", "modify", "--as", "admin", idOf("Sales quarantine"), "--name", "Renamed"});
  const std::string id = idOf("Renamed");
  const auto about = entriesBy({"--object", id});
  ASSERT_GE(about.size(), 3u);  // itself, its owner, its change
  for (const Json& entry : about) {
    EXPECT_EQ(entry["object"], std::stoi(id));
  }
  EXPECT_EQ(entriesBy({"--since", "2020-01-02T03:04:05.679Z"}).size(), 1u);
  EXPECT_EQ(entriesBy({"--since", "2020-01-03"}).size(), 1u);
  EXPECT_EQ(entriesBy({"--since", "2020-01-02 03:04:05.678"}).size(), entriesBy({}).size());
  EXPECT_EQ(entriesBy({"--since", "2020-01-03", "--object", "1"}).size(), 0u);
  EXPECT_EQ(about.front()["at"], "2020-01-02T03:04:05.678Z");
  for (const char* text :
       {"yesterday", "2026-02-29", "2026-02-30", "2026-02-31T10:00", "2100-02-29", "2026-04-31", "2026-06-31",
        "2026-09-31", "2026-11-31", "2026-01-32", "2026-00-10", "2026-13-01", "0000-01-01", "2026-01-00"}) {
    expectRefused({"audit", "--since", text}, 64, "\"" + std::string(text) + "\" is no time");
    expectRefused({"audit-trim", "--before", text}, 64, "\"" + std::string(text) + "\" is no time");
  }
  for (const char* text : {"2024-02-29", "2000-02-29", "2026-12-31", "0001-01-01", "9999-01-31"}) {
    EXPECT_EQ(run({"audit", "--since", text}).status, 0) << text;
  }
}

TEST_P(Audit, trimmingIsAnEntryItself) {
  session()->run("UPDATE audit SET changed_at = '2020-01-02T03:04:05Z'");
  const std::string old = value("SELECT count(*) FROM audit");
  mustRun({"admin", "remove", "auditor"});
  EXPECT_EQ(run({"audit-trim", "--before", "2020-01-02T03:04:05Z"}).out,
            "before\t2020-01-02T03:04:05.000Z\nremoved\t0\n");
  EXPECT_EQ(run({"audit-trim", "--before", "2021-01-01", "--as", "admin"}).out,
            "before\t2021-01-01T00:00:00.000Z\nremoved\t" + old + "\n");
  const auto left = entriesBy({});
  ASSERT_EQ(left.size(), 2u);
  EXPECT_EQ(left[1]["change"], "trimmed");
  EXPECT_EQ(left[1]["administrator"], "admin");
  EXPECT_EQ(left[1]["before"], Json({{"before", "2021-01-01T00:00:00.000Z"}, {"entries", std::stoi(old)}}));
}

TEST_P(Audit, readersLeaveNoTrace) {
  const auto entries = entriesOf([&] {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"group", "show", "Board"}, {"object", "list", "--as", "admin"}, {"check"}, {"audit"}}) {
      mustRun(arguments);
    }
  });
  EXPECT_TRUE(entries.empty());
}

ZARO_ON_EVERY_DATABASE(Audit);

}  // namespace

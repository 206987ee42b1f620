// The constraints of the schema: what every database must take, and what every one must refuse.
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "programs/ProgramTest.h"

namespace {

class Schema : public zarotest::SampleInstallation {
 protected:
  // Whether the database takes a statement, which is undone.
  bool takes(const std::string& statement) const {
    const auto connection = session();
    connection->run("BEGIN");
    try {
      connection->run(statement);
    } catch (const zaroruntime::RuntimeError&) {
      return false;
    }
    connection->run("ROLLBACK");
    return true;
  }

  void expectTaken(const std::vector<std::string>& statements) const {
    for (const std::string& statement : statements) {
      EXPECT_TRUE(takes(statement)) << statement.substr(0, 200);
    }
  }

  void expectRefused(const std::vector<std::string>& statements) const {
    for (const std::string& statement : statements) {
      EXPECT_FALSE(takes(statement)) << statement.substr(0, 200);
    }
  }
};

std::string repeated(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) {
    result += text;
  }
  return result;
}

TEST_P(Schema, identifiersLieBetweenOneAndTheLastButOne) {
  expectTaken({
      "INSERT INTO administrator (id, name) VALUES (4294967294, 'x')",
      "INSERT INTO entity (id, type, name) VALUES (4294967294, 0, 'x')",
      "INSERT INTO named_object (id, type, name) VALUES (4294967294, 1, 'x')",
      "INSERT INTO policy_rule (id, name) VALUES (4294967294, 'x')",
  });
  for (const char* id : {"0", "-1", "4294967295", "'x'"}) {
    const std::string value = id;
    expectRefused({
        "INSERT INTO administrator (id, name) VALUES (" + value + ", 'x')",
        "INSERT INTO entity (id, type, name) VALUES (" + value + ", 0, 'x')",
        "INSERT INTO named_object (id, type, name) VALUES (" + value + ", 1, 'x')",
        "INSERT INTO policy_rule (id, name) VALUES (" + value + ", 'x')",
    });
  }
}

TEST_P(Schema, identifiersOfDeletedRowsAreNotGivenAway) {
  const auto connection = session();
  connection->run("INSERT INTO administrator (name) VALUES ('first')");
  const auto first = value("SELECT id FROM administrator WHERE name = 'first'");
  connection->run("DELETE FROM administrator WHERE name = 'first'");
  connection->run("INSERT INTO administrator (name) VALUES ('second')");
  EXPECT_NE(value("SELECT id FROM administrator WHERE name = 'second'"), first);
}

TEST_P(Schema, namesHoldOneToFiveHundredAndTwelveCharacters) {
  const std::string longest = repeated("\xc3\xa9", 512);
  expectTaken({
      "INSERT INTO administrator (name) VALUES ('" + longest + "')",
      "INSERT INTO entity (type, name) VALUES (2, '" + longest + "')",
      "INSERT INTO named_object (type, name) VALUES (5, '" + longest + "')",
      "INSERT INTO policy_rule (name) VALUES ('" + longest + "')",
  });
  for (const std::string& name : {std::string("''"), std::string("NULL"), "'" + longest + "x'"}) {
    expectRefused({
        "INSERT INTO administrator (name) VALUES (" + name + ")",
        "INSERT INTO entity (type, name) VALUES (2, " + name + ")",
        "INSERT INTO named_object (type, name) VALUES (5, " + name + ")",
        "INSERT INTO policy_rule (name) VALUES (" + name + ")",
    });
  }
}

TEST_P(Schema, administratorsHaveNamesOfTheirOwn) {
  expectRefused({
      "INSERT INTO administrator (name) VALUES ('admin')",
      "INSERT INTO administrator (name, is_root) VALUES ('x', 2)",
      "INSERT INTO administrator (name, is_root) VALUES ('x', NULL)",
  });
  expectTaken({"INSERT INTO administrator (name) VALUES ('Admin')"});
}

TEST_P(Schema, entitiesHaveOneOfEightTypesAndNamesOfTheirOwnInIt) {
  expectRefused({
      "INSERT INTO entity (type, name) VALUES (8, 'x')",
      "INSERT INTO entity (type, name) VALUES (-1, 'x')",
      "INSERT INTO entity (type, name) VALUES (6, '*@example.test')",
  });
  expectTaken({
      "INSERT INTO entity (type, name) VALUES (0, 'x')",
      "INSERT INTO entity (type, name) VALUES (7, 'x')",
      "INSERT INTO entity (type, name) VALUES (1, '*@example.test')",
  });
}

TEST_P(Schema, patternsHaveNoAsciiCapitals) {
  expectRefused({
      "INSERT INTO entity (type, name) VALUES (6, '*@Example.com')",
      "UPDATE entity SET name = 'ANY@example.test' WHERE name = '*@example.test'",
      "UPDATE entity SET type = 6 WHERE name = 'Headquarters'",
  });
  expectTaken({
      "INSERT INTO entity (type, name) VALUES (6, '*@\xc3\x84\xc3\xb6.example.com')",
      "INSERT INTO entity (type, name) VALUES (2, 'CN=Capitals')",
  });
}

TEST_P(Schema, assignmentsGoWithAdministratorOrEntity) {
  expectTaken({
      "DELETE FROM administrator WHERE name = 'sales-admin'",
      "DELETE FROM entity WHERE name = '*@*.example.test'",
  });
  expectRefused({
      "INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (1, 4000)",
      "INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (4000, 1)",
      "INSERT INTO administrator_entity (administrator_id, entity_id) SELECT administrator_id, entity_id FROM "
      "administrator_entity",
  });
}

TEST_P(Schema, entitiesThatOwnObjectsStay) {
  expectRefused({"DELETE FROM entity WHERE name = '*@example.test'"});
}

TEST_P(Schema, objectsMayShareANameAndHaveAnyType) {
  expectTaken({
      "INSERT INTO named_object (type, name) VALUES (5, 'Board')",
      "INSERT INTO named_object (type, name) VALUES (-2147483648, 'x')",
      "INSERT INTO named_object (type, name) VALUES (2147483647, 'x')",
  });
  expectRefused({
      "INSERT INTO named_object (type, name) VALUES (2147483648, 'x')",
      "INSERT INTO named_object (type, name, content) VALUES (1, 'x', NULL)",
  });
}

TEST_P(Schema, objectsInUseByARuleStay) {
  expectRefused({
      "DELETE FROM named_object WHERE name = 'Partners'",
      "DELETE FROM named_object WHERE name = 'Company quarantine'",
      "INSERT INTO policy_rule (name, quarantine_id) VALUES ('x', 4000)",
      "INSERT INTO policy_rule_object (rule_id, object_id) VALUES (1, 4000)",
      "INSERT INTO policy_rule_object (rule_id, object_id) VALUES (4000, 1)",
  });
  expectTaken({"DELETE FROM named_object WHERE name = 'Sales team'", "DELETE FROM policy_rule"});
}

TEST_P(Schema, ownersAndMembersGoWithTheObject) {
  session()->run("DELETE FROM named_object WHERE name = 'Sales team'");
  EXPECT_EQ(value("SELECT count(*) FROM named_object_owner"), "13");
  EXPECT_EQ(value("SELECT count(*) FROM address_group_member"), "8");
}

TEST_P(Schema, ownersFollowTheTypeOfTheObject) {
  session()->run("UPDATE named_object SET type = 9 WHERE name = 'Company disclaimer'");
  EXPECT_EQ(value("SELECT count(*) FROM named_object_owner WHERE object_type = 9"), "3");
  expectRefused({
      "INSERT INTO named_object_owner (entity_id, object_id, object_type) SELECT 1, id, 4 FROM named_object WHERE "
      "name = 'Board'",
      "INSERT INTO named_object_owner (entity_id, object_id, object_type) SELECT 4000, id, type FROM named_object WHERE "
      "name = 'Board'",
  });
}

TEST_P(Schema, groupsWithMembersStayGroups) {
  expectRefused({"UPDATE named_object SET type = 4 WHERE name = 'Board'"});
  expectTaken({"UPDATE named_object SET type = 4 WHERE name = 'Sales quarantine'"});
}

TEST_P(Schema, membersBelongToGroupsAtPositionsOfTheirOwn) {
  const auto member = [](const std::string& position, const std::string& address, const std::string& object) {
    return "INSERT INTO address_group_member (group_id, position, address) SELECT id, " + position + ", " + address +
           " FROM named_object WHERE name = '" + object + "'";
  };
  expectTaken({
      member("0", "'a@example.com'", "Board"),
      member("4", "'chair@example.test'", "Board"),
      member("4", "'" + repeated("\xc3\xa9", 512) + "'", "Board"),
  });
  expectRefused({
      member("1", "'a@example.com'", "Board"),
      member("-1", "'a@example.com'", "Board"),
      member("4", "''", "Board"),
      member("4", "NULL", "Board"),
      member("4", "'" + repeated("x", 513) + "'", "Board"),
      member("1", "'a@example.com'", "Office hours"),
      "INSERT INTO address_group_member (group_id, group_type, position, address) SELECT id, type, 1, 'x' FROM "
      "named_object WHERE name = 'Office hours'",
  });
}

TEST_P(Schema, settingsAreNamedOnce) {
  expectRefused({
      "INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', 'off')",
      "INSERT INTO global_setting (section, name, value) VALUES ('', 'x', 'x')",
      "INSERT INTO global_setting (section, name, value) VALUES ('x', '', 'x')",
      "INSERT INTO global_setting (section, name, value) VALUES ('x', 'x', NULL)",
  });
  expectTaken({
      "INSERT INTO global_setting (section, name, value) VALUES ('Email-Scan', 'manualRuleOrder', 'off')",
      "INSERT INTO global_setting (section, name, value) VALUES ('x', 'x', '')",
  });
}

TEST_P(Schema, componentsHaveALetterAnAddressAndAPort) {
  const auto component = [](const std::string& id, const std::string& type, const std::string& address,
                            const std::string& port) {
    return "INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (" + id + ", " + type + ", " +
           address + ", " + port + ")";
  };
  expectTaken({
      component("9", "'P'", "'192.0.2.9'", "1"),
      component("2147483647", "'Z'", "'2001:db8::9'", "65535"),
      component("2", "'S'", "'192.0.2.11'", "15506"),
  });
  expectRefused({
      component("1", "'P'", "'192.0.2.9'", "1"),
      component("0", "'P'", "'192.0.2.9'", "1"),
      component("2147483648", "'P'", "'192.0.2.9'", "1"),
      component("9", "'p'", "'192.0.2.9'", "1"),
      component("9", "'PP'", "'192.0.2.9'", "1"),
      component("9", "''", "'192.0.2.9'", "1"),
      component("9", "'\xc3\x89'", "'192.0.2.9'", "1"),
      component("9", "'P'", "''", "1"),
      component("9", "'P'", "NULL", "1"),
      component("9", "'P'", "'192.0.2.9'", "0"),
      component("9", "'P'", "'192.0.2.9'", "65536"),
      component("9", "'P'", "'192.0.2.9'", "NULL"),
  });
}

TEST_P(Schema, wrongRuleOrdersCanBeStoredForReportsAboutThem) {
  const std::string insert = "INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES ";
  expectTaken({insert + "(9, 0, 'x')", insert + "(-1, 77, '')", insert + "(10, -2147483648, 'virus')"});
  expectRefused({insert + "(1, 1, 'Virus')", insert + "(NULL, 1, 'Virus')", insert + "(9, NULL, 'Virus')",
                 insert + "(9, 1, NULL)", insert + "(9, 2147483648, 'Virus')"});
}

TEST_P(Schema, versionsAreNumbersFromOne) {
  EXPECT_EQ(value("SELECT max(version) FROM schema_version"), std::to_string(zaroruntime::kSchemaVersion));
  expectRefused({"INSERT INTO schema_version SELECT * FROM schema_version",
                 "INSERT INTO schema_version (version) VALUES (0)", "INSERT INTO schema_version (version) VALUES (NULL)"});
}

TEST_P(Schema, veryLongContentIsStored) {
  constexpr int kSize = 60 * 1024 * 1024;
  const auto connection = session();
  connection->run("INSERT INTO named_object (type, name, content) VALUES (1, 'long', '" + std::string(kSize, 'x') + "')");
  EXPECT_EQ(value("SELECT length(content) FROM named_object WHERE name = 'long'"), std::to_string(kSize));
}

ZARO_ON_EVERY_DATABASE(Schema);

}  // namespace

// The sample organisation is whole and agrees with itself.
#include <map>

#include "programs/ProgramTest.h"

namespace {

class Sample : public zarotest::SampleInstallation {};

// Rows that are found by a mistyped name would be missing without a word.
TEST_P(Sample, everyRowIsThere) {
  const std::map<std::string, std::string> kRows = {
      {"administrator", "6"},
      {"entity", "10"},
      {"administrator_entity", "11"},
      {"named_object", "11"},
      {"named_object_owner", "14"},
      {"policy_rule", "2"},
      {"policy_rule_object", "3"},
      {"address_group_member", "11"},
      {"component", "5"},
      {"global_setting", "16"},
      {"manual_rule_order", "6"},
  };
  for (const auto& [table, rows] : kRows) {
    EXPECT_EQ(value("SELECT count(*) FROM " + table), rows) << table;
  }
  EXPECT_EQ(value("SELECT count(*) FROM policy_rule WHERE quarantine_id IS NOT NULL"), "1");
}

TEST_P(Sample, administratorsAreFound) {
  const char* const kNames[] = {"admin", "postmaster", "sales-admin", "engineering-admin", "customer-admin", "auditor"};
  int id = 0;
  for (const char* name : kNames) {
    EXPECT_EQ(run({"admin", "id", name}).out, std::to_string(++id) + "\n");
  }
  EXPECT_EQ(value("SELECT count(*) FROM administrator WHERE is_root = 1"), "1");
}

TEST_P(Sample, everyObjectHasAnOwner) {
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE id NOT IN (SELECT object_id FROM named_object_owner)"), "0");
}

TEST_P(Sample, ranksOfTheRuleOrderHaveNoGap) {
  EXPECT_EQ(value("SELECT count(*) FROM manual_rule_order WHERE rule_order BETWEEN 1 AND 6"), "6");
}

ZARO_ON_EVERY_DATABASE(Sample);

}  // namespace

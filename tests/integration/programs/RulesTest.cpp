// zaroctl rules: the order of rule filters is shown, verified and set.
#include <nlohmann/json.hpp>
#include <thread>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;

class Rules : public zarotest::SampleInstallation {
 protected:
  std::vector<std::string> lines(const std::vector<std::string>& arguments, int status = 0) const {
    const ProgramResult result = run(arguments);
    EXPECT_EQ(result.status, status) << result.err;
    return linesOf(result.out);
  }
};

TEST_P(Rules, orderShowsGroupsAndTheirFilters) {
  EXPECT_THAT(lines({"rules", "order"}),
              ElementsAre("1\t1\tVirus\t1", "2\t4\tSpam\t8", "3\t2\tAttachment\t2, 3, 4, 5", "4\t3\tSize\t6, 7",
                          "5\t5\tContent\t9, 10, 11, 12, 13", "6\t6\tOther\t14, 15, 16, 30"));
}

TEST_P(Rules, soundOrderHasNoMismatch) {
  for (const std::string& line : lines({"rules", "order", "--verify"})) {
    EXPECT_EQ(line.substr(line.rfind('\t')), "\t-");
  }
}

TEST_P(Rules, everyMismatchIsShownBesideItsGroup) {
  const auto connection = session();
  connection->run("DELETE FROM manual_rule_order");
  connection->run(
      "INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (1, 3, 'Size'), (2, 3, 'size'), "
      "(5, 0, 'None'), (6, 7, 'Xel'), (7, 1, 'it''s a \"virus\"')");
  EXPECT_THAT(
      lines({"rules", "order", "--verify"}, 65),
      ElementsAre("1\t3\tSize\t6, 7\t-", "2\t3\tsize\t6, 7\tnamed \"size\" instead of \"Size\"",
                  "3\t0\tNone\t-\trank 5 instead of 3, no group has the number 0",
                  "4\t7\tXel\t-\trank 6 instead of 4, no group has the number 7",
                  "5\t1\tit's a \"virus\"\t1\trank 7 instead of 5, named \"it's a \"virus\"\" instead of \"Virus\""));
  EXPECT_EQ(lines({"rules", "order"}).size(), 5u) << "without verification that is no failure";

  // The library's log has a line for each of them.
  zarotest::ProgramRun logged;
  logged.environment["ZARO_HOME"] = home();
  logged.environment["ZARO_LOG_LEVEL"] = "1";
  const ProgramResult result = zarotest::zaroctl({"rules", "order", "--verify", "--json"}, logged);
  std::size_t mismatches = 0;
  const auto document = nlohmann::json::parse(result.out);
  for (const auto& group : document.at("groups")) {
    mismatches += group.at("mismatches").size();
  }
  std::size_t lines = 0;
  for (const std::string& line : linesOf(result.err)) {
    lines += line.find("miscUtils::_verifyFilterNames: ") != std::string::npos ? 1u : 0u;
  }
  EXPECT_EQ(mismatches, lines);
  EXPECT_EQ(mismatches, 7u);
}

TEST_P(Rules, jsonHasOrderAndSwitch) {
  const auto document = nlohmann::json::parse(run({"rules", "order", "--json"}).out);
  EXPECT_EQ(document.at("manual"), true);
  ASSERT_EQ(document.at("groups").size(), 6u);
  EXPECT_EQ(document.at("groups")[1],
            (nlohmann::json{{"position", 2}, {"group", 4}, {"name", "Spam"}, {"filters", {8}}}));
}

TEST_P(Rules, orderThatIsOffIsNotFound) {
  session()->run("UPDATE global_setting SET value='off' WHERE name='manualRuleOrder'");
  const ProgramResult result = run({"rules", "order"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zaroctl: manual ordering is off: filters rank in their own order\n");
  const ProgramResult json = run({"rules", "order", "--json"});
  EXPECT_EQ(json.status, 1);
  EXPECT_EQ(nlohmann::json::parse(json.out), (nlohmann::json{{"manual", false}, {"groups", nlohmann::json::array()}}));
}

TEST_P(Rules, orderThatIsNotStoredIsAFailure) {
  session()->run("DELETE FROM global_setting");
  const ProgramResult result = run({"rules", "order"});
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(result.err, StartsWith("zaroctl: cannot read the rule order (code 1002): "));
  session()->run("DROP TABLE global_setting");
  const ProgramResult broken = run({"rules", "order"});
  EXPECT_EQ(broken.status, 69);
  EXPECT_THAT(broken.err, StartsWith("zaroctl: cannot read the rule order: "));
  EXPECT_THAT(broken.err, HasSubstr("global_setting"));
}

TEST_P(Rules, setOrderIsTheOrder) {
  EXPECT_THAT(lines({"rules", "set-order", "content", "4", "VIRUS"}),
              ElementsAre("1\t5\tContent\t9, 10, 11, 12, 13\t-", "2\t4\tSpam\t8\t-", "3\t1\tVirus\t1\t-"));
  EXPECT_THAT(lines({"rules", "order"}),
              ElementsAre("1\t5\tContent\t9, 10, 11, 12, 13", "2\t4\tSpam\t8", "3\t1\tVirus\t1"));
  EXPECT_EQ(lines({"rules", "set-order", "1", "2", "3", "4", "5", "6"}).size(), 6u);
}

TEST_P(Rules, setOrderSwitchesOnWhatWasOffOrNotStored) {
  session()->run("DELETE FROM global_setting");
  EXPECT_EQ(run({"rules", "set-order", "spam"}).status, 0);
  EXPECT_THAT(lines({"rules", "order"}), ElementsAre("1\t4\tSpam\t8"));
}

TEST_P(Rules, switchedOffOrderIsKept) {
  const ProgramResult off = run({"rules", "set-order", "--off"});
  EXPECT_EQ(off.status, 0) << off.err;
  EXPECT_EQ(off.out, "manual\tno\n");
  EXPECT_EQ(run({"rules", "order"}).status, 1);
  EXPECT_EQ(value("SELECT count(*) FROM manual_rule_order"), "6");
}

// Others may switch the order off as soon as it is stored.
TEST_P(Rules, ofSeveralWhoSetTheOrderAndSwitchItOffEachIsToldOfTheirOwn) {
  constexpr int kRounds = 25;
  std::vector<std::thread> threads;
  for (int worker = 0; worker < 2; ++worker) {
    threads.emplace_back([this] {
      for (int round = 0; round < kRounds; ++round) {
        EXPECT_THAT(lines({"rules", "set-order", "spam", "virus"}), ElementsAre("1\t4\tSpam\t8\t-", "2\t1\tVirus\t1\t-"));
      }
    });
    threads.emplace_back([this] {
      for (int round = 0; round < kRounds; ++round) {
        EXPECT_THAT(lines({"rules", "set-order", "--off"}), ElementsAre("manual\tno"));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_P(Rules, orderIsStoredWholeOrNotAtAll) {
  const auto connection = session();
  connection->run("DROP TABLE manual_rule_order");
  connection->run(
      "CREATE TABLE manual_rule_order (rule_order INTEGER, filter_id INTEGER, filter_type TEXT, CHECK (filter_id <> 4))");
  connection->run("INSERT INTO manual_rule_order VALUES (1, 1, 'Virus')");
  const ProgramResult result = run({"rules", "set-order", "size", "spam"});
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(lines({"rules", "order"}), ElementsAre("1\t1\tVirus\t1"));
}

ZARO_ON_EVERY_DATABASE(Rules);

struct WrongOrder {
  const char* label;
  std::vector<std::string> arguments;
  const char* told;
};

const WrongOrder kWrongOrders[] = {
    {"nothing", {}, "name the groups of filters in their order, or --off"},
    {"offWithGroups", {"--off", "spam"}, "--off takes no groups"},
    {"unknown",
     {"spam", "xel"},
     "no group of filters named \"xel\"; there are Virus, Attachment, Size, Spam, Content, Other"},
    {"numberZero", {"0"}, "no group of filters named \"0\""},
    {"numberSeven", {"7"}, "no group of filters named \"7\""},
    {"empty", {""}, "no group of filters named \"\""},
    {"twice", {"spam", "4"}, "Spam stands there twice"},
};

class WrongOrderOf : public testing::TestWithParam<WrongOrder> {};

TEST_P(WrongOrderOf, theProgramIsRefused) {
  std::vector<std::string> arguments = {"--home", "/nowhere/at/all", "rules", "set-order"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const ProgramResult result = zarotest::zaroctl(arguments);
  EXPECT_EQ(result.status, 64);
  EXPECT_THAT(result.err, StartsWith(std::string("zaroctl: ") + GetParam().told));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(, WrongOrderOf, testing::ValuesIn(kWrongOrders),
                         [](const auto& tested) { return std::string(tested.param.label); });

}  // namespace

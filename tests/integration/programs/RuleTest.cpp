// Rules that decide mail: making, changing and asking them, within the boundary of an administrator. In the sample
// sales-admin has the wildcard groups *@sales.example.test and *@*.sales.example.test, sees the address groups "Sales
// team" and "Partners", and the area "Sales quarantine".
#include <nlohmann/json.hpp>

#include "programs/RightsGoing.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Json = nlohmann::json;
using Words = std::vector<std::string>;

class Rule : public RightsGoing {
 protected:
  static Words commandAs(const std::string& admin, const Words& words) {
    Words command = {"rule"};
    command.insert(command.end(), words.begin(), words.end());
    command.insert(command.end(), {"--as", admin});
    return command;
  }
  ProgramResult runAs(const std::string& admin, const Words& words) const { return run(commandAs(admin, words)); }
  ProgramResult mustRunAs(const std::string& admin, const Words& words) const {
    ProgramResult result = runAs(admin, words);
    EXPECT_EQ(result.status, 0) << testing::PrintToString(words) << result.err;
    return result;
  }
  Json recordAs(const std::string& admin, Words words) const {
    words.emplace_back("--json");
    return Json::parse(mustRunAs(admin, words).out);
  }
  std::string id(const std::string& object) const {
    return value("SELECT id FROM named_object WHERE name = '" + object + "'");
  }
  std::string version() const { return value("SELECT version FROM policy_version"); }
  // Rules by position.
  std::string order() const {
    std::string text;
    for (const auto& row : session()->rows("SELECT position, name FROM policy_rule ORDER BY position")) {
      text += row[0].value_or("") + " " + row[1].value_or("") + "; ";
    }
    return text;
  }
  void addBlock(const std::string& name, const Words& more = {}) const {
    Words words = {"add", "--for", "*@*.sales.example.test", "--list", "Partners:block", "--action", "Delete"};
    words.insert(words.end(), more.begin(), more.end());
    words.push_back(name);
    mustRunAs("sales-admin", words);
  }
  std::string everyRule() const {
    return order() + value("SELECT count(*) FROM policy_rule_list") + value("SELECT sum(enabled) FROM policy_rule");
  }
};

TEST_P(Rule, isMadeWithEveryField) {
  const std::string before = version();
  const Json rule = recordAs("sales-admin", {"add",
                                             "--for",
                                             "*@*.sales.example.test",
                                             "--recipients",
                                             "Sales team",
                                             "--list",
                                             "Partners:block",
                                             "--list",
                                             "Sales team:8",
                                             "--compare",
                                             "both",
                                             "--action",
                                             "Delete,Quarantine",
                                             "--action",
                                             "SubjectTagging,InsertXHeaderTag,Bcc",
                                             "--quarantine",
                                             id("Sales quarantine"),
                                             "--reply",
                                             "it's full",
                                             "--tag",
                                             "[x]",
                                             "--header-value",
                                             "v",
                                             "--address",
                                             "a@b.test",
                                             "--disabled",
                                             "--position",
                                             "1",
                                             "All"});
  EXPECT_EQ(rule["name"], "All");
  EXPECT_EQ(rule["position"], 1);
  EXPECT_EQ(rule["enabled"], false);
  EXPECT_EQ(rule["for"], "*@*.sales.example.test");
  EXPECT_EQ(rule["recipients"], "Sales team");
  EXPECT_EQ(rule["lists"], Json({"Partners:block", "Sales team:weak-allow"}));
  EXPECT_EQ(rule["compare"], "both");
  EXPECT_EQ(rule["bitmap"], "11000000100011000");
  EXPECT_EQ(rule["area"], "Sales quarantine");
  EXPECT_EQ(rule["reply"], "it's full");
  EXPECT_EQ(rule["tag"], "[x]");
  EXPECT_EQ(rule["header_value"], "v");
  EXPECT_EQ(rule["address"], "a@b.test");
  EXPECT_EQ(order(), "1 All; 2 Hold confidential mail to partners; 3 Deliver builds at once; ");
  EXPECT_EQ(std::stoi(version()), std::stoi(before) + 1);
  Json shown = recordAs("sales-admin", {"show", "All"});
  EXPECT_EQ(shown, rule);
  EXPECT_EQ(recordAs("sales-admin", {"show", "--id", std::to_string(rule["id"].get<int>())}), rule);
  // What it uses stays.
  EXPECT_NE(run({"group", "remove", "Sales team"}).status, 0);
}

TEST_P(Rule, changesWhatOptionsNameAndNothingElse) {
  addBlock("One", {"--reply", "no"});
  const std::string rest = order();
  Json rule = recordAs("sales-admin", {"modify", "One", "--name", "Two", "--list", "Sales team:allow", "--disabled"});
  EXPECT_EQ(rule["name"], "Two");
  EXPECT_EQ(rule["lists"], Json({"Sales team:allow"}));
  EXPECT_EQ(rule["enabled"], false);
  EXPECT_EQ(rule["reply"], "no");
  EXPECT_EQ(rule["bitmap"], "10000000000000000");
  EXPECT_EQ(value("SELECT count(*) FROM policy_rule_object WHERE rule_id > 2"), "1");
  rule = recordAs("sales-admin", {"modify", "Two", "--list", "", "--action", "", "--reply", "", "--enabled"});
  EXPECT_EQ(rule["lists"], Json::array());
  EXPECT_EQ(rule["bitmap"], "00000000000000000");
  EXPECT_EQ(rule["reply"], "");
  EXPECT_EQ(rule["enabled"], true);
  mustRunAs("sales-admin", {"remove", "Two"});
  EXPECT_EQ(order(), "1 Hold confidential mail to partners; 2 Deliver builds at once; ");
  EXPECT_EQ(value("SELECT count(*) FROM policy_rule_object"), "3");
}

TEST_P(Rule, changesThatChangeNothingAreNotWritten) {
  addBlock("One", {"--reply", "no", "--list", "Sales team:allow"});
  const std::string position = value("SELECT position FROM policy_rule WHERE name = 'One'");
  const std::string before = version();
  const std::string trail = value("SELECT count(*) FROM audit");
  const Json rule = recordAs("sales-admin", {"show", "One"});
  for (const Words& words : {Words{"modify", "One", "--reply", "no"},
                             {"modify", "One", "--tag", "", "--enabled", "--position", position},
                             {"modify", "One", "--list", "Partners:block", "--list", "Sales team:allow"},
                             {"move", "One", "--position", position}}) {
    EXPECT_EQ(recordAs("sales-admin", words), rule);
    EXPECT_EQ(version(), before) << testing::PrintToString(words);
    EXPECT_EQ(value("SELECT count(*) FROM audit"), trail) << testing::PrintToString(words);
  }
  const ProgramResult nothing = runAs("sales-admin", {"modify", "One"});
  EXPECT_EQ(nothing.status, 64);
  EXPECT_THAT(nothing.err, HasSubstr("what is to change"));
}

TEST_P(Rule, listsThatStayAreNotWritten) {
  addBlock("One", {"--list", "Sales team:allow"});
  const auto modify = [&](const Words& lists) {
    session()->run("DELETE FROM audit");
    Words words = {"modify", "One"};
    for (const std::string& list : lists) {
      words.insert(words.end(), {"--list", list});
    }
    EXPECT_EQ(recordAs("sales-admin", words)["lists"], Json(lists));
    std::string entries;
    for (const auto& row : session()->rows("SELECT change, subject FROM audit ORDER BY change, subject")) {
      entries += row[0].value_or("") + " " + row[1].value_or("") + "; ";
    }
    return entries;
  };
  EXPECT_EQ(modify({"Partners:weak-block", "Sales team:allow"}), "changed policy_rule_list; ");
  EXPECT_EQ(modify({"Partners:weak-block", "Sales team:allow", "Partners:allow"}), "added policy_rule_list; ");
  EXPECT_EQ(modify({"Partners:weak-block", "Partners:allow"}),
            "changed policy_rule_list; removed policy_rule_list; removed policy_rule_object; ");
  EXPECT_EQ(modify({"Sales team:block", "Partners:allow"}), "added policy_rule_object; changed policy_rule_list; ");
  // Places that another program left free.
  session()->run("UPDATE policy_rule_list SET position = position * 10 WHERE group_id = " + id("Partners"));
  EXPECT_EQ(modify({"Sales team:block", "Partners:allow", "Partners:block"}), "added policy_rule_list; ");
  EXPECT_EQ(modify({"Sales team:block"}),
            "removed policy_rule_list; removed policy_rule_list; removed policy_rule_object; ");
}

TEST_P(Rule, movesBeforeTheRuleThatHasThePlace) {
  addBlock("One");
  addBlock("Two");
  mustRunAs("sales-admin", {"move", "Two", "--position", "1"});
  EXPECT_EQ(order(), "1 Two; 2 Hold confidential mail to partners; 3 Deliver builds at once; 4 One; ");
  mustRunAs("sales-admin", {"move", "Two", "--position", "4"});
  EXPECT_EQ(order(), "2 Hold confidential mail to partners; 3 Deliver builds at once; 4 Two; 5 One; ");
  mustRunAs("sales-admin", {"move", "Two", "--position", "9"});
  EXPECT_EQ(order(), "2 Hold confidential mail to partners; 3 Deliver builds at once; 5 One; 9 Two; ");
}

struct Refusal {
  const char* label;
  Words words;
  std::string told;
};

TEST_P(Rule, refusesWhatIsBeyondTheBoundaryOrMakesNoSense) {
  addBlock("Mine");
  const Words scope = {"--for", "*@sales.example.test"};
  const auto add = [&](Words words, bool isScoped = true) {
    words.insert(words.begin(), "add");
    if (isScoped) {
      words.insert(words.end(), scope.begin(), scope.end());
    }
    words.emplace_back("New");
    return words;
  };
  const Refusal kRefusals[] = {
      {"no scope", add({}, false), "--for ENTITY or --for-all"},
      {"for all", add({"--for-all"}, false), "only the administration root may"},
      {"somebody else's scope", add({"--for", "*@example.org"}, false), "may not make rules for \"*@example.org\""},
      {"a wider scope", add({"--for", "*@*.example.test"}, false), "may not make rules for \"*@*.example.test\""},
      {"no scope at all", add({"--for", "*@nowhere.test"}, false), "no wildcard managing group named"},
      {"no wildcard group", add({"--for", "Headquarters"}, false), "no wildcard managing group named"},
      {"group that is not seen", add({"--list", "Board:block"}), "sees no address group named \"Board\""},
      {"recipients that are not seen", add({"--recipients", "Board"}), "sees no address group named \"Board\""},
      {"area that is not seen", add({"--quarantine", id("Customer quarantine")}), "sees no quarantine area"},
      {"no kind", add({"--list", "Partners"}), "is not GROUP:KIND"},
      {"unknown kind", add({"--list", "Partners:3"}), "is not GROUP:KIND"},
      {"what no filter can do", add({"--action", "Stamped"}), "a mail filter cannot do Stamped"},
      {"unknown action", add({"--action", "Explode"}), "\"Explode\" is no action"},
      {"Quarantine without an area", add({"--action", "Quarantine"}), "Quarantine needs a quarantine area"},
      {"Bcc without an address", add({"--action", "Bcc"}), "Bcc needs an address"},
      {"no address", add({"--address", "*@b.test"}), "is no address"},
      {"two addresses", add({"--address", "a@b.test,c@b.test"}), "is no address"},
      {"address beyond ASCII", add({"--address", "a@b\u00FCcher.test"}), "is not plain ASCII"},
      {"line break in a reply", add({"--reply", "a\nb"}), "holds control characters"},
      {"position nought", add({"--position", "0"}), "is no number from 1"},
      {"no comparison", add({"--compare", "neither"}), "is neither envelope, nor header, nor both"},
      {"name that is taken", {"modify", "Mine", "--name", "Mine too", "--action", "Bcc"}, "Bcc needs an address"},
      {"no rule", {"show", "Nothing"}, "sees no rule \"Nothing\""},
      {"somebody else's rule", {"remove", "Deliver builds at once"}, "sees no rule"},
  };
  const std::string before = version();
  for (const Refusal& refusal : kRefusals) {
    const ProgramResult result = runAs("sales-admin", refusal.words);
    EXPECT_NE(result.status, 0) << refusal.label;
    EXPECT_THAT(result.err, HasSubstr(refusal.told)) << refusal.label;
    EXPECT_THAT(result.out, IsEmpty()) << refusal.label;
  }
  EXPECT_EQ(version(), before);
}

TEST_P(Rule, isChangedByRightsThatLastToTheEndOfTheChange) {
  addBlock("Mine", {"--disabled"});
  const std::string scope = "*@*.sales.example.test";
  const std::string allGo = removalOfGroups("sales-admin");
  const std::string scopeGoes = allGo + " AND entity_id = (SELECT id FROM entity WHERE name = '" + scope + "')";
  const Words add = {"add", "--for", scope, "--list", "Partners:block", "New"};
  const struct {
    const char* label;
    std::string removal;
    const char* admin;
    Words words;
    int status;
    const char* told;
  } kRows[] = {
      {"scope to add for", scopeGoes, "sales-admin", add, 77, "may not make rules for \"*@*.sales.example.test\""},
      {"scope to modify in", scopeGoes, "sales-admin", {"modify", "Mine", "--enabled"}, 1, "sees no rule \"Mine\""},
      {"scope to move in", scopeGoes, "sales-admin", {"move", "Mine", "--position", "1"}, 1, "sees no rule \"Mine\""},
      {"scope to remove in", scopeGoes, "sales-admin", {"remove", "Mine"}, 1, "sees no rule \"Mine\""},
      {"every managing group", allGo, "sales-admin", add, 1, "is assigned to no managing group"},
      {"the administrator", "DELETE FROM administrator WHERE name = 'sales-admin'", "sales-admin", add, 1,
       "no administrator named \"sales-admin\""},
      {"the root's rights",
       "UPDATE administrator SET is_root = 0 WHERE name = 'admin'",
       "admin",
       {"add", "--for-all", "--list", "Partners:block", "New"},
       77,
       "only the administration root may"},
  };
  const std::string before = everyRule();
  saveDatabase();
  for (const auto& row : kRows) {
    const ProgramResult result = runWhileRightsGo(row.removal, "policy_rule", commandAs(row.admin, row.words));
    EXPECT_EQ(result.status, row.status) << row.label << ": " << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.told)) << row.label;
    EXPECT_EQ(everyRule(), before) << row.label;
    restoreDatabase();
  }
}

TEST_P(Rule, isSeenByWhomeverItsScopeBelongsTo) {
  addBlock("Sales");
  mustRunAs("admin", {"add", "--for-all", "--list", "Board:allow", "All"});
  mustRunAs("admin", {"add", "--for", "*@sales.example.test", "--list", "Board:block", "From above"});
  const auto names = [&](const std::string& admin) {
    std::vector<std::string> found;
    for (const Json& rule : recordAs(admin, {"list"})) {
      found.push_back(rule["name"].get<std::string>() + (rule["modifiable"].get<bool>() ? "" : " (reading)"));
    }
    return found;
  };
  EXPECT_THAT(names("sales-admin"), ElementsAre("Sales", "From above (reading)"));
  EXPECT_THAT(names("engineering-admin"), IsEmpty());
  EXPECT_EQ(names("admin").size(), 5u);
  EXPECT_EQ(recordAs("sales-admin", {"show", "From above"})["lists"], Json({"(not seen):block"}));
  for (const Words& words :
       {Words{"modify", "From above", "--disabled"}, {"remove", "From above"}, {"move", "From above", "--position", "1"}}) {
    EXPECT_THAT(runAs("sales-admin", words).err, HasSubstr("may not change the rule \"From above\""));
  }
}

TEST_P(Rule, takesGroupsByTheirIdentifiersAsWell) {
  ASSERT_EQ(run({"group", "add", "--as", "engineering-admin", "Partners", "x@b.test"}).status, 0);
  const std::string theirs = value("SELECT max(id) FROM named_object WHERE name = 'Partners'");
  const std::string ours = value("SELECT min(id) FROM named_object WHERE name = 'Partners'");
  const std::string ambiguous =
      "2 address groups are named \"Partners\": " + ours + ", " + theirs + "; name one by group-id:ID";
  EXPECT_THAT(runAs("admin", {"add", "--for-all", "--list", "Partners:block", "All"}).err, HasSubstr(ambiguous));
  EXPECT_THAT(runAs("admin", {"add", "--for-all", "--recipients", "Partners", "All"}).err, HasSubstr(ambiguous));
  const Json rule = recordAs("admin", {"add", "--for-all", "--list", "group-id:" + theirs + ":block", "--list",
                                       "group-id:" + ours + ":weak-allow", "--recipients", "group-id:" + theirs, "All"});
  EXPECT_EQ(rule["lists"], Json({"Partners:block", "Partners:weak-allow"}));
  EXPECT_EQ(rule["recipients"], "Partners");
  EXPECT_EQ(value("SELECT group_id FROM policy_rule_list WHERE kind = 2"), theirs);
  EXPECT_EQ(value("SELECT group_id FROM policy_rule_list WHERE kind = 8"), ours);
  EXPECT_EQ(value("SELECT recipients_id FROM policy_rule WHERE name = 'All'"), theirs);

  // What an administrator does not see stays unseen, and makes no name ambiguous.
  addBlock("Ours");
  const struct {
    const char* group;
    int status;
    std::string told;
  } kRefusals[] = {
      {theirs.c_str(), 1, "sees no address group " + theirs},
      {"999999", 1, "sees no address group 999999"},
      {"x", 64, "\"x\" is not an identifier"},
      {"", 64, "\"\" is not an identifier"},
  };
  for (const auto& refusal : kRefusals) {
    const std::string group = "group-id:" + std::string(refusal.group);
    for (const Words& words :
         {Words{"modify", "Ours", "--list", group + ":block"}, {"modify", "Ours", "--recipients", group}}) {
      const ProgramResult result = runAs("sales-admin", words);
      EXPECT_EQ(result.status, refusal.status) << group;
      EXPECT_THAT(result.err, HasSubstr(refusal.told)) << group;
    }
  }
  EXPECT_THAT(runAs("sales-admin", {"modify", "Ours", "--list", "group-id:" + ours}).err, HasSubstr("is not GROUP:KIND"));
}

TEST_P(Rule, ofAnAmbiguousNameIsToldWithItsIdentifiers) {
  addBlock("Same");
  mustRunAs("admin", {"add", "--for-all", "--list", "Partners:block", "All"});
  session()->run("UPDATE policy_rule SET name = 'Same' WHERE name = 'All'");
  std::string ids;
  for (const auto& row : session()->rows("SELECT id FROM policy_rule WHERE name = 'Same' ORDER BY position")) {
    ids += (ids.empty() ? "" : ", ") + row[0].value_or("");
  }
  for (const Words& words : {Words{"show", "Same"}, {"remove", "Same"}}) {
    const ProgramResult result = runAs("admin", words);
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.err, HasSubstr("2 rules are named \"Same\": " + ids + "; use --id"));
  }
}

TEST_P(Rule, tellsWhyMailIsDecided) {
  addBlock("Sales", {"--reply", "not you"});
  mustRunAs("admin", {"add", "--for-all", "--list", "Partners:weak-allow", "--list", "Board:block", "All"});
  const auto why = [&](const Words& more) {
    Words words = {"rule", "why", "--json"};
    words.insert(words.end(), more.begin(), more.end());
    return Json::parse(run(words).out);
  };
  Json told = why({"X@example.com", "<ann@north.sales.example.test>"});
  EXPECT_EQ(told["sender"], "x@example.com");
  EXPECT_EQ(told["recipient"], "ann@north.sales.example.test");
  EXPECT_EQ(std::to_string(told["version"].get<int>()), version());
  ASSERT_EQ(told["rules"].size(), 2u);
  EXPECT_EQ(told["rules"][0]["rule"], "Sales");
  ASSERT_EQ(told["patterns"].size(), 2u);
  EXPECT_EQ(told["patterns"][0]["pattern"], "*@example.com");
  EXPECT_EQ(told["patterns"][0]["kind"], "block");
  EXPECT_EQ(told["patterns"][0]["list"], "Partners");
  EXPECT_EQ(told["patterns"][0]["weight"], 4003);
  EXPECT_EQ(told["patterns"][1]["rule"], "All");
  EXPECT_EQ(told["decision"]["code"], 2);
  EXPECT_EQ(told["decision"]["rule"], "Sales");
  EXPECT_EQ(told["decision"]["done"], "550 5.7.1 not you");

  // Elsewhere only the rule for all is asked.
  told = why({"x@example.com", "ann@engineering.example.test"});
  EXPECT_EQ(told["decision"]["code"], 1);
  EXPECT_EQ(told["decision"]["rule"], "All");
  const ProgramResult nothing = run({"rule", "why", "x@nowhere.test", "ann@engineering.example.test"});
  EXPECT_EQ(nothing.status, 1);
  EXPECT_THAT(nothing.out, HasSubstr("passes: no rule decides"));

  // What an administrator does not see is counted, and nothing more.
  told = why({"--as", "sales-admin", "chair@example.test", "ann@north.sales.example.test"});
  EXPECT_EQ(told["rules"].size(), 1u);
  EXPECT_EQ(told["hidden_rules"], 1);
  EXPECT_EQ(told["patterns"], Json::array());
  EXPECT_EQ(told["decision"], Json({{"done", "decided by a rule that is not seen"}}));
}

// Of actions that exclude each other one is done, and a recipient who is refused or postponed has no message.
TEST_P(Rule, tellsWhatHappensToAMessageForTheRecipient) {
  addBlock("Sales");
  const struct {
    const char* actions;
    const char* reply;
    const char* done;
  } kCases[] = {{"Delete,Quarantine", "", "the recipient is dropped"},
                {"Quarantine,Postpone", "", "held: area Sales quarantine"},
                {"Archive,Delete", "not you", "550 5.7.1 not you"},
                {"Archive,Delete", "", "one more recipient: a@b.test, the recipient is dropped"},
                {"Postpone,Bcc", "", "451 4.7.1"},
                {"Archive,Bcc", "", "one more recipient: a@b.test"},
                {"Postpone,SubjectTagging", "", "451 4.7.1"},
                {"Readdress,Postpone", "", "goes to a@b.test instead"},
                {"Readdress,Quarantine,SubjectTagging", "",
                 "held: area Sales quarantine, goes to a@b.test instead, subject tagged \"[x]\""},
                {"", "", "passes: the rule has no action"}};
  for (const auto& row : kCases) {
    mustRunAs("sales-admin", {"modify", "Sales", "--action", row.actions, "--reply", row.reply, "--quarantine",
                              id("Sales quarantine"), "--address", "a@b.test", "--tag", "[x]"});
    const ProgramResult told = run({"rule", "why", "--json", "x@example.com", "ann@north.sales.example.test"});
    EXPECT_EQ(Json::parse(told.out)["decision"]["done"], row.done) << row.actions;
  }
}

TEST_P(Rule, warnsOfAGroupWithKindsThatLeaveItWithoutEffect) {
  const Words add = {"add", "--for", "*@*.sales.example.test", "--list", "Partners:allow", "New"};
  EXPECT_THAT(mustRunAs("sales-admin", add).err, IsEmpty());
  const auto warning = [this](const Words& lists) {
    Words words = {"modify", "New"};
    for (const std::string& list : lists) {
      words.insert(words.end(), {"--list", list});
    }
    return mustRunAs("sales-admin", words).err;
  };
  EXPECT_THAT(warning({"Partners:allow", "Sales team:block", "Partners:allow"}), IsEmpty());
  EXPECT_THAT(warning({"Partners:allow", "Partners:block"}),
              HasSubstr("the group \"Partners\" is allow and block in one rule, and counts as allow"));
  EXPECT_THAT(warning({"Sales team:allow", "Partners:block", "Partners:except-block"}),
              HasSubstr("the group \"Partners\" is block and except-block in one rule, and has no say in it"));
}

TEST_P(Rule, tellsWhatTheFilterDoesByItsSettings) {
  addBlock("Sales", {});
  const Words asked = {"rule", "why", "--json", "prvs=1234abcdef=x+news@example.com", "ann@north.sales.example.test"};
  const auto told = [&] { return Json::parse(run(asked).out); };
  ASSERT_EQ(run({"settings", "set", "mail_filter.strip_batv=no"}).status, 0);
  EXPECT_EQ(told()["sender"], "prvs=1234abcdef=x+news@example.com");
  ASSERT_EQ(
      run({"settings", "set", "mail_filter.strip_batv=yes", "mail_filter.delimiter=+", "mail_filter.shadow=yes"}).status,
      0);
  EXPECT_EQ(told()["sender"], "x@example.com");
  EXPECT_EQ(told()["decision"]["done"], "passes: shadow mode");
}

TEST_P(Rule, asksForTheHeaderWhereARuleComparesIt) {
  addBlock("Header", {"--compare", "header"});
  const auto decision = [&](const Words& more) {
    Words words = {"rule", "why", "--json"};
    words.insert(words.end(), more.begin(), more.end());
    words.insert(words.end(), {"<>", "ann@north.sales.example.test"});
    return Json::parse(run(words).out)["decision"];
  };
  EXPECT_EQ(decision({})["done"], "awaits the header's From");
  EXPECT_EQ(decision({"--header-from", "x@example.com"})["by"], "header");
}

TEST_P(Rule, patternsWithoutADomainCanBeMembers) {
  EXPECT_EQ(run({"group", "modify", "Sales team", "--add", "<>", "--add", "*"}).status, 0);
  EXPECT_THAT(run({"group", "modify", "Sales team", "--add", "user"}).err, HasSubstr("has no @"));
}

ZARO_ON_EVERY_DATABASE(Rule);

}  // namespace

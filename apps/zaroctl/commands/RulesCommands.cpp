// rules order, rules set-order GROUP...
#include <strings.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "ZaroErrC.h"
#include "ZaroFilter.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "miscUtils.h"
#include "store/Transaction.h"

using Group = miscUtils::FilterGroup;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

using Filters = std::vector<ZaroFilter::FilterType>;

// --- Reading ---

struct Order {
  bool manual;
  Filters filters;
};

Order readOrder(StoreConnection& db, bool verify) {
  Order order{};
  const int code = answerOf("cannot read the rule order", [&] {
    return miscUtils::getUserDefinedRuleOrder(db.library(), order.manual, order.filters, verify);
  });
  if (code == ZaroErrC::MissingData) {
    throw RuntimeError(
        "cannot read the rule order (code 1002): [email-scan] manualRuleOrder is missing, or a group has no number",
        FailureKind::Data);
  }
  if (code != ZaroErrC::Success) {
    throw RuntimeError("cannot read the rule order (code " + std::to_string(code) + "): " + databaseFailure(),
                       zaroruntime::lastFailureKind());
  }
  return order;
}

// A row of the stored order.
struct StoredGroup {
  int position;  // from 1
  std::string rank;
  int id;
  std::string name;
};

int groupNumber(const std::string& text) {
  const auto number = decimalNumber(text);
  if (!number || *number < INT_MIN || *number > INT_MAX) {
    throw RuntimeError("the rule order holds " + quoted(text) + " for the number of a group", FailureKind::Data);
  }
  return static_cast<int>(*number);
}

std::vector<StoredGroup> readGroups(StoreConnection& db) {
  std::vector<StoredGroup> groups;
  int position = 0;
  for (const auto& row : db.rows("SELECT rule_order, filter_id, filter_type FROM manual_rule_order ORDER BY rule_order",
                                 {"rule_order", "filter_id", "filter_type"})) {
    groups.push_back({++position, row[0].value_or(""), groupNumber(row[1].value_or("0")), row[2].value_or("")});
  }
  return groups;
}

Json filtersOf(const Group* group) {
  Json filters = Json::array();
  if (group != nullptr) {
    for (const ZaroFilter::FilterType filter : group->filters) {
      filters.push_back(static_cast<int>(filter));
    }
  }
  return filters;
}

// What is not as it should be, as the library's verification sees it.
Json mismatchesOf(const StoredGroup& stored) {
  const Group* group = miscUtils::findFilterGroup(stored.id);
  Json mismatches = Json::array();
  if (stored.rank != std::to_string(stored.position)) {
    mismatches.push_back("rank " + stored.rank + " instead of " + std::to_string(stored.position));
  }
  if (group == nullptr) {
    mismatches.push_back("no group has the number " + std::to_string(stored.id));
  } else if (stored.name != group->name) {
    mismatches.push_back("named " + quoted(stored.name) + " instead of " + quoted(group->name));
  }
  return mismatches;
}

void refuseAnotherOrder(const Filters& filters, const std::vector<StoredGroup>& groups) {
  Filters expanded;
  for (const StoredGroup& stored : groups) {
    if (const Group* group = miscUtils::findFilterGroup(stored.id)) {
      expanded.insert(expanded.end(), group->filters.begin(), group->filters.end());
    }
  }
  if (expanded != filters) {
    throw RuntimeError("the rule order changed while it was read; try again", FailureKind::Contention);
  }
}

// The order with the groups that it comes from.
struct GroupedOrder {
  bool manual;
  std::vector<StoredGroup> groups;
};

GroupedOrder readGroupedOrder(StoreConnection& db, bool verify) {
  const Order order = readOrder(db, verify);
  GroupedOrder grouped = {order.manual, order.manual ? readGroups(db) : std::vector<StoredGroup>()};
  refuseAnotherOrder(order.filters, grouped.groups);
  return grouped;
}

ExitCode printOrder(Output& out, const GroupedOrder& order, bool verify) {
  bool sound = true;
  Json rows = Json::array();
  for (const StoredGroup& stored : order.groups) {
    Json row = {{"position", stored.position},
                {"group", stored.id},
                {"name", stored.name},
                {"filters", filtersOf(miscUtils::findFilterGroup(stored.id))}};
    if (verify) {
      row["mismatches"] = mismatchesOf(stored);
      sound = sound && row["mismatches"].empty();
    }
    rows.push_back(row);
  }
  std::vector<Output::Column> columns = {
      {"position", "POSITION"}, {"group", "GROUP"}, {"name", "NAME"}, {"filters", "FILTERS"}};
  if (verify) {
    columns.push_back({"mismatches", "MISMATCHES"});
  }
  out.rows(columns, rows, {{"manual", order.manual}, {"groups", rows}});
  if (!order.manual) {
    diagnose("manual ordering is off: filters rank in their own order");
    return ExitCode::NotFound;
  }
  return sound ? ExitCode::Found : ExitCode::Data;
}

// --- Writing ---

// By number or name, regardless of case.
const Group& findGroup(const std::string& text) {
  std::string all;
  const Group* group = nullptr;
  for (int id = 1; (group = miscUtils::findFilterGroup(id)) != nullptr; ++id) {
    if (text == std::to_string(id) || strcasecmp(text.c_str(), group->name) == 0) {
      return *group;
    }
    all += (all.empty() ? "" : ", ") + std::string(group->name);
  }
  throw UsageError("no group of filters named " + quoted(text) + "; there are " + all);
}

std::vector<const Group*> parseGroups(const std::vector<std::string>& arguments) {
  std::vector<const Group*> groups;
  for (const std::string& argument : arguments) {
    const Group& group = findGroup(argument);
    if (std::find(groups.begin(), groups.end(), &group) != groups.end()) {
      throw UsageError(std::string(group.name) + " stands there twice");
    }
    groups.push_back(&group);
  }
  return groups;
}

std::string switchStatement(const char* value) {
  return "INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', " +
         zaroruntime::sqlLiteral(value) + ") ON CONFLICT (section, name) DO UPDATE SET value = excluded.value";
}

void storeOrder(StoreConnection& db, const std::vector<const Group*>& groups) {
  db.lockTable("manual_rule_order");
  db.run("DELETE FROM manual_rule_order");
  int rank = 0;
  for (const Group* group : groups) {
    db.run("INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (" + std::to_string(++rank) +
           ", " + std::to_string(group->id) + ", " + zaroruntime::sqlLiteral(group->name) + ")");
  }
  db.run(switchStatement("on"));
}

std::vector<int> idsOf(const std::vector<StoredGroup>& groups) {
  std::vector<int> ids;
  for (const StoredGroup& group : groups) {
    ids.push_back(group.id);
  }
  return ids;
}

ExitCode setOrder(Output& out, const std::vector<std::string>& arguments) {
  const std::vector<const Group*> groups = parseGroups(arguments);
  std::vector<int> wanted;
  for (const Group* group : groups) {
    wanted.push_back(group->id);
  }
  // What another program stores right afterwards is not told as this one's.
  const GroupedOrder stored = inTransaction([&](StoreConnection& db) {
    storeOrder(db, groups);
    GroupedOrder order = readGroupedOrder(db, true);
    if (!order.manual || idsOf(order.groups) != wanted) {
      throw RuntimeError("the rule order was written, but does not come back so; nothing is changed", FailureKind::Data);
    }
    return order;
  });
  return printOrder(out, stored, true);
}

ExitCode switchOff(Output& out) {
  inTransaction([&](StoreConnection& db) {
    db.lockTable("manual_rule_order");
    db.run(switchStatement("off"));
    if (readOrder(db, false).manual) {
      throw RuntimeError("manual ordering was switched off, but is still on; nothing is changed", FailureKind::Data);
    }
  });
  out.record({{"manual", false}});
  return ExitCode::Found;
}

struct SetOrderArguments {
  std::vector<std::string> groups;
  bool off = false;
};

ExitCode setOrderOrSwitchOff(Output& out, const SetOrderArguments& arguments) {
  if (arguments.off == !arguments.groups.empty()) {
    throw UsageError(arguments.off ? "--off takes no groups" : "name the groups of filters in their order, or --off");
  }
  return arguments.off ? switchOff(out) : setOrder(out, arguments.groups);
}

}  // namespace

void addRulesOrder(CommandTree& tree) {
  const auto verify = std::make_shared<bool>(false);
  CLI::App* command = tree.add("rules order", "Show the administrators' own order of rule filters",
                               {"zaroctl rules order", "zaroctl rules order --verify --json"}, [verify](Output& out) {
                                 StoreConnection db;
                                 return printOrder(out, readGroupedOrder(db, *verify), *verify);
                               });
  command->add_flag("--verify", *verify, "Compare the stored ranks and names with the expected ones");
}

void addRulesSetOrder(CommandTree& tree) {
  const auto arguments = std::make_shared<SetOrderArguments>();
  CLI::App* command =
      tree.add("rules set-order", "Give rule filters an order of your own, or their own back",
               {"zaroctl rules set-order virus spam attachment size content other", "zaroctl rules set-order --off"},
               [arguments](Output& out) { return setOrderOrSwitchOff(out, *arguments); });
  command->add_option("GROUP", arguments->groups, "Groups of filters by name or number, the first in rank first")
      ->type_name("");
  command->add_flag("--off", arguments->off, "Switch manual ordering off; the stored order is kept");
}

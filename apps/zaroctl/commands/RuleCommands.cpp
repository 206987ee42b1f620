// rule list, rule show, rule add, rule modify, rule remove, rule move
#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "mail/MailAddress.h"
#include "patterns/PatternPieces.h"
#include "policy/PolicyVocabulary.h"
#include "store/Administration.h"
#include "store/PolicyRules.h"

namespace {

using Texts = std::vector<std::string>;

constexpr const char* kNotSeen = "(not seen)";

// --- Output ---

Json listsOf(const VisibleRule& rule) {
  Json lists = Json::array();
  for (const VisibleRule::List& list : rule.lists) {
    lists.push_back(list.group.value_or(kNotSeen) + ":" + nameOfKind(list.kind));
  }
  return lists;
}

// As the library shows a bitmap. A rule that another program stored may have one that is none.
std::string actionsOf(const VisibleRule& rule) {
  std::string tokens;
  try {
    if (!rule.stored.actions.empty()) {
      ZaroAction::CreateActionTokenString(rule.stored.actions.c_str(), tokens);
    }
  } catch (const char* failure) {
    throw zaroruntime::RuntimeError(std::string("no display strings: ") + failure,
                                    zaroruntime::FailureKind::Configuration);
  }
  return tokens;
}

std::string scopeOf(const VisibleRule& rule) {
  return rule.stored.scope ? rule.scope : "(all)";
}

Json nameOrNone(bool isThere, const std::optional<std::string>& name) {
  return isThere ? Json(name.value_or(kNotSeen)) : Json("");
}

Json recordOf(const VisibleRule& rule) {
  const MailPolicy::Rule& stored = rule.stored;
  return {{"id", stored.id},
          {"name", stored.name},
          {"position", stored.position},
          {"enabled", stored.enabled},
          {"for", scopeOf(rule)},
          {"recipients", nameOrNone(stored.recipients.has_value(), rule.recipients)},
          {"lists", listsOf(rule)},
          {"compare", nameOfComparison(stored.compare)},
          {"actions", actionsOf(rule)},
          {"bitmap", stored.actions},
          {"quarantine", stored.quarantine.value_or(0)},
          {"area", nameOrNone(stored.quarantine.has_value(), rule.area)},
          {"reply", stored.reply},
          {"tag", stored.tag},
          {"header_value", stored.headerValue},
          {"address", stored.address},
          {"modifiable", rule.modifiable}};
}

ExitCode list(Output& out, const std::string& admin) {
  Json rows = Json::array();
  for (const VisibleRule& rule : visibleRules(findViewer(admin))) {
    rows.push_back(recordOf(rule));
  }
  out.rows({{"position", "POSITION"},
            {"id", "ID"},
            {"name", "NAME"},
            {"enabled", "ENABLED"},
            {"for", "FOR"},
            {"recipients", "RECIPIENTS"},
            {"lists", "LISTS"},
            {"compare", "COMPARE"},
            {"actions", "ACTIONS"},
            {"modifiable", "MODIFIABLE"}},
           rows);
  return ExitCode::Found;
}

ExitCode print(Output& out, const VisibleRule& rule) {
  out.record(recordOf(rule));
  return ExitCode::Found;
}

// What the kinds of one group come to, when a rule has it in lists of several.
void tellOfKindsWithoutEffect(const VisibleRule& rule) {
  struct Kinds {
    KxEmailBelongsTo first;
    KxEmailBelongsTo all;
  };
  std::map<unsigned int, Kinds> kindsOfGroups;
  for (std::size_t list = 0; list != rule.lists.size(); ++list) {
    const KxEmailBelongsTo kind = rule.lists[list].kind;
    Kinds& kinds = kindsOfGroups.try_emplace(rule.stored.lists[list].group, Kinds{kind, kind}).first->second;
    if ((kinds.all & kind) != 0 || kinds.all != kinds.first) {
      continue;
    }
    const bool areTogether = KxListedEmailAddress::isStateAllowed(kinds.all | kind);
    diagnose("the group " + quoted(rule.lists[list].group.value_or(kNotSeen)) + " is " + nameOfKind(kinds.first) +
             " and " + nameOfKind(kind) + " in one rule, and " +
             (areTogether ? "has no say in it" : "counts as " + nameOfKind(kinds.first)));
    kinds.all |= areTogether ? kind : 0;
  }
}

void tellOfUselessLists(const VisibleRule& rule) {
  if (rule.lists.empty()) {
    diagnose("the rule " + quoted(rule.stored.name) + " has no list, and decides nothing");
  }
  tellOfKindsWithoutEffect(rule);
}

// --- Input ---

// The options of a rule, as they are given.
struct RuleOptions {
  std::string admin;
  WantedRule rule;
  std::optional<std::string> name;
  std::optional<std::string> position;
  bool isEnabled = false;
  bool isDisabled = false;
  std::optional<std::string> scope;
  bool isForAll = false;
  std::optional<std::string> recipients;
  Texts lists;
  const CLI::Option* listsOption = nullptr;  // an empty text is none, and the option is given all the same
  std::optional<std::string> compare;
  Texts actions;
  const CLI::Option* actionsOption = nullptr;
  std::optional<std::string> quarantine;
  std::optional<std::string> reply;
  std::optional<std::string> tag;
  std::optional<std::string> headerValue;
  std::optional<std::string> address;
};

unsigned int positionIn(const std::string& text) {
  const auto number = decimalNumber(text);
  if (!number || *number < 1 || *number > kHighestPosition) {
    throw UsageError("--position: " + quoted(text) + " is no number from 1 to " + std::to_string(kHighestPosition));
  }
  return static_cast<unsigned int>(*number);
}

RuleChange::List listIn(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  const auto kind = colon != std::string::npos ? listKind(text.substr(colon + 1)) : std::nullopt;
  if (!kind || colon == 0) {
    throw UsageError(
        "--list: " + quoted(text) +
        " is not GROUP:KIND, where KIND is allow, block, weak-block, weak-allow, except-allow or except-block");
  }
  return {text.substr(0, colon), *kind};
}

std::vector<RuleChange::List> listsIn(const Texts& texts) {
  std::vector<RuleChange::List> lists;
  for (const std::string& text : texts) {
    if (!text.empty()) {
      lists.push_back(listIn(text));
    }
  }
  return lists;
}

std::string bitmapIn(const Texts& keys) {
  Texts named;
  for (const std::string& key : keys) {
    if (!key.empty()) {
      named.push_back(key);
    }
  }
  return actionBitmap(named);
}

// A text that goes into a reply or a header: one line, and empty for none.
void refuseWrongText(const char* option, const std::optional<std::string>& text) {
  if (text && !text->empty()) {
    refuseWrongName(option, *text);
  }
}

void refuseWrongAddress(const std::optional<std::string>& address) {
  if (!address || address->empty()) {
    return;
  }
  std::string wrong = wrongName(*address);
  // A local part may hold a "*", which is more likely to be meant as a pattern.
  if (wrong.empty() && (!isMailbox(*address) || address->find('*') != std::string::npos)) {
    wrong = "is no address";
  }
  if (wrong.empty() && std::any_of(address->begin(), address->end(), isBeyondAscii)) {
    wrong = "is not plain ASCII, which not every mail server takes; write its domain in A-labels";
  }
  if (!wrong.empty()) {
    throw UsageError("--address: " + quoted(*address) + " " + wrong);
  }
}

RuleChange changeIn(const RuleOptions& options) {
  RuleChange change;
  if (options.name) {
    refuseWrongName("--name", *options.name);
    change.name = options.name;
  }
  if (options.position) {
    change.position = positionIn(*options.position);
  }
  if (options.isEnabled || options.isDisabled) {
    change.enabled = options.isEnabled;
  }
  if (options.isForAll || options.scope) {
    change.scope = RuleChange::Scope{options.isForAll, options.scope.value_or("")};
  }
  change.recipients = options.recipients;
  if (options.listsOption->count() != 0) {
    change.lists = listsIn(options.lists);
  }
  if (options.compare) {
    change.compare = comparison(*options.compare);
    if (!change.compare) {
      throw UsageError("--compare: " + quoted(*options.compare) + " is neither envelope, nor header, nor both");
    }
  }
  if (options.actionsOption->count() != 0) {
    change.actions = bitmapIn(options.actions);
  }
  if (options.quarantine) {
    change.quarantine = options.quarantine->empty() ? 0 : idArgument("--quarantine", *options.quarantine);
  }
  refuseWrongText("--reply", options.reply);
  refuseWrongText("--tag", options.tag);
  refuseWrongText("--header-value", options.headerValue);
  refuseWrongAddress(options.address);
  change.reply = options.reply;
  change.tag = options.tag;
  change.headerValue = options.headerValue;
  change.address = options.address;
  return change;
}

ExitCode add(Output& out, const RuleOptions& options) {
  refuseWrongName("NAME", options.rule.text);
  const RuleChange change = changeIn(options);
  if (!change.scope) {
    throw UsageError("say for whom the rule is: --for ENTITY or --for-all");
  }
  const VisibleRule rule = addRule(options.admin, options.rule.text, change);
  tellOfUselessLists(rule);
  return print(out, rule);
}

ExitCode modify(Output& out, const RuleOptions& options) {
  const RuleChange change = changeIn(options);
  if (change.isEmpty()) {
    throw UsageError("say what is to change, by an option for each field");
  }
  const VisibleRule rule = changeRule(options.admin, options.rule, change);
  tellOfUselessLists(rule);
  return print(out, rule);
}

ExitCode move(Output& out, const RuleOptions& options) {
  RuleChange change;
  change.position = positionIn(options.position.value_or(""));
  return print(out, changeRule(options.admin, options.rule, change));
}

// --- Command line ---

void addAdminOption(CLI::App& command, std::string& admin) {
  command.add_option("--as", admin, "The administrator who asks")->required()->type_name("ADMIN");
}

void addRuleArgument(CLI::App& command, RuleOptions& options) {
  addAdminOption(command, options.admin);
  command.add_option("NAME", options.rule.text, "The rule's name, exactly as stored")->required()->type_name("");
  command.add_flag("--id", options.rule.isId, "NAME is the rule's identifier");
}

void addRuleOptions(CLI::App& command, RuleOptions& options) {
  command.add_option("--position", options.position, "Its place in the order of precedence; those behind make room")
      ->type_name("N");
  CLI::Option* enabled = command.add_flag("--enabled", options.isEnabled, "It decides mail");
  command.add_flag("--disabled", options.isDisabled, "It does not")->excludes(enabled);
  CLI::Option* scope =
      command.add_option("--for", options.scope, "For recipients that this wildcard managing group contains")
          ->type_name("ENTITY");
  command.add_flag("--for-all", options.isForAll, "For all recipients; the administration root only")->excludes(scope);
  command
      .add_option("--recipients", options.recipients,
                  "Of these, only those of an address group, by its name or as group-id:ID; '' for all")
      ->type_name("GROUP");
  options.listsOption =
      command
          .add_option(
              "--list", options.lists,
              "Senders of an address group, by its name or as group-id:ID, and what they are: allow, block, weak-block, "
              "weak-allow, except-allow or except-block; '' for none")
          ->type_name("GROUP:KIND")
          ->allow_extra_args(false);
  command.add_option("--compare", options.compare, "What of the sender is asked: envelope, header or both")->type_name("WHAT");
  options.actionsOption =
      command
          .add_option("--action", options.actions, "What a block does: " + supportedActionKeys() + "; '' for nothing")
          ->type_name("KEYS")
          ->allow_extra_args(false)
          ->delimiter(',');
  command.add_option("--quarantine", options.quarantine, "Area for Quarantine, by identifier; '' for none")->type_name("ID");
  command.add_option("--reply", options.reply, "With Delete: the mail is refused with it")->type_name("TEXT");
  command.add_option("--tag", options.tag, "For SubjectTagging")->type_name("TEXT");
  command.add_option("--header-value", options.headerValue, "For InsertXHeaderTag")->type_name("TEXT");
  command.add_option("--address", options.address, "For Readdress, Bcc and Archive")->type_name("ADDRESS");
}

}  // namespace

void addRuleList(CommandTree& tree) {
  const auto admin = std::make_shared<std::string>();
  CLI::App* command = tree.add("rule list", "List the rules that an administrator sees, by position",
                               {"zaroctl rule list --as sales-admin"},
                               tellingNotThere([admin](Output& out) { return list(out, *admin); }));
  addAdminOption(*command, *admin);
}

void addRuleShow(CommandTree& tree) {
  const auto options = std::make_shared<RuleOptions>();
  CLI::App* command = tree.add("rule show", "Show a rule", {"zaroctl rule show --as sales-admin 'Block competitors'"},
                               tellingNotThere([options](Output& out) {
                                 return print(out, findRule(findViewer(options->admin), options->rule));
                               }));
  addRuleArgument(*command, *options);
}

void addRuleAdd(CommandTree& tree) {
  const auto options = std::make_shared<RuleOptions>();
  CLI::App* command = tree.add(
      "rule add", "Add a rule, behind all others unless it has a position",
      {"zaroctl rule add --as sales-admin --for '*@*.sales.example.test' --list 'Blocked senders:block' --action Delete "
       "--reply 'We do not take mail from you' 'Block competitors'",
       "zaroctl rule add --as root --for-all --position 1 --list Partners:allow Partners"},
      tellingNotThere([options](Output& out) { return add(out, *options); }));
  addAdminOption(*command, options->admin);
  command->add_option("NAME", options->rule.text, "Its name")->required()->type_name("");
  addRuleOptions(*command, *options);
}

void addRuleModify(CommandTree& tree) {
  const auto options = std::make_shared<RuleOptions>();
  CLI::App* command =
      tree.add("rule modify", "Change a rule; what no option names stays",
               {"zaroctl rule modify --as sales-admin 'Block competitors' --action Quarantine --quarantine 3"},
               tellingNotThere([options](Output& out) { return modify(out, *options); }));
  addRuleArgument(*command, *options);
  command->add_option("--name", options->name, "Another name")->type_name("NAME");
  addRuleOptions(*command, *options);
}

void addRuleRemove(CommandTree& tree) {
  const auto options = std::make_shared<RuleOptions>();
  CLI::App* command = tree.add(
      "rule remove", "Remove a rule", {"zaroctl rule remove --as sales-admin 'Block competitors'"},
      tellingNotThere([options](Output& out) { return print(out, removeRule(options->admin, options->rule)); }));
  addRuleArgument(*command, *options);
}

void addRuleMove(CommandTree& tree) {
  const auto options = std::make_shared<RuleOptions>();
  CLI::App* command = tree.add("rule move", "Give a rule another place; those behind it make room",
                               {"zaroctl rule move --as sales-admin 'Block competitors' --position 1"},
                               tellingNotThere([options](Output& out) { return move(out, *options); }));
  addRuleArgument(*command, *options);
  command->add_option("--position", options->position, "Its place in the order of precedence")->required()->type_name("N");
}

// What --json prints: valid documents, whose keys are those that the manual tells, in one style.
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Documents.h"
#include "programs/ProgramTest.h"

namespace {

using Json = nlohmann::json;
using Keys = std::set<std::string>;
using zarotest::ProgramResult;

struct CommandRow {
  const char* words;
  std::vector<std::string> arguments;
  std::string input;
};

// On the sample, one after the other; every command whose result is a document, in every one of its shapes.
const std::vector<CommandRow> kCommands = {
    {"init", {"{home}.second"}, ""},
    {"init", {"--filter-only", "--policy-server", "policy.example.test", "{home}.filter"}, ""},
    {"check", {}, ""},
    {"password", {}, "secret\n"},
    {"schema status", {}, ""},
    {"schema upgrade", {}, ""},
    {"schema upgrade", {"--dry-run"}, ""},
    {"backup", {"{home}.backup"}, ""},
    {"import",
     {"--merge", "-"},
     R"({"format": "zaropolicy", "version": 1,
         "servers": [{"type": "P", "number": 9, "address": "192.0.2.9", "port": 15505}]})"},
    {"admin id", {"postmaster"}, ""},
    {"admin list", {}, ""},
    {"admin show", {"postmaster"}, ""},
    {"admin add", {"helpdesk"}, ""},
    {"admin assign", {"helpdesk", "*@example.test"}, ""},
    {"admin unassign", {"helpdesk", "*@example.test"}, ""},
    {"admin remove", {"helpdesk"}, ""},
    {"entity list", {}, ""},
    {"entity show", {"*@example.test"}, ""},
    {"entity add", {"*@new.example.test"}, ""},
    {"entity remove", {"*@new.example.test"}, ""},
    {"entity relatives", {"*@sales.example.test"}, ""},
    {"entity contains", {"*@*.example.test", "user@mail.example.test"}, ""},
    {"entity tree", {}, ""},
    {"action list", {}, ""},
    {"action show", {"11000000000000000"}, ""},
    {"filter list", {}, ""},
    {"blob read", {}, "a=1\r\n\r\n"},
    {"object list", {"--as", "admin"}, ""},
    {"object show", {"--as", "admin", "3"}, ""},
    {"object add", {"--as", "postmaster", "--type", "quarantine", "New"}, ""},
    {"object modify", {"--as", "admin", "3", "--content", "days=8"}, ""},
    {"object why", {"--as", "sales-admin", "3"}, ""},
    {"object policy-text", {}, ""},
    {"object remove", {"--as", "admin", "3"}, ""},
    {"quarantine list", {"--as", "admin"}, ""},
    {"group list", {}, ""},
    {"group list", {"--as", "sales-admin"}, ""},
    {"group show", {"Board"}, ""},
    {"group add", {"--as", "postmaster", "Friends", "friend@example.test"}, ""},
    {"group modify", {"Friends", "--add", "new@example.test"}, ""},
    {"group import", {"Friends", "-"}, "new@example.test\n"},
    {"group import", {"--format", "plain", "--leave-out", "Friends", "-"}, "new.example.test\nno domain\n"},
    {"group remove", {"Friends"}, ""},
    {"match", {"--tree", "group:Board:1", "chair@example.test", "x@nowhere.test"}, ""},
    {"match", {"--tree", "group:Board:1", "--all", "chair@example.test"}, ""},
    {"match", {"--tree", "{home}/pattern:1,{home}/wider:2", "--explain", "user@example.test"}, ""},
    {"match", {"--tree", "{home}/wider:1,{home}/pattern:16", "--explain", "user@example.test"}, ""},
    {"match", {"--tree", "group:Board:1", "--count", "-"}, std::string("chair@example.test\nx\0y\n", 24)},
    {"match", {"--diff", "group:Board:1", "group:Board:2", "chair@example.test"}, ""},
    {"lint", {"{home}/list"}, ""},
    {"settings server", {}, ""},
    {"settings client", {}, ""},
    {"settings filter", {}, ""},
    {"settings set", {"threads=8"}, ""},
    {"servers list", {}, ""},
    {"servers add", {"8", "192.0.2.9", "15505"}, ""},
    {"servers remove", {"8"}, ""},
    {"rule list", {"--as", "admin"}, ""},
    {"rule show", {"--as", "admin", "Deliver builds at once"}, ""},
    {"rule add", {"--as", "admin", "--for-all", "--list", "Partners:block", "New"}, ""},
    {"rule modify", {"--as", "admin", "New", "--list", "Partners:allow"}, ""},
    {"rule move", {"--as", "admin", "New", "--position", "1"}, ""},
    {"rule why", {"--header-from", "y@partner.test", "x@example.com", "y@sales.example.test"}, ""},
    {"rule remove", {"--as", "admin", "New"}, ""},
    {"rules set-order", {"virus", "spam"}, ""},
    {"rules order", {"--verify"}, ""},
    {"rules set-order", {"--off"}, ""},
    {"audit", {}, ""},
    {"audit-trim", {"--before", "2020-01-01"}, ""},
};

// They take what a policy server hands out, which the tests of its client have.
const Keys kOfPolicyServers = {"policy fetch", "policy show", "policy diff"};

// Rows of the policy as the database or the document has them; other pages tell their keys.
const Keys kOfThePolicy = {"summary", "differences", "before", "after"};

void addKeys(const Json& value, Keys& keys) {
  if (value.is_object()) {
    for (const auto& [key, inside] : value.items()) {
      keys.insert(key);
      if (kOfThePolicy.count(key) == 0) {
        addKeys(inside, keys);
      }
    }
  } else if (value.is_array()) {
    for (const Json& element : value) {
      addKeys(element, keys);
    }
  }
}

// One document, or one a line.
std::vector<Json> documentsIn(const std::string& text) {
  if (const Json whole = Json::parse(text, nullptr, false); !whole.is_discarded()) {
    return {whole};
  }
  std::vector<Json> documents;
  for (const std::string& line : zarotest::linesOf(text)) {
    documents.push_back(Json::parse(line));
  }
  return documents;
}

// The keys that the manual tells, by command.
std::map<std::string, Keys> documentedKeys() {
  std::map<std::string, Keys> documented;
  for (const zarotest::TableRow& row : zarotest::tableOf("docs/zaroctl.md", "| command | keys | keys inside of these |")) {
    for (const std::string& command : zarotest::codeWords(row.at(0))) {
      for (const std::size_t cell : {std::size_t(1), std::size_t(2)}) {
        for (const std::string& key : zarotest::codeWords(row.at(cell))) {
          documented[command].insert(key);
        }
      }
    }
  }
  return documented;
}

class JsonOutput : public zarotest::SampleInstallation {
 protected:
  ProgramResult runRow(const CommandRow& row) const {
    std::vector<std::string> arguments = {"--json"};
    std::istringstream words(row.words);
    for (std::string word; words >> word;) {
      arguments.push_back(word);
    }
    for (const std::string& argument : row.arguments) {
      arguments.push_back(filled(argument));
    }
    return run(arguments, row.input);
  }

  std::string filled(std::string text) const {
    const std::string place = "{home}";
    for (std::size_t at = text.find(place); at != std::string::npos; at = text.find(place)) {
      text.replace(at, place.size(), home());
    }
    return text;
  }
};

TEST_P(JsonOutput, hasTheKeysThatTheManualTells) {
  writeFile("list", "example.test\n");
  writeFile("pattern", "user@example.test\n");
  writeFile("wider", "*@example.test\n");
  std::map<std::string, Keys> printed;
  for (const CommandRow& row : kCommands) {
    const ProgramResult result = runRow(row);
    SCOPED_TRACE(std::string(row.words) + ": " + result.err);
    EXPECT_LE(result.status, 1);
    std::vector<Json> documents;
    ASSERT_NO_THROW(documents = documentsIn(result.out)) << result.out;
    EXPECT_FALSE(documents.empty());
    for (const Json& document : documents) {
      addKeys(document, printed[row.words]);
    }
  }
  auto documented = documentedKeys();
  for (const std::string& command : kOfPolicyServers) {
    documented.erase(command);
  }
  EXPECT_EQ(printed, documented);
}

TEST_P(JsonOutput, spellsKeysInOneWay) {
  for (const auto& [command, keys] : documentedKeys()) {
    for (const std::string& key : keys) {
      EXPECT_TRUE(std::regex_match(key, std::regex("[a-z]+(_[a-z]+)*"))) << command << ": " << key;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, JsonOutput, testing::Values(zarotest::Dialect::SQLite), zarotest::dialectTestName);

}  // namespace

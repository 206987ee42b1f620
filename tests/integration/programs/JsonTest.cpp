// What --json prints: valid documents, whose keys are those that the manual tells, in one style.
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Documents.h"
#include "policyclient/ScriptedHttpServer.h"
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

// What a policy server hands out: one of each kind.
constexpr const char* kSnapshot =
    R"({"format":1,"version":3,"made_at":"2026-01-01T00:00:00Z","rules":1,"entities":1,"groups":1,"members":1,"objects":1}
{"rule":1,"name":"refuse","position":1,"enabled":true,"scope":4,"recipients":2,"lists":[[2,2]],"compare":1,"actions":"10000000000000000","quarantine":null,"reply":"no","tag":"","header_value":"","address":""}
{"entity":4,"pattern":"*@example.test"}
{"group":2,"name":"Spammers"}
{"members":["spam@bad.test"]}
{"object":3,"type":3,"name":"area","content":"days=1"}
{"order":{"manual":false,"groups":[]}}
{"sha256":"6c0e43306267052be0ef41181062f15907ebe4163a8c08c3dd9a3418990ac8f6"}
)";

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
    {"policy fetch", {"--host", "127.0.0.1", "--output", "{home}/snapshot"}, ""},
    {"policy show", {"{home}/snapshot"}, ""},
    {"policy diff", {"{home}/snapshot"}, ""},
    {"policy raise", {"1000"}, ""},
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

// Of most commands these are rows of the policy as the database or the document has them; other pages tell their keys.
const Keys kOfThePolicy = {"summary", "differences", "before", "after"};

void addKeys(const Json& value, const Keys& unopened, Keys& keys) {
  if (value.is_object()) {
    for (const auto& [key, inside] : value.items()) {
      keys.insert(key);
      if (unopened.count(key) == 0) {
        addKeys(inside, unopened, keys);
      }
    }
  } else if (value.is_array()) {
    for (const Json& element : value) {
      addKeys(element, unopened, keys);
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
  ScriptedHttpServer server([](const std::string&) { return httpResponse(200, kSnapshot); });
  ASSERT_EQ(run({"settings", "set", "--host", "PolicyServerPort=" + std::to_string(server.port())}).status, 0);
  std::map<std::string, Keys> printed;
  for (const CommandRow& row : kCommands) {
    const ProgramResult result = runRow(row);
    SCOPED_TRACE(std::string(row.words) + ": " + result.err);
    EXPECT_LE(result.status, 1);
    std::vector<Json> documents;
    ASSERT_NO_THROW(documents = documentsIn(result.out)) << result.out;
    EXPECT_FALSE(documents.empty());
    for (const Json& document : documents) {
      addKeys(document, row.words == std::string("policy diff") ? Keys() : kOfThePolicy, printed[row.words]);
    }
  }
  EXPECT_EQ(printed, documentedKeys());
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

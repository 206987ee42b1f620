// The table of statements against the library's calls, the statement files of both databases and the manual: no
// statement stands in one and not in the others.
#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "AddressGroup.h"
#include "Documents.h"
#include "EntityUtils.h"
#include "RdbmsInterface.h"
#include "ZaroNamedObj.h"
#include "ZaroPolicyServerInterface.h"
#include "installation/StatementCatalog.h"
#include "miscUtils.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;
using Columns = std::set<std::string>;

constexpr auto kType = static_cast<ZaroNamedObj::NaObjType>(-3);
constexpr unsigned int kWide = 4294967295u;  // another text when it is taken for a signed number

// --- The library's calls ---

// Every operation of the library that runs a statement.
void callEverything() {
  RdbmsInterface db;
  std::vector<GroupEntity> entities;
  std::set<GroupEntity, GroupEntityCmp> entitySet;
  std::vector<AddressGroup::AddressGroupMember> members = {{1, "a@b.example"}};
  std::vector<ZaroFilter::FilterType> order;
  std::vector<unsigned int> ids;
  std::vector<SummaryNamedObject> objects;
  std::vector<PolicyServerInfo> servers;
  QuarantineData area;
  std::vector<GroupEntity> owners(1);
  owners[0].id = kWide;
  std::string name;
  std::string content;
  unsigned int id = 0;
  bool manualOrder = false;

  {
    RdbmsInterface rolledBack;
    rolledBack.startTransaction();
  }
  db.startTransaction();
  db.commitTransaction();
  miscUtils::getAdminId(db, "name", id);
  miscUtils::getUserDefinedRuleOrder(db, manualOrder, order, true);
  EntityUtils::getEntity(db, kWide, entities);
  EntityUtils::getAllEntities(db, entitySet);
  EntityUtils::_getAllEntitiesOfSameType(db, GroupEntity::Wildcard, entitySet);
  EntityUtils::isAdminRoot(db, kWide);
  ZaroNamedObj::addObj(db, "name", "content", kType);
  ZaroNamedObj::addEntityNamedObjIds(db, kWide, kType, owners);
  ZaroNamedObj::modifyObj(db, "name", "content", kType, kWide);
  ZaroNamedObj::remove(db, kWide, kWide);
  ZaroNamedObj::_isDeletability(db, kWide);
  ZaroNamedObj::getEntityIds(db, ids, kWide);
  ZaroNamedObj::getBlob(db, kWide, content, name);
  ZaroNamedObj::getIds(db, kWide, kType, objects);
  ZaroNamedObj::getOPPQuarantineArea(db, area);
  AddressGroup::addAddressGroup(kWide, "name", kWide, members);
  AddressGroup::modifyAddressGroup(kWide, "name", members);
  AddressGroup::deleteAddressGroupByID(kWide);
  AddressGroup::getAddressGroupMembersByID(kWide, members);
  ZaroPolicyServerInterface::getPolicyServerInfo(servers);
}

// What a column holds, so that each operation goes on to the next; the rest hold 1.
std::string valueOf(const std::string& file, const std::string& column) {
  const std::map<std::pair<std::string, std::string>, std::string> kValues = {
      {{"ui_GetGlobalSettingValue.sql", "value"}, "on"},
      {{"ui_IsAdminRoot_Id.sql", "IsAdminRoot"}, "0"},
      {{"ui_GetNamedObjByType.sql", "Name"}, "OPP:1"},
  };
  const auto found = kValues.find({file, column});
  return found != kValues.end() ? found->second : "1";
}

// One row of every column in the table; none for the statement whose rows mean that an object is in use.
Reply replyTo(const CataloguedStatement& statement) {
  if (statement.columns.empty()) {
    return Reply();
  }
  Row row;
  for (const char* column : statement.columns) {
    row.push_back(valueOf(statement.file, column));
  }
  return Reply({statement.columns.begin(), statement.columns.end()}, {row});
}

class StatementCalls : public PlatformTest {
 protected:
  void SetUp() override {
    for (const CataloguedStatement& statement : statementCatalog()) {
      platform().database.replyToFile(statement.file, replyTo(statement));
    }
    callEverything();
  }

  // The columns that were asked for after each file's statement, in any call.
  static std::map<std::string, Columns> columnsByFile() {
    std::map<std::string, Columns> columns;
    std::map<std::string, std::string> running;  // the file of each connection's statement
    for (const std::string& call : platform().calls.all()) {
      const std::size_t dot = call.find('.');
      const std::string connection = call.substr(0, dot);
      const std::string operation = dot == std::string::npos ? "" : call.substr(dot + 1, call.find('(') - dot - 1);
      const std::string argument = call.substr(0, call.rfind('"')).substr(call.find('"') + 1);
      if (operation == "executeSQL") {
        running[connection] = argument.substr(0, argument.find(".sql") + 4);
        columns[running[connection]];
      } else if (operation == "getColVal" || operation == "getColValInt") {
        columns[running[connection]].insert(argument);
      }
    }
    return columns;
  }
};

TEST_F(StatementCalls, areOfTheFilesInTheTable) {
  std::set<std::string> wanted;
  for (const CataloguedStatement& statement : statementCatalog()) {
    EXPECT_TRUE(wanted.insert(statement.file).second) << statement.file << " stands there twice";
  }
  std::set<std::string> called;
  for (const scripted::LoadedStatement& statement : platform().statements.loaded()) {
    called.insert(statement.file);
  }
  EXPECT_EQ(called, wanted);
  EXPECT_EQ(platform().calls.countOf("KxSqlLoader.loadSQL"), platform().statements.loaded().size())
      << "a file that is not in the table was asked for";
}

TEST_F(StatementCalls, askForTheColumnsInTheTable) {
  std::map<std::string, Columns> wanted;
  for (const CataloguedStatement& statement : statementCatalog()) {
    wanted[statement.file] = {statement.columns.begin(), statement.columns.end()};
  }
  EXPECT_EQ(columnsByFile(), wanted);
}

// The smallest of each file's calls.
TEST_F(StatementCalls, haveTheBuffersInTheTable) {
  std::map<std::string, std::size_t> wanted;
  std::map<std::string, std::size_t> smallest;
  for (const scripted::LoadedStatement& loaded : platform().statements.loaded()) {
    const CataloguedStatement& statement = *findStatement(loaded.file);
    std::size_t texts = 0;
    for (std::size_t i = 0; i < loaded.arguments.size(); ++i) {
      texts += statement.conversions[i] == 's' ? loaded.arguments[i].size() : 0;
    }
    wanted[loaded.file] = bufferSize(statement, texts);
    const auto size = static_cast<std::size_t>(loaded.bufferSize);
    const auto known = smallest.emplace(loaded.file, size).first;
    known->second = std::min(known->second, size);
  }
  EXPECT_EQ(smallest, wanted);
}

TEST_F(StatementCalls, passParametersOfTheKindsInTheTable) {
  const std::map<char, std::set<std::string>> kArguments = {
      {'u', {"4294967295", "1"}},
      {'d', {"-3", "3", "6"}},
      {'s', {"name", "content", "P", "email-scan", "manualRuleOrder", "<mas><ma>a@b.example</ma></mas>"}},
  };
  for (const scripted::LoadedStatement& loaded : platform().statements.loaded()) {
    const std::string conversions = findStatement(loaded.file)->conversions;
    ASSERT_EQ(loaded.arguments.size(), conversions.size()) << loaded.file;
    for (std::size_t i = 0; i < conversions.size(); ++i) {
      EXPECT_EQ(kArguments.at(conversions[i]).count(loaded.arguments[i]), 1u)
          << loaded.file << ": " << loaded.arguments[i];
    }
  }
}

using StatementBuffers = PlatformTest;

TEST_F(StatementBuffers, ofObjectsAreMadeToMeasureFromTheLengthInTheTable) {
  struct Operation {
    const char* file;
    std::function<void(RdbmsInterface&, const std::string& content)> call;
  };
  const Operation kOperations[] = {
      {"ui_AddNamedObj.sql",
       [](RdbmsInterface& db, const std::string& content) { ZaroNamedObj::addObj(db, "n", content.c_str(), kType); }},
      {"ui_ModifyNamedObj.sql",
       [](RdbmsInterface& db, const std::string& content) {
         ZaroNamedObj::modifyObj(db, "n", content.c_str(), kType, 1);
       }},
  };
  RdbmsInterface db;
  for (const Operation& operation : kOperations) {
    const CataloguedStatement& statement = *findStatement(operation.file);
    platform().statements.truncateWhatDoesNotFit();
    platform().database.answerWith([](const std::string&) { return Reply(); });
    for (const std::size_t texts : {statement.buffer.longestTexts, statement.buffer.longestTexts + 1}) {
      operation.call(db, std::string(texts - 1, 'c'));
      EXPECT_EQ(static_cast<std::size_t>(platform().statements.last().bufferSize), bufferSize(statement, texts));
    }
  }
}

// --- The files and the manual ---

// The conversions in the text of a file.
std::string conversionsIn(const std::string& text) {
  std::string conversions;
  for (std::size_t at = 0; (at = text.find('%', at)) != std::string::npos && at + 1 < text.size(); at += 2) {
    conversions.append(text[at + 1] == '%' ? "" : text.substr(at + 1, 1));
  }
  return conversions;
}

class StatementFolder : public testing::TestWithParam<const char*> {};

TEST_P(StatementFolder, hasTheFilesInTheTable) {
  const std::string folder = std::string("home/sql/") + GetParam();
  std::map<std::string, std::string> wanted;
  for (const CataloguedStatement& statement : statementCatalog()) {
    wanted[statement.file] = statement.conversions;
  }
  std::map<std::string, std::string> found;
  for (const std::string& name : zarotest::sourceFolder(folder)) {
    if (name != "schema.sql" && name != "upgrade") {
      found[name] = conversionsIn(zarotest::sourceFile(folder + "/" + name));
    }
  }
  EXPECT_EQ(found, wanted);
}

INSTANTIATE_TEST_SUITE_P(, StatementFolder, testing::Values("sqlite", "postgresql"),
                         [](const auto& tested) { return std::string(tested.param); });

std::string shownBuffer(const CataloguedStatement& statement) {
  const StatementBuffer& buffer = statement.buffer;
  if (buffer.fixed == 0) {
    return "texts + 100";
  }
  const bool isFixed = buffer.longestTexts == StatementBuffer{0}.longestTexts;
  return std::to_string(buffer.fixed) +
         (isFixed ? "" : ", or texts + 100 where these have more than " + std::to_string(buffer.longestTexts));
}

// As the manual begins to show it; the conversions stand last among the parameters.
zarotest::TableRow shown(const CataloguedStatement& statement) {
  const std::string conversions = statement.conversions;
  std::string columns;
  for (const char* column : statement.columns) {
    columns.append(columns.empty() ? "" : " ").append(column);
  }
  return {statement.file, conversions, shownBuffer(statement), columns};
}

TEST(StatementManual, hasWhatTheTableHas) {
  std::vector<zarotest::TableRow> wanted;
  for (const CataloguedStatement& statement : statementCatalog()) {
    wanted.push_back(shown(statement));
  }
  std::vector<zarotest::TableRow> found;
  for (const zarotest::TableRow& row :
       zarotest::tableOf("docs/statement-files.md", "| file | parameters | buffer | columns |")) {
    ASSERT_EQ(row.size(), 4u) << row[0];
    const std::vector<std::string> parameters = zarotest::codeWords(row[1]);
    std::string columns;
    for (const std::string& column : zarotest::codeWords(row[3])) {
      columns.append(columns.empty() ? "" : " ").append(column);
    }
    found.push_back({zarotest::codeWords(row[0]).at(0), parameters.empty() ? "" : parameters.back(), row[2], columns});
  }
  EXPECT_THAT(found, testing::UnorderedElementsAreArray(wanted));
}

TEST(StatementManual, measuresStatementsOfTheTableOnly) {
  for (const zarotest::TableRow& row : zarotest::tableOf(
           "docs/statement-files.md", "| file | size of the file | longest statement, without its texts |")) {
    EXPECT_NE(findStatement(zarotest::codeWords(row[0]).at(0)), nullptr) << row[0];
  }
}

}  // namespace

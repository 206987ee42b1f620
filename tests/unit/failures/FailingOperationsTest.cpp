// Every operation on the database and the settings, with each of its allocations and each of its calls of the platform
// failing in turn: it does all, or its answer or the log tells of the failure; it gives its connection back, leaves no
// transaction open, and the next call works. A program of its own, since it replaces operator new. Address matching has
// its own such tests.
#include <algorithm>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "AddressGroup.h"
#include "EntityUtils.h"
#include "FailingAllocations.h"
#include "RdbmsInterface.h"
#include "ZaroNamedObj.h"
#include "ZaroPolicyServerInterface.h"
#include "installation/StatementCatalog.h"
#include "miscUtils.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;
using Interface = ZaroPolicyServerInterface;
using EntitySet = std::set<GroupEntity, GroupEntityCmp>;

constexpr auto kType = static_cast<ZaroNamedObj::NaObjType>(3);
constexpr unsigned int kId = 7;
constexpr const char* kFailure = "the platform gave way";

struct Operation {
  const char* label;
  std::function<std::string(RdbmsInterface&)> call;  // what it answers, as a text
  bool isSilent = false;                             // it answers the same when it fails
};

std::string number(unsigned int value) {
  return std::to_string(value) + " ";
}

template <typename Entities>
std::string namesOf(const Entities& entities) {
  std::string names;
  for (const GroupEntity& entity : entities) {
    names += entity.name + " ";
  }
  return names;
}

std::vector<GroupEntity> owners() {
  std::vector<GroupEntity> all(2);
  all[0].id = kId;
  all[1].id = kId + 1;
  return all;
}

std::vector<AddressGroup::AddressGroupMember> members() {
  return {{0, "somebody.with.a.long.name@example.test"}, {0, "*@*.example.test"}};
}

std::string readServerSettings() {
  unsigned int numbers[7] = {};
  bool keepAlive = false;
  Interface::Protocol protocol = Interface::HTTP;
  std::string text = number(Interface::getSettingsFromDatabase(numbers[0], keepAlive, numbers[1], protocol, numbers[2],
                                                               numbers[3], numbers[4], numbers[5], numbers[6], true));
  for (const unsigned int one : numbers) {
    text += number(one);
  }
  return text;
}

std::string readClientSettings(bool inMemory) {
  std::string host;
  unsigned int numbers[3] = {};
  bool keepAlive = false;
  Interface::Protocol protocol = Interface::HTTP;
  std::string text = number(Interface::getClientSettingsFromDatabase(host, numbers[0], keepAlive, protocol, numbers[1],
                                                                     numbers[2], inMemory));
  return text + host + " " + number(numbers[0]) + number(numbers[1]) + number(numbers[2]);
}

const Operation kOperations[] = {
    {"transaction",
     [](RdbmsInterface& db) { return db.startTransaction() && db.commitTransaction() ? "done" : "failed"; }},
    {"getAdminId",
     [](RdbmsInterface& db) {
       unsigned int id = 0;
       const int code = miscUtils::getAdminId(db, "an administrator's long name", id);
       return std::to_string(code) + " " + (code == 0 ? number(id) : "");
     }},
    {"getUserDefinedRuleOrder",
     [](RdbmsInterface& db) {
       bool manual = false;
       std::vector<ZaroFilter::FilterType> order;
       const int code = miscUtils::getUserDefinedRuleOrder(db, manual, order, true);
       return std::to_string(code) + " " + (code == 0 ? std::to_string(order.size()) : "");
     }},
    {"getEntity",
     [](RdbmsInterface& db) {
       std::vector<GroupEntity> entities;
       const int code = EntityUtils::getEntity(db, kId, entities);
       return std::to_string(code) + " " + (code == 0 ? namesOf(entities) : "");
     }},
    {"getAllEntities",
     [](RdbmsInterface& db) {
       EntitySet entities;
       const int code = EntityUtils::getAllEntities(db, entities);
       return std::to_string(code) + " " + (code == 0 ? namesOf(entities) : "");
     }},
    {"getAllEntitiesOfSameType",
     [](RdbmsInterface& db) {
       EntitySet entities;
       const int code = EntityUtils::_getAllEntitiesOfSameType(db, GroupEntity::Wildcard, entities);
       return std::to_string(code) + " " + (code == 0 ? namesOf(entities) : "");
     }},
    {"isAdminRoot", [](RdbmsInterface& db) { return EntityUtils::isAdminRoot(db, kId) ? "yes" : "no"; }},
    {"add",
     [](RdbmsInterface& db) {
       unsigned int id = 0;
       return ZaroNamedObj::add(db, kId, "name", "a content that is long enough", kType, id) ? "done" : "failed";
     }},
    {"addObj",
     [](RdbmsInterface& db) { return number(ZaroNamedObj::addObj(db, "name", "a content that is long enough", kType)); }},
    {"addEntityNamedObjIds",
     [](RdbmsInterface& db) {
       std::vector<GroupEntity> all = owners();
       return ZaroNamedObj::addEntityNamedObjIds(db, kId, kType, all) ? "done" : "failed";
     }},
    {"modify",
     [](RdbmsInterface& db) { return ZaroNamedObj::modify(db, kId, kId, "name", "content", kType) ? "done" : "failed"; }},
    {"modifyObj",
     [](RdbmsInterface& db) { return std::to_string(ZaroNamedObj::modifyObj(db, "name", "content", kType, kId)); }},
    {"remove", [](RdbmsInterface& db) { return std::to_string(ZaroNamedObj::remove(db, kId, kId)); }},
    {"getEntityIds",
     [](RdbmsInterface& db) {
       std::vector<unsigned int> ids;
       const bool found = ZaroNamedObj::getEntityIds(db, ids, kId);
       return found ? "found " + number(static_cast<unsigned int>(ids.size())) : "failed";
     }},
    {"getBlob",
     [](RdbmsInterface& db) {
       std::string content;
       std::string name;
       return ZaroNamedObj::getBlob(db, kId, content, name) ? content + " " + name : "failed";
     }},
    {"getIds",
     [](RdbmsInterface& db) {
       std::vector<SummaryNamedObject> objects;
       return ZaroNamedObj::getIds(db, kId, kType, objects) ? number(static_cast<unsigned int>(objects.size()))
                                                            : "failed";
     }},
    {"getOPPQuarantineArea",
     [](RdbmsInterface& db) {
       QuarantineData area;
       return std::to_string(ZaroNamedObj::getOPPQuarantineArea(db, area));
     }},
    {"getEditableQuanantineData",
     [](RdbmsInterface& db) {
       std::vector<QuarantineData> areas;
       return ZaroNamedObj::getEditableQuanantineData(db, kId, areas) ? number(static_cast<unsigned int>(areas.size()))
                                                                      : "failed";
     }},
    {"addAddressGroup",
     [](RdbmsInterface& /*db*/) {
       std::vector<AddressGroup::AddressGroupMember> all = members();
       return std::to_string(AddressGroup::addAddressGroup(kId, "a group", kId, all));
     },
     true},
    {"modifyAddressGroup",
     [](RdbmsInterface& /*db*/) {
       std::vector<AddressGroup::AddressGroupMember> all = members();
       return std::to_string(AddressGroup::modifyAddressGroup(kId, "a group", all));
     },
     true},
    {"deleteAddressGroupByID",
     [](RdbmsInterface& /*db*/) { return std::to_string(AddressGroup::deleteAddressGroupByID(kId)); }, true},
    {"getAddressGroupMembersByID",
     [](RdbmsInterface& /*db*/) {
       std::vector<AddressGroup::AddressGroupMember> all;
       const int code = AddressGroup::getAddressGroupMembersByID(kId, all);
       return std::to_string(code) + " " + std::to_string(all.size());
     }},
    {"getPolicyServerInfo",
     [](RdbmsInterface& /*db*/) {
       std::vector<PolicyServerInfo> servers;
       const int code = Interface::getPolicyServerInfo(servers);
       return std::to_string(code) + " " + std::to_string(servers.size());
     }},
    {"getSettingsFromDatabase", [](RdbmsInterface& /*db*/) { return readServerSettings(); }},
    {"getClientSettingsFromDatabase", [](RdbmsInterface& /*db*/) { return readClientSettings(false); }},
    {"getClientSettingsFromMemory", [](RdbmsInterface& /*db*/) { return readClientSettings(true); }},
    {"setSettingsInDatabase",
     [](RdbmsInterface& /*db*/) {
       return number(Interface::setSettingsInDatabase(1, true, 2, Interface::HTTPS, 3, 4, 5)) +
              std::to_string(platform().settings.writes.size());
     }},
};

std::string valueOf(const std::string& column, int row, bool isRoot) {
  if (column == "EntityName") {
    return row == 0 ? "*@*.example.test" : "*@sales.example.test";
  }
  if (column == "EntityType") {
    return "6";
  }
  if (column == "IsAdminRoot") {
    return isRoot ? "1" : "0";
  }
  return column == "Name" ? "OPP:" + std::to_string(row + 1) : std::to_string(row + 1);
}

// Two rows of every column; none for the statement whose rows mean that an object is in use.
Reply replyTo(const CataloguedStatement& statement, bool isRoot) {
  if (statement.columns.empty()) {
    return Reply();
  }
  std::vector<Row> rows(2);
  for (int row = 0; row != 2; ++row) {
    for (const char* column : statement.columns) {
      rows[static_cast<std::size_t>(row)].push_back(valueOf(column, row, isRoot));
    }
  }
  return Reply({statement.columns.begin(), statement.columns.end()}, rows);
}

struct Outcome {
  std::string answer;  // "thrown" for what the platform throws and the operation lets pass
  std::vector<std::string> statements;
  std::size_t settingsWritten;
  bool logged;
  bool reached;  // the failure

  bool isAs(const Outcome& other) const {
    return answer == other.answer && statements == other.statements && settingsWritten == other.settingsWritten;
  }
};

// How a call is to fail at its `passage`-th chance; answers whether there was that chance.
using Failing = std::function<bool(int passage, const std::function<void()>& call)>;

class FailingOperations : public PlatformTest, public testing::WithParamInterface<Operation> {
 protected:
  static void prepare() {
    platform().reset();
    for (const CataloguedStatement& statement : statementCatalog()) {
      platform().database.replyToFile(statement.file, replyTo(statement, GetParam().label == std::string("isAdminRoot")));
    }
    for (scripted::SettingsStore* store : {&platform().settings.inMemory, &platform().settings.stored}) {
      for (const char* key : {"backlog", "keep-alive", "PolicyServerHost", "PolicyServerPort", "protocol",
                              "recv_timeout_secs", "send_timeout_secs", "threads", "max_threads"}) {
        store->set("policy_server", key, "30");
        store->set("policy_client", key, "30");
      }
    }
  }

  static Outcome run(const Failing& failing, int passage) {
    prepare();
    Outcome outcome = {};
    {
      RdbmsInterface db;
      outcome.reached = failing(passage, [&] {
        try {
          outcome.answer = GetParam().call(db);
        } catch (const std::bad_alloc&) {
          outcome.answer = "thrown";
        } catch (const OtherFailure&) {
          outcome.answer = "thrown";
        } catch (const char* text) {
          outcome.answer = "thrown";
          EXPECT_STREQ(text, kFailure);
        }
      });
    }
    outcome.statements = platform().database.statements();
    outcome.logged = !platform().log.lines().empty();
    outcome.settingsWritten = platform().settings.writes.size();
    return outcome;
  }

  static void expectEveryFailureToBeTold(const Failing& failing) {
    const auto never = [](int /*passage*/, const std::function<void()>& call) {
      call();
      return false;
    };
    const Outcome intact = run(never, 0);
    const int connections = platform().database.openConnections();
    const int lent = platform().database.lentConnections();
    bool reached = true;
    for (int passage = 1; reached && !HasFailure(); ++passage) {
      SCOPED_TRACE("passage " + std::to_string(passage));
      const Outcome outcome = run(failing, passage);
      reached = outcome.reached;
      if (!reached) {
        EXPECT_TRUE(outcome.isAs(intact)) << outcome.answer;
        return;
      }
      if (outcome.answer == intact.answer) {
        // Whether an administrator is a root is "no" when it cannot be read, and the log tells.
        EXPECT_TRUE(GetParam().isSilent || outcome.logged || isPartOf(intact.statements, outcome.statements))
            << testing::PrintToString(outcome.statements);
      } else {
        EXPECT_FALSE(commits(outcome)) << outcome.answer;
      }
      EXPECT_EQ(platform().database.openConnections(), connections);
      EXPECT_EQ(platform().database.lentConnections(), lent);
      expectTransactionsToEnd(outcome);
      EXPECT_TRUE(run(never, 0).isAs(intact));
    }
  }

 private:
  static bool isOne(const std::string& statement, const char* verb) { return statement.compare(0, 4, verb, 4) == 0; }

  static std::ptrdiff_t count(const Outcome& outcome, const char* verb) {
    return std::count_if(outcome.statements.begin(), outcome.statements.end(),
                         [&](const std::string& statement) { return isOne(statement, verb); });
  }

  static bool commits(const Outcome& outcome) { return count(outcome, "COMM") != 0; }

  static void expectTransactionsToEnd(const Outcome& outcome) {
    EXPECT_LE(count(outcome, "BEGI"), count(outcome, "COMM") + count(outcome, "ROLL"))
        << testing::PrintToString(outcome.statements);
  }

  // Whether all that are wanted were executed, in that order.
  static bool isPartOf(const std::vector<std::string>& wanted, const std::vector<std::string>& executed) {
    auto next = wanted.begin();
    for (const std::string& statement : executed) {
      next += next != wanted.end() && *next == statement ? 1 : 0;
    }
    return next == wanted.end();
  }
};

TEST_P(FailingOperations, tellOfMemoryThatRunsOut) {
  expectEveryFailureToBeTold([](int allocation, const std::function<void()>& call) { return failsAt(allocation, call); });
}

const Point kPoints[] = {
    Point::ConnectionMade,   Point::Connect,           Point::Execute,       Point::FetchRow,
    Point::FetchResultSet,   Point::ColumnText,        Point::ColumnInt,     Point::PoolInit,
    Point::PoolGetConnect,   Point::PoolReturnConnect, Point::LoaderMade,    Point::Load,
    Point::LoadAfterWrite,   Point::IniOpen,           Point::IniRead,       Point::Decrypt,
    Point::SettingsInstance, Point::SettingsRead,      Point::SettingsWrite,
};

TEST_P(FailingOperations, tellOfWhatThePlatformThrows) {
  for (const Point point : kPoints) {
    SCOPED_TRACE(nameOf(point));
    expectEveryFailureToBeTold([point](int passage, const std::function<void()>& call) {
      platform().faults.throwText(point, kFailure, passage);
      call();
      return !platform().faults.isPending();
    });
  }
}

TEST_P(FailingOperations, tellOfWhatThePlatformThrowsAgainstItsRules) {
  for (const Point point : kPoints) {
    SCOPED_TRACE(nameOf(point));
    expectEveryFailureToBeTold([point](int passage, const std::function<void()>& call) {
      platform().faults.throwOther(point, passage);
      call();
      return !platform().faults.isPending();
    });
  }
}

INSTANTIATE_TEST_SUITE_P(, FailingOperations, testing::ValuesIn(kOperations),
                         [](const auto& operation) { return std::string(operation.param.label); });

}  // namespace

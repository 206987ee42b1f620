// Entities, named objects and address groups, from the library to real databases and back.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AddressGroup.h"
#include "EntityUtils.h"
#include "RdbmsInterface.h"
#include "ZaroNamedObj.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/LastFailure.h"
#include "support/LibraryTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using ZARO::RdbmsInterface;

constexpr auto kWords = static_cast<ZaroNamedObj::NaObjType>(1);
constexpr unsigned int kHighestId = 4294967294u;

std::string literal(const std::string& text) {
  return zaroruntime::sqlLiteral(text);
}

class Entities : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  // Administrators 1 (the root), 2 and 3; entities 1 *@*.example.test, 2 *@a.example.test, 3 *@other.test, 4 office.
  void SetUp() override {
    OnEveryDatabaseWithLibrary::SetUp();
    if (IsSkipped()) {
      return;
    }
    const auto session = home().session();
    session->run(
        "INSERT INTO administrator (name, is_root) VALUES ('root', 1), ('all', 0), ('department', 0), ('new', 0)");
    session->run(
        "INSERT INTO entity (name, type) VALUES ('*@*.example.test', 6), ('*@a.example.test', 6), ('*@other.test', 6), "
        "('office', 0)");
    session->run("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (2, 1), (2, 4), (3, 2)");
  }

  // What was logged as an error or a warning.
  std::vector<std::string> complaints() const {
    std::vector<std::string> lines;
    std::istringstream text(log());
    for (std::string line; std::getline(text, line);) {
      if (line.find(" trace: ") == std::string::npos) {
        lines.push_back(line);
      }
    }
    return lines;
  }

  // Runs `body` with the library ready, in a process of its own.
  void withLibrary(const std::function<void()>& body) const {
    inOwnProcess([&] {
      ASSERT_TRUE(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr));
      body();
    });
  }

  static unsigned int add(unsigned int adminId, const std::string& name, const std::string& content,
                          ZaroNamedObj::NaObjType type = kWords) {
    RdbmsInterface db;
    unsigned int id = 0;
    EXPECT_TRUE(ZaroNamedObj::add(db, adminId, name.c_str(), content.c_str(), type, id));
    return id;
  }
  static std::vector<std::string> listed(unsigned int adminId, ZaroNamedObj::NaObjType type = kWords) {
    RdbmsInterface db;
    std::vector<SummaryNamedObject> summaries;
    EXPECT_TRUE(ZaroNamedObj::getIds(db, adminId, type, summaries));
    std::vector<std::string> texts;
    for (const SummaryNamedObject& one : summaries) {
      texts.push_back(one.name + (one.editable ? " e" : "") + (one.deletable ? "d" : ""));
    }
    return texts;
  }
  static int remove(unsigned int adminId, unsigned int id) {
    RdbmsInterface db;
    return ZaroNamedObj::remove(db, id, adminId);
  }
  static std::string contentOf(unsigned int id) {
    RdbmsInterface db;
    std::string content;
    std::string name;
    return ZaroNamedObj::getBlob(db, id, content, name) ? name + "=" + content : "nothing";
  }

  static std::vector<std::string> membersOf(unsigned int groupId) {
    std::vector<AddressGroup::AddressGroupMember> members;
    EXPECT_EQ(AddressGroup::getAddressGroupMembersByID(groupId, members), 0);
    std::vector<std::string> addresses;
    addresses.reserve(members.size());
    for (const auto& member : members) {
      addresses.push_back(member.second);
    }
    return addresses;
  }
  static std::vector<AddressGroup::AddressGroupMember> members(const std::vector<std::string>& addresses) {
    std::vector<AddressGroup::AddressGroupMember> made;
    for (const std::string& address : addresses) {
      made.push_back({0, address});
    }
    return made;
  }
  static void addGroup(unsigned int adminId, const char* name, unsigned int entityId,
                       const std::vector<std::string>& addresses) {
    auto list = members(addresses);
    EXPECT_EQ(AddressGroup::addAddressGroup(adminId, name, entityId, list), 0);
  }
  static void changeGroup(unsigned int id, const char* name, const std::vector<std::string>& addresses) {
    auto list = members(addresses);
    EXPECT_EQ(AddressGroup::modifyAddressGroup(id, name, list), 0);
  }
  unsigned int idOf(const std::string& name) const {
    return static_cast<unsigned int>(std::stoul(home().value("SELECT id FROM named_object WHERE name=" + literal(name))));
  }
  std::string ownersOf(unsigned int id) const {
    std::string owners;
    RdbmsInterface db;
    std::vector<unsigned int> ids;
    EXPECT_TRUE(ZaroNamedObj::getEntityIds(db, ids, id));
    for (const unsigned int owner : ids) {
      owners += std::to_string(owner) + " ";
    }
    return owners;
  }
};

// --- Entities ---

TEST_P(Entities, areReadWithNumberTypeAndName) {
  withLibrary([&] {
    RdbmsInterface db;
    std::vector<GroupEntity> own;
    EXPECT_EQ(EntityUtils::getEntity(db, 2, own), 0);
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[0].name + " " + own[1].name, "*@*.example.test office");
    EXPECT_EQ(own[0].type * 10 + own[1].type, 60);
    EXPECT_EQ(own[0].id * 10 + own[1].id, 14u);
    std::set<GroupEntity, GroupEntityCmp> all;
    EXPECT_EQ(EntityUtils::getAllEntities(db, all), 0);
    EXPECT_EQ(all.size(), 4u);
    std::set<GroupEntity, GroupEntityCmp> wildcards;
    EXPECT_EQ(EntityUtils::_getAllEntitiesOfSameType(db, GroupEntity::Wildcard, wildcards), 0);
    EXPECT_EQ(wildcards.size(), 3u);
    EXPECT_TRUE(EntityUtils::isAdminRoot(db, 1));
    EXPECT_FALSE(EntityUtils::isAdminRoot(db, 2));
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

TEST_P(Entities, highestIdentifiersComeThrough) {
  home().sql("INSERT INTO administrator (id, name) VALUES (4294967294, 'last')");
  home().sql("INSERT INTO entity (id, name, type) VALUES (4294967294, 'last', 0)");
  home().sql("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (4294967294, 4294967294)");
  withLibrary([&] {
    RdbmsInterface db;
    std::vector<GroupEntity> own;
    EXPECT_EQ(EntityUtils::getEntity(db, kHighestId, own), 0);
    ASSERT_EQ(own.size(), 1u);
    EXPECT_EQ(own[0].id, kHighestId);
    const unsigned int id = add(kHighestId, "object", "");
    EXPECT_EQ(ownersOf(id), "4294967294 ");
    EXPECT_EQ(remove(kHighestId, id), 0);
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

// --- Named objects ---

TEST_P(Entities, objectsAreStoredAndReadBackWhateverTheyHold) {
  const std::string texts[] = {"plain",       "o'brien",
                               "100%s %d %%", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xA7",
                               "a;b--c",      "back\\slash \"quoted\"",
                               "line\nline",  std::string(512, 'x')};
  withLibrary([&] {
    for (const std::string& text : texts) {
      const unsigned int id = add(2, text, text);
      EXPECT_EQ(contentOf(id), text + "=" + text);
      EXPECT_EQ(ownersOf(id), "1 4 ");
    }
    for (const std::size_t size : {8000u, 9000u, 5000000u}) {
      const std::string content = std::string(size - 2, 'c') + "'%";
      const unsigned int id = add(2, "big", content);
      EXPECT_TRUE(contentOf(id) == "big=" + content) << size;
      RdbmsInterface db;
      EXPECT_TRUE(ZaroNamedObj::modify(db, id, 2, "bigger", (content + "c").c_str(), kWords));
      EXPECT_TRUE(contentOf(id) == "bigger=" + content + "c") << size;
    }
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

TEST_P(Entities, dataThatFitsNoBufferIsRefusedAndNothingStored) {
  withLibrary([&] {
    RdbmsInterface db;
    EXPECT_EQ(ZaroNamedObj::addObj(db, "n", std::string(8200, 'c').c_str(), kWords), 4294967295u);
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object"), "0");
  EXPECT_THAT(log(), HasSubstr("ZaroNamedObj::addObj: Exception"));
}

TEST_P(Entities, statementsFitTheirBuffersWithTheLongestData) {
  const auto lowest = static_cast<ZaroNamedObj::NaObjType>(-2147483647 - 1);
  const std::string name(500, 'n');
  withLibrary([&] {
    RdbmsInterface db;
    const std::string content(9000, 'c');
    const unsigned int id = ZaroNamedObj::addObj(db, name.c_str(), content.c_str(), lowest);
    EXPECT_NE(id, 4294967295u);
    EXPECT_EQ(ZaroNamedObj::modifyObj(db, name.c_str(), content.c_str(), lowest, kHighestId), 0);
    EXPECT_FALSE(
        ZaroNamedObj::getBlob(db, kHighestId, *std::make_unique<std::string>(), *std::make_unique<std::string>()));
    EXPECT_TRUE(ZaroNamedObj::_isDeletability(db, kHighestId));
    EXPECT_EQ(remove(1, kHighestId), 6022);
    changeGroup(kHighestId, (name + std::string(12, '\'')).c_str(), {"a"});
  });
  EXPECT_THAT(log(), Not(HasSubstr("does not fit")));
  EXPECT_THAT(log(), HasSubstr("no such address group"));
}

TEST_P(Entities, visibilityFollowsOwnersAndPatterns) {
  withLibrary([&] {
    add(2, "all's", "");
    add(3, "department's", "");
    const unsigned int shared = add(2, "shared", "");
    RdbmsInterface db;
    GroupEntity other;
    other.id = 3;
    std::vector<GroupEntity> others = {other};
    EXPECT_TRUE(ZaroNamedObj::addEntityNamedObjIds(db, shared, kWords, others));
    EXPECT_THAT(listed(1), ElementsAre("all's e", "department's e", "shared e"));
    EXPECT_THAT(listed(2), ElementsAre("all's ed", "department's ed", "shared"));
    EXPECT_THAT(listed(3), ElementsAre("all's", "department's ed", "shared"));
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

TEST_P(Entities, objectsWithoutOwnersAreForTheRoot) {
  withLibrary([&] {
    add(2, "b", "");
    RdbmsInterface db;
    ZaroNamedObj::addObj(db, "a", "", kWords);
    ZaroNamedObj::addObj(db, "other type", "", ZaroNamedObj::QuarantineArea);
    EXPECT_THAT(listed(1), ElementsAre("a e", "b e"));
    EXPECT_THAT(listed(2), ElementsAre("b ed"));
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

TEST_P(Entities, objectsGoUnlessTheyAreUsedOrForeign) {
  withLibrary([&] {
    const unsigned int used = add(2, "used", "");
    const unsigned int quarantine = add(2, "quarantine", "", ZaroNamedObj::QuarantineArea);
    const unsigned int departments = add(3, "department's", "");
    home().sql("INSERT INTO policy_rule (name, quarantine_id) VALUES ('r', " + std::to_string(quarantine) + ")");
    home().sql("INSERT INTO policy_rule_object (rule_id, object_id) VALUES (1, " + std::to_string(used) + ")");
    EXPECT_EQ(remove(2, used), 6025);
    EXPECT_EQ(remove(1, quarantine), 6025);
    EXPECT_EQ(remove(2, departments), 6024) << "listed as editable, but not owned directly";
    EXPECT_THAT(listed(2), ElementsAre("department's ed", "used e"));
    EXPECT_EQ(remove(3, departments), 0);
    EXPECT_EQ(remove(3, departments), 6022);
    home().sql("DELETE FROM policy_rule");
    EXPECT_EQ(remove(2, used), 0);
    EXPECT_EQ(remove(1, quarantine), 0);
  });
  EXPECT_THAT(complaints(), IsEmpty());
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object_owner"), "0");
}

TEST_P(Entities, objectThatCameIntoUseMeanwhileStays) {
  unsigned int id = 0;
  withLibrary([&] { id = add(2, "x", ""); });
  id = idOf("x");
  home().sql("INSERT INTO policy_rule (name, quarantine_id) VALUES ('r', " + std::to_string(id) + ")");
  // The look for rules that comes before it sees none.
  home().directory().write("sql/ui_GetNamedObjRule.sql",
                           "SELECT id AS \"RuleID\" FROM policy_rule WHERE quarantine_id=%u AND id=%u AND 1=0");
  withLibrary([&] { EXPECT_EQ(remove(2, id), 6023); });
  EXPECT_EQ(idOf("x"), id);
}

// --- Quarantine areas ---

TEST_P(Entities, quarantineAreasComeWithContentsAndTheSystemsLast) {
  withLibrary([&] {
    add(2, "beta", "b", ZaroNamedObj::QuarantineArea);
    add(2, "Alpha", "a", ZaroNamedObj::QuarantineArea);
    add(2, "OPP:system", "s", ZaroNamedObj::QuarantineArea);
    RdbmsInterface db;
    std::vector<QuarantineData> areas;
    EXPECT_TRUE(ZaroNamedObj::getEditableQuanantineData(db, 2, areas));
    std::vector<std::string> texts;
    for (const QuarantineData& area : areas) {
      texts.push_back(area.name + "=" + area.content + (area.editable ? " e" : ""));
    }
    EXPECT_THAT(texts, ElementsAre("Alpha=a e", "beta=b e", "OPP:system=s"));
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

// --- Address groups ---

TEST_P(Entities, groupsKeepTheirMembersInOrder) {
  withLibrary([&] {
    addGroup(2, "sales", 0, {"b@b.test", "a@a.test", "b@b.test", "\xC3\xA4@\xC3\xB6.test", "back\\slash\"@b.test"});
    const unsigned int id = idOf("sales");
    EXPECT_THAT(membersOf(id),
                ElementsAre("b@b.test", "a@a.test", "b@b.test", "\xC3\xA4@\xC3\xB6.test", "back\\slash\"@b.test"));
    EXPECT_EQ(ownersOf(id), "1 4 ");
    changeGroup(id, "o'sales", {"c@c.test"});
    EXPECT_THAT(membersOf(id), ElementsAre("c@c.test"));
    EXPECT_EQ(idOf("o'sales"), id);
    changeGroup(id, "sales", {});
    EXPECT_THAT(membersOf(id), IsEmpty());
    EXPECT_EQ(AddressGroup::deleteAddressGroupByID(id), 0);
    EXPECT_EQ(AddressGroup::deleteAddressGroupByID(id), 0);
  });
  EXPECT_THAT(complaints(), IsEmpty());
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object"), "0");
}

TEST_P(Entities, emptyMembersAreRefused) {
  const std::vector<std::string> lists[] = {{""}, {"", ""}, {"", "b@b.test"}, {"b@b.test", ""}};
  withLibrary([&] {
    addGroup(2, "sales", 0, {"a@a.test"});
    const unsigned int id = idOf("sales");
    for (const auto& list : lists) {
      changeGroup(id, "changed", list);
      addGroup(2, "added", 0, list);
      EXPECT_THAT(membersOf(id), ElementsAre("a@a.test")) << list.size() << " members, the last " << list.back();
    }
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object WHERE name <> 'sales'"), "0");
}

TEST_P(Entities, groupBelongsToOneEntityOrToAll) {
  withLibrary([&] {
    addGroup(2, "one", 4, {});
    EXPECT_EQ(ownersOf(idOf("one")), "4 ");
    addGroup(1, "root's", 3, {});
    EXPECT_EQ(ownersOf(idOf("root's")), "3 ");
  });
  EXPECT_THAT(complaints(), IsEmpty());
  withLibrary([&] {
    addGroup(3, "foreign", 4, {"a"});
    addGroup(4, "nobody's", 0, {"a"});
    addGroup(1, "nobody's", 99, {"a"});
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object"), "2");
  EXPECT_EQ(home().value("SELECT count(*) FROM address_group_member"), "0");
}

TEST_P(Entities, membersThatBreakOutOfTheirLiteralAreRefused) {
  const char* attempts[] = {"'||(SELECT name FROM administrator)||'", "x'); DELETE FROM named_object; --", "'", "a''b'c"};
  withLibrary([&] {
    addGroup(2, "g", 0, {"kept@b.test"});
    const unsigned int id = idOf("g");
    for (const char* attempt : attempts) {
      changeGroup(id, "g", {attempt});
      EXPECT_THAT(membersOf(id), ElementsAre("kept@b.test")) << attempt;
    }
    changeGroup(id, "g", {"o''brien@b.test"});
    EXPECT_THAT(membersOf(id), ElementsAre("o'brien@b.test"));
  });
  EXPECT_THAT(log(), HasSubstr("a quote that is not doubled"));
}

TEST_P(Entities, textsThatAreNotUtf8AreRefused) {
  withLibrary([&] {
    addGroup(2, "g", 0, {"kept@b.test"});
    const unsigned int id = idOf("g");
    changeGroup(id, "g", {"caf\xe9@b.test"});
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("the statement is not text in UTF-8"));
    changeGroup(id, "caf\xe9", {"other@b.test"});
    EXPECT_THAT(membersOf(id), ElementsAre("kept@b.test"));
    RdbmsInterface db;
    unsigned int newId = 0;
    EXPECT_FALSE(ZaroNamedObj::add(db, 2, "name", "\xed\xa0\x80", kWords, newId));
    EXPECT_FALSE(ZaroNamedObj::add(db, 2, "\xc0\xaf", "content", kWords, newId));
  });
  EXPECT_THAT(log(), HasSubstr(" error: AddressGroup::addAddressGroup Exception \"the statement is not text in UTF-8: "));
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object"), "1");
}

// Operations with a connection of their own, called inside a transaction that has written. The database is told not to
// wait long, since nobody else can end that transaction.
TEST_P(Entities, ownConnectionsStayOutsideTheCallersTransaction) {
  const bool isSqlite = home().dialect() == zarotest::Dialect::SQLite;
  if (isSqlite) {
    const std::string path = home().directory().path("config/odbc.ini");
    zaroruntime::IniFile ini(path);
    ini.set("zaro", "Timeout", "50");
    ini.write(path, 0644);
  } else {
    home().sql("ALTER DATABASE " + home().settings().database + " SET lock_timeout=100");
  }
  withLibrary([&] {
    addGroup(2, "touched", 0, {"kept@b.test"});
    addGroup(2, "other", 0, {"kept@b.test"});
    const unsigned int touched = idOf("touched");
    const unsigned int other = idOf("other");
    RdbmsInterface db;
    ASSERT_TRUE(db.startTransaction());
    db.executeSQL("INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (1, 'P', '192.0.2.1', 5060)");
    db.executeSQL(("UPDATE named_object SET name='mine' WHERE id=" + std::to_string(touched)).c_str());
    EXPECT_NE(ZaroNamedObj::addObj(db, "OPP:system", "s", ZaroNamedObj::QuarantineArea), kHighestId + 1);

    std::vector<PolicyServerInfo> servers;
    EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), 0);
    EXPECT_THAT(servers, IsEmpty()) << "what is not committed is not seen";
    QuarantineData area;
    EXPECT_EQ(ZaroNamedObj::getOPPQuarantineArea(db, area), 1002) << "whichever connection is handed over";
    EXPECT_THAT(membersOf(touched), ElementsAre("kept@b.test"));

    changeGroup(touched, "touched", {"new@b.test"});
    EXPECT_THAT(membersOf(touched), ElementsAre("kept@b.test")) << "which waits for what never comes";
    changeGroup(other, "other", {"new@b.test"});
    EXPECT_THAT(membersOf(other), ElementsAre(isSqlite ? "kept@b.test" : "new@b.test")) << "SQLite has one writer";
    EXPECT_TRUE(db.commitTransaction());
    EXPECT_EQ(ZaroNamedObj::getOPPQuarantineArea(db, area), 0);
  });
  EXPECT_THAT(log(), HasSubstr(isSqlite ? "database is locked" : "due to lock timeout"));
}

TEST_P(Entities, hundredThousandMembersComeBackInOrder) {
  constexpr int kMembers = 100000;
  std::vector<std::string> addresses;
  addresses.reserve(kMembers);
  for (int i = 0; i < kMembers; ++i) {
    addresses.push_back("user" + std::to_string(i * 7919 % kMembers) + "@department.example.test");
  }
  withLibrary([&] {
    addGroup(2, "big", 0, addresses);
    EXPECT_TRUE(membersOf(idOf("big")) == addresses);
    std::reverse(addresses.begin(), addresses.end());
    changeGroup(idOf("big"), "big", addresses);
    EXPECT_TRUE(membersOf(idOf("big")) == addresses);
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

TEST_P(Entities, writersOfOneGroupNeverMixTheirLists) {
  constexpr int kWriters = 8;
  constexpr int kWrites = 10;
  constexpr int kMembers = 50;
  withLibrary([&] {
    addGroup(2, "g", 0, {});
    const unsigned int id = idOf("g");
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    const auto look = [&] {
      const auto now = membersOf(id);
      const bool whole =
          now.empty() || (now.size() == kMembers && std::count(now.begin(), now.end(), now[0]) == kMembers);
      torn += whole ? 0 : 1;
    };
    std::vector<std::thread> writers;
    for (int number = 0; number < kWriters; ++number) {
      writers.emplace_back([&, number] {
        for (int i = 0; i < kWrites; ++i) {
          changeGroup(id, "g", std::vector<std::string>(kMembers, "writer" + std::to_string(number) + "@b.test"));
        }
      });
    }
    std::thread reader([&] {
      while (!done) {
        look();
      }
    });
    for (std::thread& writer : writers) {
      writer.join();
    }
    done = true;
    reader.join();
    look();
    EXPECT_EQ(torn, 0);
  });
  EXPECT_THAT(complaints(), IsEmpty());
}

ZARO_ON_EVERY_DATABASE(Entities);

}  // namespace

// Every statement of entities, named objects and address groups within the buffer that its operation gives it: formed
// from the widest numbers and the longest texts that the rule for its size leaves room for, and run.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "KxSqlLoader.h"
#include "RdbmsInterface.h"
#include "support/LibraryTest.h"

namespace {

using ZARO::RdbmsInterface;

constexpr unsigned int kWideId = 4294967000u;  // as wide as any, and leaves higher ones for new objects
constexpr int kLowestType = -2147483647 - 1;
constexpr int kFixedSize = 8192;
constexpr int kLongestInFixed = 8291;
constexpr int kRoomForTheRest = 100;

std::string doubled(int quotes) {
  return std::string(2 * static_cast<std::size_t>(quotes), '\'');
}
std::string filler(int size) {
  return std::string(static_cast<std::size_t>(size), 'c');
}

class StatementSizes : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  // The widest administrator, entity and object there can be, which are each other's.
  void SetUp() override {
    OnEveryDatabaseWithLibrary::SetUp();
    if (IsSkipped()) {
      return;
    }
    const auto session = home().session();
    session->run("INSERT INTO administrator (id, name, is_root) VALUES (4294967000, 'last', 0)");
    session->run("INSERT INTO entity (id, name, type) VALUES (4294967000, '*@last.test', 6)");
    session->run("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (4294967000, 4294967000)");
    addObject(5);
  }

  void addObject(int type) const {
    home().sql("DELETE FROM named_object WHERE id=4294967000");
    home().sql("INSERT INTO named_object (id, type, name, content) VALUES (4294967000, " + std::to_string(type) +
               ", 'n', 'c')");
  }
  void withLibrary(const std::function<void()>& body) const {
    inOwnProcess([&] {
      ASSERT_TRUE(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr));
      body();
    });
  }

  // The length of the statement as formed within `size` bytes; -1 when the loader refuses.
  template <typename... Parameters>
  static int length(const char* file, int size, Parameters... parameters) {
    std::vector<char> buffer(static_cast<std::size_t>(size));
    try {
      KxSqlLoader(RdbmsInterface::GetSqlPath()).loadSQL(buffer.data(), size, file, parameters...);
    } catch (const char*) {
      return -1;
    }
    return static_cast<int>(std::string(buffer.data()).size());
  }
  // Forms and executes it; a failure of either fails the test.
  template <typename... Parameters>
  static void run(const char* file, int size, Parameters... parameters) {
    std::vector<char> buffer(static_cast<std::size_t>(size));
    RdbmsInterface db;
    try {
      KxSqlLoader(RdbmsInterface::GetSqlPath()).loadSQL(buffer.data(), size, file, parameters...);
      db.executeSQL(buffer.data());
    } catch (const char* thrown) {
      ADD_FAILURE() << file << " in " << size << " bytes: " << thrown;
    }
  }
  // One of fixed size, without texts. It is refused in a buffer without room for its terminator, so `size` is what
  // keeps a longer file out.
  template <typename... Parameters>
  void fits(const char* file, int size, Parameters... parameters) const {
    const int formed = length(file, size, parameters...);
    ASSERT_GT(formed, 0) << file;
    EXPECT_EQ(length(file, formed + 1, parameters...), formed) << file;
    EXPECT_EQ(length(file, formed, parameters...), -1) << file;
    show(file, formed);
    run(file, size, parameters...);
  }

  // Adds a row to the table that is printed behind the test: statement, size of the file, length as formed without the
  // texts.
  void show(const char* file, int formed) const {
    const std::string text = zarotest::readFile(home().directory().path(std::string("sql/") + file));
    std::ofstream(home().directory().path("sizes"), std::ios::app)
        << "| `" << file << "` | " << text.size() << " | " << formed << " |\n";
  }
  void TearDown() override {
    if (!IsSkipped()) {
      std::cout << zarotest::readFile(home().directory().path("sizes"));
    }
  }
};

TEST_P(StatementSizes, numbersOfAnyWidthFit) {
  withLibrary([&] {
    fits("ui_GetAdminEntityById.sql", 512, kWideId);
    fits("ui_GetAllEntities.sql", 512);
    fits("ui_GetEntitiesByType.sql", 512, kLowestType);
    fits("ui_IsAdminRoot_Id.sql", 512, kWideId);
    fits("ui_AddEntityNamedObj.sql", 256, kWideId, kWideId, 5);
    // No object has that type here, so it is formed only.
    const int widest = length("ui_AddEntityNamedObj.sql", 256, kWideId, kWideId, kLowestType);
    EXPECT_GT(widest, 0);
    show("ui_AddEntityNamedObj.sql", widest);
    fits("ui_GetNamedObjRule.sql", 256, kWideId, kWideId);
    fits("ui_GetEntityId4NamedObj.sql", 256, kWideId);
    fits("ui_GetNamedObjBlob.sql", 256, kWideId);
    fits("ui_GetEntityNamedObj.sql", 512, kLowestType, kLowestType);
    fits("ui_GetNamedObjByType.sql", 512, kLowestType);
    fits("ui_GetMemberAddressByAGId.sql", 8192, kWideId);
    fits("ui_RemoveAddressgroup.sql", 8192, kWideId);
    fits("ui_RemoveNamedObj.sql", 512, kWideId, kWideId);
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object"), "0") << "removed by the last but one";
}

TEST_P(StatementSizes, transactionStatementsFit) {
  withLibrary([&] {
    for (const char* file : {"ui_StartTransaction.sql", "ui_CommitTransaction.sql", "ui_RollbackTransaction.sql"}) {
      show(file, length(file, 256));
    }
    RdbmsInterface committed;
    EXPECT_TRUE(committed.startTransaction());
    EXPECT_TRUE(committed.commitTransaction());
    RdbmsInterface rolledBack;
    EXPECT_TRUE(rolledBack.startTransaction());
  });
  EXPECT_EQ(log().find(" error: "), std::string::npos) << log();
}

TEST_P(StatementSizes, objectsFillTheirFixedBuffer) {
  addObject(kLowestType);
  withLibrary([&] {
    const int addWords = length("ui_AddNamedObj.sql", kFixedSize, kLowestType, "", "");
    const int modifyWords = length("ui_ModifyNamedObj.sql", kFixedSize, kLowestType, "", "", kWideId);
    const std::string name = filler(500);
    const std::string added = filler(kFixedSize - 1 - addWords - 500);
    const std::string modified = filler(kFixedSize - 1 - modifyWords - 500);
    run("ui_AddNamedObj.sql", kFixedSize, kLowestType, name.c_str(), added.c_str());
    run("ui_ModifyNamedObj.sql", kFixedSize, kLowestType, name.c_str(), modified.c_str(), kWideId);
    EXPECT_EQ(length("ui_AddNamedObj.sql", kFixedSize, kLowestType, name.c_str(), (added + "c").c_str()), -1);
    EXPECT_EQ(length("ui_ModifyNamedObj.sql", kFixedSize, kLowestType, name.c_str(), (modified + "c").c_str(), kWideId),
              -1);
    show("ui_AddNamedObj.sql", addWords);
    show("ui_ModifyNamedObj.sql", modifyWords);
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object WHERE length(content)>7500"), "2");
}

TEST_P(StatementSizes, longObjectsFitWhateverTheirLength) {
  addObject(kLowestType);
  withLibrary([&] {
    for (const int texts : {kLongestInFixed + 1, 100000, 5000000}) {
      const int size = texts + kRoomForTheRest;
      const std::string name = filler(500);
      const std::string content = filler(texts - 500 - 2) + doubled(1);
      run("ui_AddNamedObj.sql", size, kLowestType, name.c_str(), content.c_str());
      run("ui_ModifyNamedObj.sql", size, kLowestType, name.c_str(), content.c_str(), kWideId);
      EXPECT_LT(length("ui_AddNamedObj.sql", size, kLowestType, name.c_str(), content.c_str()), size);
    }
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM named_object WHERE length(content)>7500"), "4");
}

TEST_P(StatementSizes, groupsFitWithAsManyQuotesInTheirNamesAsTheRoomLeaves) {
  withLibrary([&] {
    const std::string list = "<mas><ma>a@b.test</ma><ma>c@b.test</ma></mas>";
    const int addWords = length("ui_AddAddressgroup.sql", kFixedSize, kWideId, "", kWideId, "");
    const int modifyWords = length("ui_ModifyAddressgroup.sql", kFixedSize, kWideId, "", "");
    const auto sizeFor = [&](int quotes) { return quotes + static_cast<int>(list.size()) + kRoomForTheRest; };
    const int addQuotes = kRoomForTheRest - 1 - addWords;
    const int modifyQuotes = kRoomForTheRest - 1 - modifyWords;
    run("ui_AddAddressgroup.sql", sizeFor(addQuotes), kWideId, doubled(addQuotes).c_str(), kWideId, list.c_str());
    run("ui_ModifyAddressgroup.sql", sizeFor(modifyQuotes), kWideId, doubled(modifyQuotes).c_str(), list.c_str());
    EXPECT_EQ(length("ui_AddAddressgroup.sql", sizeFor(addQuotes + 1), kWideId, doubled(addQuotes + 1).c_str(), kWideId,
                     list.c_str()),
              -1);
    EXPECT_EQ(length("ui_ModifyAddressgroup.sql", sizeFor(modifyQuotes + 1), kWideId, doubled(modifyQuotes + 1).c_str(),
                     list.c_str()),
              -1);
    show("ui_AddAddressgroup.sql", addWords);
    show("ui_ModifyAddressgroup.sql", modifyWords);
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM address_group_member"), "4");
}

ZARO_ON_EVERY_DATABASE(StatementSizes);

}  // namespace

// A console asks for its lists as long as it runs: what is kept of each question, and that nothing falls over it later.
// ZARO_REPETITIONS says how often; 2000 times by default.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "EntityUtils.h"
#include "KxWildcardEmail.h"
#include "RdbmsInterface.h"
#include "ZaroNamedObj.h"
#include "support/LibraryTest.h"
#include "support/ProcessTest.h"

namespace {

using EntitySet = std::set<GroupEntity, GroupEntityCmp>;
using ZARO::RdbmsInterface;

constexpr auto kWords = static_cast<ZaroNamedObj::NaObjType>(1);

int repetitions() {
  const char* text = std::getenv("ZARO_REPETITIONS");
  return text != nullptr ? std::atoi(text) : 2000;
}

long bytesInUse() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 0;  // the leak check at the end of the process looks instead
#else
  return static_cast<long>(mallinfo2().uordblks);
#endif
}

EntitySet thousandPatterns() {
  EntitySet entities;
  for (int i = 0; i < 1000; ++i) {
    GroupEntity entity;
    entity.name = "*@d" + std::to_string(i) + ".example.test";
    entities.insert(entity);
  }
  return entities;
}

EntitySet candidates() {
  EntitySet entities;
  for (const char* name : {"*@*.example.test", "*@a.example.test", "*@b.example.test", "user@a.example.test"}) {
    GroupEntity entity;
    entity.name = name;
    entity.type = GroupEntity::Wildcard;
    entity.id = static_cast<unsigned int>(entities.size()) + 1;
    entities.insert(entity);
  }
  return entities;
}

std::size_t relatives() {
  EntitySet all = candidates();
  EntitySet found;
  EXPECT_EQ(EntityUtils::getAllWildcardChildren("*@a.example.test", all, found, false), 0);
  EXPECT_EQ(EntityUtils::getAllWildcardParents("*@a.example.test", all, found, true), 0);
  EXPECT_EQ(EntityUtils::getAllLdapChildren("*@a.example.test", all, found, true), 0);
  EXPECT_EQ(EntityUtils::getAllLdapParents("*@a.example.test", all, found, true), 0);
  EXPECT_TRUE(EntityUtils::MemberOfWildCardGroup("*@a.example.test", "user@a.example.test"));
  return found.size();
}

std::size_t listed() {
  RdbmsInterface db;
  std::vector<SummaryNamedObject> summaries;
  EXPECT_TRUE(ZaroNamedObj::getIds(db, 1, kWords, summaries));
  return summaries.size();
}

class Repetition : public zarotest::DepartmentOnEveryDatabase {
 protected:
  void TearDown() override {
    if (!IsSkipped()) {
      std::cout << zarotest::readFile(home().directory().path("memory"));
    }
  }

  // Runs `question` over and over; the bytes that each of the last nine in ten left on the heap.
  template <typename Question>
  double bytesKept(const char* name, int all, Question question) const {
    const int first = all / 10;
    for (int i = 0; i < first; ++i) {
      question();
    }
    const long before = bytesInUse();
    for (int i = first; i < all; ++i) {
      question();
    }
    const double kept = static_cast<double>(bytesInUse() - before) / (all - first);
    std::ofstream(home().directory().path("memory"), std::ios::app)
        << name << ": " << kept << " bytes kept of each of " << all << "\n";
    return kept;
  }

  void inQuietProcess(const std::function<void()>& body) const {
    runInOwnProcess(
        [&] {
          setenv("ZARO_LOG", home().directory().path("log").c_str(), 1);
          setenv("ZARO_LOG_LEVEL", "2", 1);
          ASSERT_TRUE(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr));
          body();
        },
        900);
  }
};

TEST_P(Repetition, hierarchyAndListsStayRightAndKeepLittle) {
  inQuietProcess([&] {
    EXPECT_LT(bytesKept("hierarchy", repetitions(), [] { ASSERT_EQ(relatives(), 2u); }), 200.0);
    EXPECT_LT(bytesKept("getIds", repetitions(), [] { ASSERT_EQ(listed(), 3u); }), 200.0);
    EntitySet many = thousandPatterns();
    // 8 bytes for each label and each pattern of the tree.
    EXPECT_LT(bytesKept("parents among 1000 patterns", repetitions() / 20,
                        [&] {
                          EntitySet found;
                          ASSERT_EQ(EntityUtils::getAllWildcardParents("user@d1.example.test", many, found, false), 0);
                          ASSERT_EQ(found.size(), 1u);
                        }),
              30000.0);
    // Whatever a process may call next, with all that it has been keeping.
    KxWildcardEmail::initScanTimeMode();
    EXPECT_EQ(relatives(), 2u);
    EXPECT_EQ(listed(), 3u);
    RdbmsInterface::ReInit();
    EXPECT_EQ(listed(), 3u);
    // The process ends by std::exit, so that static objects go as well.
  });
  EXPECT_EQ(log(), "");
}

TEST_P(Repetition, processMayEndRightAfter) {
  inQuietProcess([&] {
    for (int i = 0; i < repetitions() / 10; ++i) {
      ASSERT_EQ(relatives() + listed(), 5u);
    }
  });
  EXPECT_EQ(log(), "");
}

ZARO_ON_EVERY_DATABASE(Repetition);

}  // namespace

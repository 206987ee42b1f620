// Two threads of a console that list objects and entities at once, while a third one matches on a frozen tree.
#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "EntityUtils.h"
#include "KxWildcardEmail.h"
#include "RdbmsInterface.h"
#include "ZaroNamedObj.h"
#include "support/LibraryTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using ZARO::RdbmsInterface;

constexpr int kListers = 2;
constexpr int kLists = 30;
constexpr unsigned int kAdmin = 1;
constexpr auto kWords = static_cast<ZaroNamedObj::NaObjType>(1);

class ListingThreads : public zarotest::DepartmentOnEveryDatabase {};

// "a b+ c+ |3": the objects, those that may be edited marked, and how many entities there are.
std::string listed() {
  RdbmsInterface db;
  std::vector<SummaryNamedObject> summaries;
  std::string text = ZaroNamedObj::getIds(db, kAdmin, kWords, summaries) ? "" : "failed ";
  for (const SummaryNamedObject& summary : summaries) {
    text += summary.name + (summary.editable ? "+ " : " ");
  }
  std::set<GroupEntity, GroupEntityCmp> entities;
  EntityUtils::getAllEntities(db, entities);
  return text + "|" + std::to_string(entities.size());
}

TEST_P(ListingThreads, listTheSameAsOneWhileAThirdMatches) {
  inOwnProcess([] {
    ASSERT_TRUE(RdbmsInterface::Init(kListers, nullptr, nullptr, nullptr, nullptr, nullptr));
    const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
    ASSERT_TRUE(tree->addAddressPattern("*@a.example.test", 1, nullptr, nullptr));
    KxWildcardEmail::initScanTimeMode();
    std::vector<KxWildcardNode*> trees = {tree.get()};
    std::atomic<int> listing{kListers};
    std::atomic<int> wrong{0};
    std::vector<std::thread> listers;
    for (int lister = 0; lister < kListers; ++lister) {
      listers.emplace_back([&] {
        for (int i = 0; i < kLists; ++i) {
          wrong += listed() != "a b+ c+ |3" ? 1 : 0;
        }
        --listing;
      });
    }
    do {
      const unsigned int code =
          KxWildcardEmail::matchEmailAddress("user@a.example.test", trees, nullptr, nullptr, nullptr);
      wrong += code != 1 ? 1 : 0;
    } while (listing > 0);
    for (std::thread& lister : listers) {
      lister.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(RdbmsInterface::ReInit(), 0);
  });
  EXPECT_THAT(log(), Not(HasSubstr(" error: ")));
}

ZARO_ON_EVERY_DATABASE(ListingThreads);

}  // namespace

// Several threads that ask which entities contain which, beside another one that matches.
#define PROCESS_TEST_SECONDS 300
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "EntityTest.h"
#include "KxWildcardEmail.h"
#include "ProcessTest.h"

namespace {

using scripted::platform;
using zarotest::EntitySet;
using zarotest::wildcards;

constexpr int kQuestions = 300;
constexpr int kAskers = 2;

EntitySet entities() {
  return wildcards({"*@*", "*@*.example.test", "*@a.example.test", "user@a.example.test", "*@b.test"});
}

// The names of both kinds of relatives of "*@a.example.test".
std::string relatives(const std::string& root) {
  EntitySet all = entities();
  EntitySet found;
  EntityUtils::getAllWildcardChildren(root.c_str(), all, found, false);
  EntityUtils::getAllWildcardParents(root.c_str(), all, found, false);
  std::string names;
  for (const GroupEntity& entity : found) {
    names += entity.name + " ";
  }
  return names;
}

// A question whose texts no other has, so that each brings new ones.
std::string oneOfMany(int thread, int question) {
  return "user" + std::to_string(question) + "@host" + std::to_string(thread) + ".a.example.test";
}

// Asks from several threads, and meanwhile has `beside` done, again and again, on one more.
void askBeside(const std::function<void()>& beside) {
  std::atomic<int> asking{kAskers};
  std::atomic<int> wrong{0};
  std::vector<std::thread> askers;
  for (int thread = 0; thread < kAskers; ++thread) {
    askers.emplace_back([&, thread] {
      for (int question = 0; question < kQuestions; ++question) {
        wrong += relatives("*@a.example.test") != "*@* *@*.example.test user@a.example.test " ? 1 : 0;
        wrong += relatives(oneOfMany(thread, question)) != "*@* *@*.example.test " ? 1 : 0;
      }
      --asking;
    });
  }
  do {
    beside();
  } while (asking > 0);
  for (std::thread& asker : askers) {
    asker.join();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_THAT(platform().log.texts(LogLevel::Error), testing::IsEmpty());
}

PROCESS_TEST(HierarchyThreads, askAtOnceInAProcessThatNeverFreezes) {
  askBeside([] { std::this_thread::yield(); });
}

PROCESS_TEST(HierarchyThreads, askWhileAnotherMatchesOnAFrozenTree) {
  const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
  ASSERT_TRUE(tree->addAddressPattern("*@a.example.test", 1, nullptr, nullptr));
  KxWildcardEmail::initScanTimeMode();
  std::vector<KxWildcardNode*> trees = {tree.get()};
  int undecided = 0;
  askBeside([&] {
    const unsigned int code = KxWildcardEmail::matchEmailAddress("user@a.example.test", trees, nullptr, nullptr, nullptr);
    undecided += code != 1 ? 1 : 0;
  });
  EXPECT_EQ(undecided, 0);
}

}  // namespace

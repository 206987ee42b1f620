// Many threads on the same frozen trees.
#define PROCESS_TEST_SECONDS 300
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AddressTexts.h"
#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "ProcessTest.h"
#include "scripted/Platform.h"

namespace {

using slow::Random;
using slow::randomAddressText;

constexpr unsigned int kThreads = 16;

// A run may ask for more.
std::chrono::seconds duration() {
  const char* wanted = std::getenv("ZARO_THREAD_SECONDS");
  return std::chrono::seconds(wanted != nullptr ? std::strtol(wanted, nullptr, 10) : 2);
}

std::string answerTo(const std::string& address, std::vector<KxWildcardNode*>& trees) {
  unsigned int tree = 0;
  const char* name = nullptr;
  KxEmailBelongsTo kind = 0;
  const unsigned int code = KxWildcardEmail::matchEmailAddress(address.c_str(), trees, &tree, &name, &kind);
  std::string answer = std::to_string(code) + " " + std::to_string(tree) + " " + (name != nullptr ? name : "-") + " " +
                       std::to_string(kind);
  for (KxWildcardNode* each : trees) {
    std::vector<KxListedEmailAddress*> found;
    for (const KxListedEmailAddress* leaf : each->findMatches(address.c_str(), found)) {
      answer.append(" ").append(leaf->getFullAddressAsStr());
    }
  }
  KxMatchExplanation explanation;
  KxWildcardEmail::explainEmailAddress(address.c_str(), trees, explanation);
  return answer + " " + std::to_string(explanation.candidates.size());
}

PROCESS_TEST(Threads, answersOfSixteenAreThoseOfOne) {
  static constexpr KxEmailBelongsTo kKinds[] = {1, 2, 4, 8, 16, 32};
  Random random(4);
  std::vector<std::unique_ptr<KxWildcardNode>> owned;
  std::vector<KxWildcardNode*> trees;
  for (int tree = 0; tree < 4; ++tree) {
    owned.emplace_back(KxWildcardEmail::makeNewTree());
    trees.push_back(owned.back().get());
    // The later ones decide at once, the earlier ones are searched all the way.
    const std::size_t highest = tree < 2 ? 3 : 5;
    for (int pattern = 0; pattern < 400; ++pattern) {
      const KxEmailBelongsTo kind = kKinds[tree < 2 ? 2 + slow::upTo(random, highest) : slow::upTo(random, highest)];
      trees.back()->addAddressPattern(randomAddressText(random).c_str(), kind, nullptr, nullptr);
    }
  }
  KxWildcardEmail::initScanTimeMode();

  std::vector<std::string> addresses;
  std::vector<std::string> want;
  for (int i = 0; i < 500; ++i) {
    addresses.push_back(randomAddressText(random));
    want.push_back(answerTo(addresses.back(), trees));
  }

  std::atomic<unsigned long> answers{0};
  std::atomic<unsigned long> wrong{0};
  const auto end = std::chrono::steady_clock::now() + duration();
  std::vector<std::thread> threads;
  for (unsigned int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      unsigned long ownAnswers = 0;
      for (std::size_t i = number; std::chrono::steady_clock::now() < end; ++i) {
        wrong += answerTo(addresses[i % addresses.size()], trees) != want[i % want.size()] ? 1 : 0;
        ++ownAnswers;
      }
      answers += ownAnswers;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0u);
  EXPECT_GE(answers, kThreads);
  std::printf("%lu answers\n", answers.load());
}

}  // namespace

// Decisions on many threads while the loader replaces the policy under them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "filter/FilterParts.h"
#include "loading/PolicyLoader.h"
#include "milter/Session.h"
#include "policy/PolicyMaker.h"
#include "support/TemporaryDirectory.h"

namespace {

// Version by version a policy that blocks "VERSION@bad.test" and allows everybody else there, so that a decision tells
// whether it was made by the one policy that its generation says.
MailPolicy policyOfVersion(std::uint64_t version) {
  PolicyMaker made;
  std::vector<std::string> blocked = {std::to_string(version) + "@bad.test"};
  for (int i = 0; i < 300; ++i) {
    blocked.push_back("more" + std::to_string(i) + "@*.v" + std::to_string(version) + ".test");
  }
  made.rule("block", blocked, 2, {"Delete"});
  made.rule("allow", {"*@bad.test"}, 1, {});
  made.policy().version = version;
  return made.policy();
}

class ChangingSource : public PolicySource {
 public:
  explicit ChangingSource(std::atomic<std::uint64_t>& version) : m_version(version) {}

  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    const std::uint64_t version = m_version;
    if (version == 0) {
      throw zaroruntime::RuntimeError("there is no policy");
    }
    return known != version ? std::optional(policyOfVersion(version)) : std::nullopt;
  }

 private:
  std::atomic<std::uint64_t>& m_version;
};

// Policies as they are given, and what was asked for.
class GivenSource : public PolicySource {
 public:
  struct State {
    std::atomic<std::uint64_t> version{1};
    std::atomic<bool> canBeApplied{true};
    std::atomic<bool> canBeRead{true};
    std::atomic<bool> canArrive{true};
    std::atomic<bool> databaseAnswers{true};
    std::atomic<unsigned int> looks{0};
    std::atomic<unsigned int> reads{0};
  };

  explicit GivenSource(State& state) : m_state(state) {}

  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    ++m_state.looks;
    const std::uint64_t version = m_state.version;
    if (known == version) {
      return std::nullopt;
    }
    ++m_state.reads;
    if (!m_state.canBeRead) {
      throw UnreadablePolicy("nonsense is stored", version);
    }
    MailPolicy policy = policyOfVersion(version);
    if (!m_state.canBeApplied) {
      policy.rules.front().name = "Broken rule";
      policy.rules.front().actions = actionBitmap({"Readdress"});
    }
    if (!m_state.canArrive) {
      return ArrivingPolicy(std::move(policy), [version]() -> std::optional<MemberPiece> {
        throw UnreadablePolicy("nonsense is stored", version);
      });
    }
    if (!m_state.databaseAnswers) {
      return ArrivingPolicy(std::move(policy), []() -> std::optional<MemberPiece> {
        throw zaroruntime::RuntimeError("the database has gone");
      });
    }
    return policy;
  }

 private:
  State& m_state;
};

// Does not answer until it is let go on.
class HangingSource : public PolicySource {
 public:
  explicit HangingSource(std::shared_future<void> goesOn) : m_goesOn(std::move(goesOn)) {}

  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> /*known*/) override {
    m_goesOn.wait();
    return policyOfVersion(8);
  }

 private:
  std::shared_future<void> m_goesOn;
};

// Holds a caller that knows its policy until it is interrupted.
class HoldingSource : public PolicySource {
 public:
  struct State {
    std::atomic<unsigned int> reads{0};
    std::atomic<bool> isHeld{false};
  };

  explicit HoldingSource(State& state) : m_state(state) {}

  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_state.isHeld = known.has_value();
    m_interruption.wait(lock, [&] { return !known || m_isInterrupted; });
    m_state.isHeld = false;
    if (std::exchange(m_isInterrupted, false)) {
      throw LoadInterrupted();
    }
    ++m_state.reads;
    return policyOfVersion(1);
  }

  void interrupt() override {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isInterrupted = true;
    m_interruption.notify_all();
  }

  std::optional<std::chrono::milliseconds> pause(bool /*hasFailed*/) const override {
    return std::chrono::milliseconds::zero();
  }

 private:
  State& m_state;
  std::mutex m_mutex;
  std::condition_variable m_interruption;
  bool m_isInterrupted = false;
};

constexpr std::chrono::seconds kPatience(60);

class ReloadTest : public testing::Test {
 protected:
  ReloadTest()
      : m_log(ServiceLog::Target::StandardError),
        m_lastGood(m_directory.path("state")),
        m_loader([this](auto) { return std::make_unique<ChangingSource>(m_version); }, m_lastGood,
                 std::chrono::seconds(3600), m_metrics, m_log) {}

  // There is a policy, or none was found, when the answer is ready.
  static std::future<void> start(PolicyLoader& loader) {
    const auto begun = std::make_shared<std::promise<void>>();
    loader.start([begun] { begun->set_value(); });
    return begun->get_future();
  }

  // Asks for a reload, and waits until the version decides.
  void reload(std::uint64_t version) {
    m_version = version;
    m_loader.requestReload();
    while (m_loader.policy().current() == nullptr || m_loader.policy().current()->version() != version) {
      std::this_thread::yield();
    }
  }

  // Waits until so many reloads have failed.
  void waitForFailures(int count) { waitForMetric("zaro_filter_reload_failures_total " + std::to_string(count)); }

  void waitForMetric(const std::string& sample) {
    while (m_metrics.text().find(sample + "\n") == std::string::npos) {
      std::this_thread::yield();
    }
  }

  // Decides without end; counts the decisions that are not those of the generation that was asked.
  void decideUntil(const std::atomic<bool>& end) {
    const MailFilterOptions options;
    while (!end) {
      const std::shared_ptr<const PolicyGeneration> generation = m_loader.policy().current();
      const std::string own = std::to_string(generation->version()) + "@bad.test";
      const std::string other = std::to_string(generation->version() + 1) + "@bad.test";
      const Decider decider(*generation, options);
      for (const auto& [sender, code] : {std::pair<std::string, unsigned int>(own, 2), {other, 1}, {"x@good.test", 0}}) {
        Question question;
        question.sender = sender;
        question.recipient = "somebody@example.test";
        m_wrong += decider.decide(question).code != code ? 1 : 0;
        ++m_decisions;
      }
    }
  }

  zarotest::TemporaryDirectory m_directory;
  std::atomic<std::uint64_t> m_version{0};
  std::atomic<unsigned long> m_wrong{0};
  std::atomic<unsigned long> m_decisions{0};
  ServiceLog m_log;
  FilterMetrics m_metrics;
  LastGoodPolicy m_lastGood;
  PolicyLoader m_loader;
};

TEST_F(ReloadTest, neverMixesPoliciesUnderThreads) {
  constexpr std::uint64_t kReloads = 50;
  m_version = 1;
  start(m_loader).wait();
  ASSERT_NE(m_loader.policy().current(), nullptr);
  std::atomic<bool> end{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] { decideUntil(end); });
  }
  for (std::uint64_t version = 2; version <= kReloads; ++version) {
    reload(version);
  }
  end = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(m_wrong, 0u);
  EXPECT_GT(m_decisions, 0u);
}

TEST_F(ReloadTest, keepsThePolicyWhenAReloadFails) {
  m_version = 1;
  start(m_loader).wait();
  m_version = 0;
  m_loader.requestReload();
  waitForFailures(1);
  ASSERT_NE(m_loader.policy().current(), nullptr);
  EXPECT_EQ(m_loader.policy().current()->version(), 1u);
  reload(2);
}

TEST_F(ReloadTest, decidesByTheLastGoodPolicyWithoutWaitingForTheSource) {
  m_lastGood.save(policyOfVersion(7));
  std::promise<void> goesOn;
  PolicyLoader loader([answer = goesOn.get_future().share()](auto) { return std::make_unique<HangingSource>(answer); },
                      m_lastGood, std::chrono::seconds(3600), m_metrics, m_log);
  start(loader).wait();
  ASSERT_NE(loader.policy().current(), nullptr);
  EXPECT_EQ(loader.policy().current()->version(), 7u);
  goesOn.set_value();
  while (loader.policy().current()->version() != 8) {
    std::this_thread::yield();
  }
}

TEST_F(ReloadTest, hasBegunWhenTheFirstAnswerIsThere) {
  std::promise<void> goesOn;
  PolicyLoader loader([answer = goesOn.get_future().share()](auto) { return std::make_unique<HangingSource>(answer); },
                      m_lastGood, std::chrono::seconds(3600), m_metrics, m_log);
  const std::future<void> begun = start(loader);
  EXPECT_EQ(loader.policy().current(), nullptr);
  goesOn.set_value();
  begun.wait();
  EXPECT_NE(loader.policy().current(), nullptr);
}

TEST_F(ReloadTest, tellsTheSourceWhatDecidesAlready) {
  m_lastGood.save(policyOfVersion(7));
  std::promise<std::optional<std::uint64_t>> told;
  m_version = 8;
  PolicyLoader loader(
      [&](auto decides) {
        told.set_value(decides);
        return std::make_unique<ChangingSource>(m_version);
      },
      m_lastGood, std::chrono::seconds(3600), m_metrics, m_log);
  start(loader).wait();
  EXPECT_EQ(told.get_future().get(), 7u);
}

class HeldReloadTest : public ReloadTest {
 protected:
  HeldReloadTest()
      : m_waiting([this](auto) { return std::make_unique<HoldingSource>(m_holding); }, m_lastGood,
                  std::chrono::seconds(3600), m_metrics, m_log) {}

  void waitUntilHeld() const {
    while (!m_holding.isHeld) {
      std::this_thread::yield();
    }
  }

  HoldingSource::State m_holding;
  PolicyLoader m_waiting;
};

TEST_F(HeldReloadTest, isDoneAtOnceWhenItIsAskedFor) {
  start(m_waiting).wait();
  for (unsigned int reads = 1; reads <= 20; ++reads) {
    waitUntilHeld();
    EXPECT_EQ(m_holding.reads, reads);
    m_waiting.requestReload();
    while (m_holding.reads == reads) {
      std::this_thread::yield();
    }
  }
}

TEST_F(HeldReloadTest, endsAtOnceWhenTheFilterDoes) {
  start(m_waiting).wait();
  waitUntilHeld();
  EXPECT_TRUE(m_waiting.stop(kPatience));
}

// A source that holds what cannot be used is polled without a pause.
class RefusedPolicyTest : public ReloadTest, public testing::WithParamInterface<std::atomic<bool> GivenSource::State::*> {
 protected:
  RefusedPolicyTest()
      : m_polling([this](auto) { return std::make_unique<GivenSource>(m_given); }, m_lastGood, std::chrono::seconds(0),
                  m_metrics, m_log) {}

  void waitForLooks(unsigned int more) {
    for (const unsigned int until = m_given.looks + more; m_given.looks < until;) {
      std::this_thread::yield();
    }
  }

  static unsigned int failuresIn(const std::string& log) {
    unsigned int count = 0;
    for (std::size_t at = 0; (at = log.find("the policy is not reloaded", at)) != std::string::npos; ++at) {
      ++count;
    }
    return count;
  }

  GivenSource::State m_given;
  PolicyLoader m_polling;
};

TEST_P(RefusedPolicyTest, isReadOnceUntilItIsAnotherOneOrAReloadIsAskedFor) {
  start(m_polling).wait();
  testing::internal::CaptureStderr();
  m_given.*GetParam() = false;
  m_given.version = 2;
  waitForMetric("zaro_filter_refused_generation 2");
  waitForLooks(5);
  EXPECT_EQ(m_given.reads, 2u);
  m_polling.requestReload();
  waitForFailures(2);
  waitForLooks(5);
  EXPECT_EQ(m_given.reads, 3u);
  EXPECT_EQ(m_polling.policy().current()->version(), 1u);
  m_given.*GetParam() = true;
  m_given.version = 3;
  waitForMetric("zaro_filter_refused_generation 0");
  EXPECT_EQ(m_polling.policy().current()->version(), 3u);
  EXPECT_EQ(failuresIn(testing::internal::GetCapturedStderr()), 2u);
}

INSTANTIATE_TEST_SUITE_P(Reasons, RefusedPolicyTest,
                         testing::Values(&GivenSource::State::canBeApplied, &GivenSource::State::canBeRead,
                                         &GivenSource::State::canArrive));

TEST_F(ReloadTest, readsAgainWhatCouldNotBeReadToItsEnd) {
  GivenSource::State given;
  PolicyLoader loader([&](auto) { return std::make_unique<GivenSource>(given); }, m_lastGood, std::chrono::seconds(0),
                      m_metrics, m_log);
  start(loader).wait();
  given.databaseAnswers = false;
  given.version = 2;
  while (given.reads < 4) {
    std::this_thread::yield();
  }
  EXPECT_EQ(loader.policy().current()->version(), 1u);
  EXPECT_NE(m_metrics.text().find("zaro_filter_refused_generation 0\n"), std::string::npos);
  given.databaseAnswers = true;
  while (loader.policy().current()->version() != 2) {
    std::this_thread::yield();
  }
}

TEST_F(ReloadTest, leavesAGenerationToTheMessageThatUsesIt) {
  m_version = 1;
  start(m_loader).wait();
  std::shared_ptr<const PolicyGeneration> used = m_loader.policy().current();
  reload(2);
  EXPECT_EQ(used->version(), 1u);
  used.reset();
  EXPECT_TRUE(m_loader.stop(std::chrono::seconds(60)));
  EXPECT_EQ(m_loader.policy().current(), nullptr);
}

}  // namespace

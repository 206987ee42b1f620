// Decisions on many threads while the loader replaces the policy under them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
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

  std::optional<MailPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    const std::uint64_t version = m_version;
    if (version == 0) {
      throw zaroruntime::RuntimeError("there is no policy");
    }
    return known != version ? std::optional(policyOfVersion(version)) : std::nullopt;
  }

 private:
  std::atomic<std::uint64_t>& m_version;
};

class ReloadTest : public testing::Test {
 protected:
  ReloadTest()
      : m_log(ServiceLog::Target::StandardError),
        m_lastGood(m_directory.path("state")),
        m_loader([this] { return std::make_unique<ChangingSource>(m_version); }, m_lastGood, std::chrono::seconds(3600),
                 m_metrics, m_log) {}

  // Asks for a reload, and waits until the version decides.
  void reload(std::uint64_t version) {
    m_version = version;
    m_loader.requestReload();
    while (m_loader.policy().current() == nullptr || m_loader.policy().current()->version() != version) {
      std::this_thread::yield();
    }
  }

  // Waits until so many reloads have failed.
  void waitForFailures(int count) {
    const std::string line = "zaro_filter_reload_failures_total " + std::to_string(count) + "\n";
    while (m_metrics.text().find(line) == std::string::npos) {
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
  m_loader.start();
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
  m_loader.start();
  m_version = 0;
  m_loader.requestReload();
  waitForFailures(1);
  ASSERT_NE(m_loader.policy().current(), nullptr);
  EXPECT_EQ(m_loader.policy().current()->version(), 1u);
  reload(2);
}

TEST_F(ReloadTest, looksForTheLastGoodPolicyOnce) {
  testing::internal::CaptureStderr();
  m_loader.start();
  for (int failures = 2; failures <= 3; ++failures) {
    m_loader.requestReload();
    waitForFailures(failures);
  }
  EXPECT_TRUE(m_loader.stop(std::chrono::seconds(60)));
  const std::string log = testing::internal::GetCapturedStderr();
  const std::string text = "there is no last good policy";
  const std::size_t first = log.find(text);
  ASSERT_NE(first, std::string::npos) << log;
  EXPECT_EQ(log.find(text, first + 1), std::string::npos) << log;
}

TEST_F(ReloadTest, leavesAGenerationToTheMessageThatUsesIt) {
  m_version = 1;
  m_loader.start();
  std::shared_ptr<const PolicyGeneration> used = m_loader.policy().current();
  reload(2);
  EXPECT_EQ(used->version(), 1u);
  used.reset();
  EXPECT_TRUE(m_loader.stop(std::chrono::seconds(60)));
  EXPECT_EQ(m_loader.policy().current(), nullptr);
}

}  // namespace

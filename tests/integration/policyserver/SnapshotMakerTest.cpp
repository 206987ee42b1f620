// How the maker of snapshots deals with a source that is slow, or has a policy that no snapshot can be made of.
#include "snapshot/SnapshotMaker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>

#include "policy/PolicyMaker.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

// What a test sees of its source, and lets it do.
class SourceState {
 public:
  void open() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isOpen = true;
    m_changed.notify_all();
  }
  void waitUntilOpen() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_isOpen; });
  }
  void countLook(bool isWhole) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_looks;
    m_wholeReads += isWhole ? 1 : 0;
    m_changed.notify_all();
  }
  // Answers how many of them read the policy.
  int waitForLooks(int looks) {
    std::unique_lock<std::mutex> lock(m_mutex);
    EXPECT_TRUE(m_changed.wait_for(lock, 60s, [&] { return m_looks >= looks; }));
    return m_wholeReads;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isOpen = false;
  int m_looks = 0;
  int m_wholeReads = 0;
};

class SlowSource : public PolicySource {
 public:
  explicit SlowSource(SourceState& state) : m_state(state) {}
  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> /*known*/) override {
    m_state.waitUntilOpen();
    return PolicyMaker().policy();
  }

 private:
  SourceState& m_state;
};

// Its policy has a name that is no UTF-8.
class WrongSource : public PolicySource {
 public:
  explicit WrongSource(SourceState& state) : m_state(state) {}
  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    PolicyMaker made;
    made.rule("\xff", {"a@b.test"}, 2);
    made.policy().version = 7;
    const bool isWhole = known != 7u;
    m_state.countLook(isWhole);
    return isWhole ? std::make_optional(made.policy()) : std::nullopt;
  }

 private:
  SourceState& m_state;
};

class SnapshotMakerTest : public testing::Test {
 protected:
  template <typename Source>
  SnapshotMaker::Calls callsWith() {
    return {[this] { return std::make_unique<Source>(state); }, [] {}, [this] { begun.set_value(); }, nullptr};
  }

  void waitUntilBegun() { EXPECT_EQ(begun.get_future().wait_for(60s), std::future_status::ready); }

  const zarotest::TemporaryDirectory directory;
  const LastGoodPolicy lastGood{directory.path("")};
  const ServiceLog log{ServiceLog::Target::StandardError};
  ServerMetrics metrics;
  SnapshotHolder snapshots;
  SourceState state;
  std::promise<void> begun;
};

TEST_F(SnapshotMakerTest, hasBegunWhenItsSourceHasAnswered) {
  SnapshotMaker maker(callsWith<SlowSource>(), snapshots, lastGood, metrics, log);
  maker.start();
  EXPECT_EQ(snapshots.current(), nullptr);
  state.open();
  waitUntilBegun();
  EXPECT_NE(snapshots.current(), nullptr);
}

TEST_F(SnapshotMakerTest, readsAWrongPolicyOnce) {
  SnapshotMaker maker(callsWith<WrongSource>(), snapshots, lastGood, metrics, log);
  maker.start();
  waitUntilBegun();
  EXPECT_EQ(state.waitForLooks(3), 1);
  maker.requestReload();
  EXPECT_EQ(state.waitForLooks(4), 2);
  EXPECT_EQ(snapshots.current(), nullptr);
  EXPECT_TRUE(snapshots.freshness().isReachable);
  EXPECT_FALSE(snapshots.freshness().age);
  EXPECT_THAT(metrics.text(), HasSubstr("zaro_server_refused_policy_version 7\n"));
  EXPECT_THAT(metrics.text(), HasSubstr("zaro_server_look_failures_total 0\n"));
}

}  // namespace

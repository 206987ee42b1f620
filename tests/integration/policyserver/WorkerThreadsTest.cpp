// How many threads serve. Each task waits at a gate, so that a thread is busy exactly as long as a test wants.
#include "http/WorkerThreads.h"

#include <gmock/gmock.h>

#include <boost/asio/executor_work_guard.hpp>
#include <list>

#include "policyserver/ServerParts.h"

namespace {

using namespace std::chrono_literals;
using zarotest::Gate;
using zarotest::hasMetric;
using zarotest::waitForMetric;

constexpr std::chrono::milliseconds kIdle = 1ms;

class WorkerThreadsTest : public testing::Test {
 protected:
  ~WorkerThreadsTest() override {
    for (Gate& gate : m_gates) {
      gate.open();
    }
    context.stop();
    threads.reset();
  }

  void start(WorkerThreads::Numbers numbers) {
    threads = std::make_unique<WorkerThreads>(context, numbers, metrics, log, kIdle);
  }

  // Tasks that keep a thread busy each, until the gate opens.
  Gate& post(unsigned int tasks) {
    Gate& gate = m_gates.emplace_back(false);
    for (unsigned int i = 0; i < tasks; ++i) {
      boost::asio::post(context, [&gate] { gate.pass(); });
    }
    return gate;
  }

  // Has a probe wait longer than it may while all threads are busy, which open the gate to run it. Afterwards `count`
  // threads are busy, at the gate that it answers; there are tasks for more.
  Gate& probe(Gate& busy, unsigned int count) {
    threads->probe();
    threads->probe();
    Gate& next = post(count + 2);
    std::this_thread::sleep_for(WorkerThreads::kTooLong + 1ms);
    busy.open();
    EXPECT_TRUE(next.isReachedBy(count));
    EXPECT_TRUE(hasMetric(metrics, "zaro_server_threads " + std::to_string(count))) << metrics.text();
    return next;
  }

  boost::asio::io_context context;
  const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work =
      boost::asio::make_work_guard(context);
  ServerMetrics metrics;
  const ServiceLog log{ServiceLog::Target::StandardError};
  std::unique_ptr<WorkerThreads> threads;

 private:
  std::list<Gate> m_gates;
};

TEST_F(WorkerThreadsTest, aProbeThatWaitsBringsOneMoreUpToTheMost) {
  start({1, 3});
  Gate* busy = &post(1);
  ASSERT_TRUE(busy->isReachedBy(1));
  for (const unsigned int count : {2U, 3U, 3U}) {
    busy = &probe(*busy, count);
  }
}

TEST_F(WorkerThreadsTest, theOnesThatWereAddedEndWhenThereIsNothingToDo) {
  start({1, 2});
  Gate& busy = post(1);
  ASSERT_TRUE(busy.isReachedBy(1));
  probe(busy, 2).open();
  waitForMetric(metrics, "zaro_server_threads 1");
  EXPECT_TRUE(post(1).isReachedBy(1));
}

TEST_F(WorkerThreadsTest, noneIsAddedWhereAllAreThereFromTheBeginning) {
  start({2, 2});
  Gate& busy = post(2);
  ASSERT_TRUE(busy.isReachedBy(2));
  probe(busy, 2);
}

}  // namespace

// The threads that serve. A probe that waits too long in the queue shows that there are too few, and brings another
// one; one that was added ends when it has been idle for a while.
#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include "ZaroRuntime/RuntimeError.h"
#include "console/RunProgram.h"
#include "metrics/ServerMetrics.h"
#include "service/ServiceLog.h"

class WorkerThreads {
 public:
  struct Numbers {
    unsigned int first;  // at least 1
    unsigned int most;
  };

  // The longest wait of a probe that shows no want of threads.
  static constexpr std::chrono::milliseconds kTooLong{20};

  // A thread that was added ends when it has had nothing to do for `idle`. Throws RuntimeError when not even one thread
  // can be made.
  WorkerThreads(boost::asio::io_context& context, Numbers numbers, ServerMetrics& metrics, const ServiceLog& log,
                std::chrono::milliseconds idle = std::chrono::seconds(10))
      : m_context(context), m_numbers(numbers), m_metrics(metrics), m_log(log), m_idle(idle) {
    for (unsigned int i = 0; i < m_numbers.first; ++i) {
      _add(&WorkerThreads::_serve);
    }
    if (m_count == 0) {
      throw zaroruntime::RuntimeError("there is no thread to serve on");
    }
  }
  // The context must have been stopped.
  ~WorkerThreads() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_count == 0; });
  }
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;

  // To be called when there is work; at most one probe is under way.
  void probe() {
    if (!m_isProbing.exchange(true)) {
      boost::asio::post(m_context, [this, began = Clock::now()] {
        m_isProbing = false;
        if (Clock::now() - began > kTooLong) {
          _grow();
        }
      });
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  void _grow() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_count < m_numbers.most) {
      _add(&WorkerThreads::_help);
    }
  }

  // Under the mutex, or before there is a thread. A thread that cannot be made is done without.
  void _add(void (WorkerThreads::*work)()) {
    try {
      std::thread([this, work] {
        waitForMemory();
        (this->*work)();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_metrics.setThreads(--m_count);
        m_changed.notify_all();
      }).detach();
      m_metrics.setThreads(++m_count);
    } catch (const std::system_error& failure) {
      m_log.warning(std::string("no further thread: ") + failure.what());
    }
  }

  void _serve() {
    while (!m_context.stopped()) {
      _guarded([this] { m_context.run(); });
    }
  }

  void _help() {
    bool isIdle = false;
    while (!isIdle && !m_context.stopped()) {
      _guarded([&] { isIdle = m_context.run_one_for(m_idle) == 0; });
    }
  }

  // What a handler throws costs its connection, and nothing else. Where there was no memory for a while, it may have
  // been the one that accepts connections, and the program ends.
  template <typename Work>
  void _guarded(Work work) {
    try {
      work();
    } catch (const std::bad_alloc&) {
      std::terminate();
    } catch (const std::exception& failure) {
      m_log.error(std::string("a request failed: ") + failure.what());
    }
  }

  boost::asio::io_context& m_context;
  const Numbers m_numbers;
  ServerMetrics& m_metrics;
  const ServiceLog& m_log;
  const std::chrono::milliseconds m_idle;
  std::atomic<bool> m_isProbing{false};
  std::mutex m_mutex;
  std::condition_variable m_changed;
  unsigned int m_count = 0;
};

// How many messages are between MAIL and their end, so that a graceful stop can wait for them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

class MessagesInProgress {
 public:
  // False once the filter stops: the message must not begin.
  bool begin() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_count += m_stopping ? 0 : 1;
    return !m_stopping;
  }

  void end() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_count;
    m_changed.notify_all();
  }

  // No further message begins. False when some have not ended in time.
  bool finish(std::chrono::milliseconds longest) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_stopping = true;
    return m_changed.wait_for(lock, longest, [this] { return m_count == 0; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  unsigned long m_count = 0;
  bool m_stopping = false;
};

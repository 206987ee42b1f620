// Reads on a thread of its own what is used one by one, so that reading and using take the time of the longer.
//
// Any number of items may wait to be used: what reading keeps meanwhile, a transaction for instance, is not to be kept
// until they are. `next` is for one thread, which also ends this.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

template <typename Item>
class ReadAhead {
 public:
  // Calls `read` on the thread until it answers nothing or throws, then destroys it with all that it holds. Throws
  // std::system_error when there is no thread to be had.
  explicit ReadAhead(std::function<std::optional<Item>()> read)
      : m_read(std::move(read)), m_thread([this] { _run(); }) {}
  // Waits for the call of `read` that is under way, and makes no more.
  ~ReadAhead() {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_isLeft = true;
    }
    m_thread.join();
  }
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // The next item, nothing behind the last. Throws what `read` threw, behind the items that it answered before.
  std::optional<Item> next() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_items.empty() || m_hasEnded; });
    if (m_items.empty()) {
      if (m_failure != nullptr) {
        std::rethrow_exception(m_failure);
      }
      return std::nullopt;
    }
    std::optional<Item> item(std::move(m_items.front()));
    m_items.pop_front();
    return item;
  }

 private:
  void _run() noexcept {
    std::exception_ptr failure;
    try {
      while (std::optional<Item> item = m_read()) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isLeft) {
          break;
        }
        m_items.push_back(*std::move(item));
        m_changed.notify_all();
      }
    } catch (...) {
      failure = std::current_exception();
    }
    m_read = nullptr;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failure = failure;
    m_hasEnded = true;
    m_changed.notify_all();
  }

  std::function<std::optional<Item>()> m_read;  // of the thread
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<Item> m_items;
  bool m_isLeft = false;  // nothing more is wanted
  bool m_hasEnded = false;
  std::exception_ptr m_failure;
  std::thread m_thread;
};

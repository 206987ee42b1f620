// The snapshot that is served, and how fresh it is. Safe from any thread.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

#include "snapshot/ServedSnapshot.h"

class SnapshotHolder {
 public:
  using Clock = std::chrono::steady_clock;

  // Null as long as there has never been one.
  std::shared_ptr<const ServedSnapshot> current() const;
  void replace(std::shared_ptr<const ServedSnapshot> next);

  // The snapshot was found to be the stored policy, just now.
  void confirm();
  void setReachable(bool isReachable);

  struct Freshness {
    std::optional<std::chrono::seconds> age;  // since it was confirmed; nothing: never
    bool isReachable;                         // the database answered the last look
  };
  Freshness freshness() const;

 private:
  mutable std::mutex m_mutex;
  std::shared_ptr<const ServedSnapshot> m_current;
  std::optional<Clock::time_point> m_confirmed;
  bool m_isReachable = false;
};

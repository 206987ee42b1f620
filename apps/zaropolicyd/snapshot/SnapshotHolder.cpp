#include "snapshot/SnapshotHolder.h"

#include <utility>

std::shared_ptr<const ServedSnapshot> SnapshotHolder::current() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_current;
}

void SnapshotHolder::replace(std::shared_ptr<const ServedSnapshot> next) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_current.swap(next);
  }
  // The old one goes here, outside the lock, unless it is being sent.
}

void SnapshotHolder::confirm() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_confirmed = Clock::now();
}

void SnapshotHolder::setReachable(bool isReachable) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_isReachable = isReachable;
}

SnapshotHolder::Freshness SnapshotHolder::freshness() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_confirmed) {
    return {std::nullopt, m_isReachable};
  }
  return {std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *m_confirmed), m_isReachable};
}

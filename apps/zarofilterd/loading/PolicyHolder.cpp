#include "loading/PolicyHolder.h"

#include <utility>

PolicyHolder::~PolicyHolder() {
  clear();
  destroyReturned();
}

std::shared_ptr<const PolicyGeneration> PolicyHolder::current() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_current;
}

void PolicyHolder::replace(ArrivingPolicy& policy) {
  auto built = std::make_unique<Held>(policy);
  const PolicyGeneration* generation = &built->generation;
  const std::shared_ptr<Held> shared(built.release(), [this](Held* held) { _return(held); });
  _exchange(std::shared_ptr<const PolicyGeneration>(shared, generation));
}

void PolicyHolder::clear() {
  _exchange(nullptr);
}

void PolicyHolder::destroyReturned() {
  Held* held = nullptr;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    held = std::exchange(m_returned, nullptr);
  }
  while (held != nullptr) {
    const std::unique_ptr<Held> destroyed(held);
    held = destroyed->next;
  }
}

void PolicyHolder::_return(Held* held) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    held->next = std::exchange(m_returned, held);
  }
  m_onReturn();
}

void PolicyHolder::_exchange(std::shared_ptr<const PolicyGeneration> next) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_current.swap(next);
  }
  // The old one goes here, outside the lock that handing it back takes.
}

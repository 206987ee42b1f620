// The policy that decides now. Read-copy-update: a message keeps the generation that it began with, a reload puts another
// one in its place, and the last message that lets go of the old one hands it back to the loader, which alone destroys it.
//
// 1. `current` is for any thread. It waits for nothing but the exchange of a pointer.
// 2. `replace` and `destroyReturned` are for the loader's thread, since making and destroying trees is for one thread at
//    a time.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "policy/PolicyGeneration.h"

class PolicyHolder {
 public:
  // `onReturn` is called, on any thread, when there is something to destroy. It must not throw.
  explicit PolicyHolder(std::function<void()> onReturn) : m_onReturn(std::move(onReturn)) {}
  // On the loader's thread, after every message has let go.
  ~PolicyHolder();
  PolicyHolder(const PolicyHolder&) = delete;
  PolicyHolder& operator=(const PolicyHolder&) = delete;

  // Null as long as there has never been one.
  std::shared_ptr<const PolicyGeneration> current() const;

  // Builds a generation aside, then puts it in place; all of the policy has arrived then. Throws what building throws,
  // and the old one stays.
  void replace(ArrivingPolicy& policy);
  // Nothing decides any more.
  void clear();
  // Destroys the generations that are not used any more.
  void destroyReturned();

 private:
  // A generation knows its place in the list of returned ones, so that handing it back needs no memory.
  struct Held {
    explicit Held(ArrivingPolicy& policy) : generation(policy) {}
    PolicyGeneration generation;
    Held* next = nullptr;
  };

  void _return(Held* held);
  void _exchange(std::shared_ptr<const PolicyGeneration> next);

  std::function<void()> m_onReturn;
  mutable std::mutex m_mutex;
  std::shared_ptr<const PolicyGeneration> m_current;
  Held* m_returned = nullptr;
};

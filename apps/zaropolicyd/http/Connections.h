// The open connections: all are told of another policy, and one goes when there are too many.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>

#include "metrics/ServerMetrics.h"

// What the server wants of a connection. The calls come on any thread and return at once.
class Connection {
 public:
  Connection() = default;
  virtual ~Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // There is another policy.
  virtual void wake() = 0;
  // The server ends: what is in flight is finished.
  virtual void finish() = 0;
  // Closes unless a request is being answered. The client owes nothing from now on.
  virtual void giveWay() = 0;
  // Since when the client has owed a request, in ticks of one clock; 0 while the server owes the answer.
  virtual long long owesSince() const = 0;
};

class Connections {
 public:
  explicit Connections(ServerMetrics& metrics) : m_metrics(metrics) {}

  // Counts a connection as long as the place lives.
  class Place {
   public:
    Place(Connections& all, std::list<Connection*>::iterator at) : m_all(all), m_at(at) {}
    ~Place() { m_all._remove(m_at); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

   private:
    Connections& m_all;
    std::list<Connection*>::iterator m_at;
  };

  // Under no lock of the connection's own; the place must be gone before the connection is. Strong guarantee.
  std::unique_ptr<Place> add(Connection& connection) {
    std::list<Connection*> added{&connection};
    auto place = std::make_unique<Place>(*this, added.begin());
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.splice(m_connections.end(), added);
    m_metrics.setConnections(m_connections.size());
    return place;
  }

  std::size_t count() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_connections.size();
  }

  void forEach(void (Connection::*call)()) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (Connection* connection : m_connections) {
      (connection->*call)();
    }
  }

  // Closes the connection whose client has owed a request longest. False when no client owes one.
  bool makeRoom() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Connection* longest = nullptr;
    long long first = 0;
    for (Connection* connection : m_connections) {
      const long long since = connection->owesSince();
      if (since != 0 && (longest == nullptr || since < first)) {
        longest = connection;
        first = since;
      }
    }
    if (longest != nullptr) {
      longest->giveWay();
    }
    return longest != nullptr;
  }

 private:
  void _remove(std::list<Connection*>::iterator at) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.erase(at);
    m_metrics.setConnections(m_connections.size());
  }

  ServerMetrics& m_metrics;
  mutable std::mutex m_mutex;
  std::list<Connection*> m_connections;
};

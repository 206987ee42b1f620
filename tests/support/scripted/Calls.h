// Every call that the library made to its platform, in order.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace scripted {

// A text argument as calls show it: in double quotes, or null without them.
std::string quoted(const char* text);

// Calls read like code: `KxDbConnect#1.connect("init", "dsn", "user", "pass")`. Objects are numbered from 1 in the
// order they were made, each class by itself. Log lines are calls too: `log(1, "text")`. Safe from any thread.
class Calls {
 public:
  void add(const std::string& operation, const std::vector<std::string>& arguments = {});
  // That of a destructor, which is left out when memory runs out.
  void addDestructor(const char* name, const std::string& number = {}) noexcept;

  std::vector<std::string> all() const;
  // The calls that begin with `start`, such as "KxDbConnect#1." or "log(1".
  std::vector<std::string> beginningWith(const std::string& start) const;
  // How many calls of an operation there were, whatever the object's number: "KxDbConnect.connect".
  std::size_t countOf(const std::string& operation) const;
  // Forgets the calls so far.
  void clear();

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;
};

}  // namespace scripted

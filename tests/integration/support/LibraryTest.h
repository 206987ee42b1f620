// Tests of the library on the runtime. The library is configured once per process, so each case has one of its own.
#pragma once

#include <functional>
#include <string>

#include "support/TestInstallation.h"

namespace zarotest {

class OnEveryDatabaseWithLibrary : public OnEveryDatabase {
 protected:
  // Runs `body` in a child process, with the library's log in a file.
  void inOwnProcess(const std::function<void()>& body) const;
  // Lines logged so far.
  std::string log() const { return readFile(home().directory().path("log")); }
};

// Has an administrator "department", number 1, whose managing group is *@a.example.test, with one that contains it and
// one that it contains; each of the three owns an object of type 1: a, b and c.
class DepartmentOnEveryDatabase : public OnEveryDatabaseWithLibrary {
 protected:
  void SetUp() override;
};

}  // namespace zarotest

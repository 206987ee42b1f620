#include "support/LibraryTest.h"

#include <cstdlib>

#include "support/ProcessTest.h"

namespace zarotest {

void OnEveryDatabaseWithLibrary::inOwnProcess(const std::function<void()>& body) const {
  const std::string path = home().directory().path("log");
  runInOwnProcess(
      [&] {
        setenv("ZARO_LOG", path.c_str(), 1);
        setenv("ZARO_LOG_LEVEL", "4", 1);
        body();
      },
      120);
}

void DepartmentOnEveryDatabase::SetUp() {
  OnEveryDatabaseWithLibrary::SetUp();
  if (IsSkipped()) {
    return;
  }
  const auto session = home().session();
  session->run("INSERT INTO administrator (name, is_root) VALUES ('department', 0)");
  session->run(
      "INSERT INTO entity (name, type) VALUES ('*@*.example.test', 6), ('*@a.example.test', 6), "
      "('user@a.example.test', 6)");
  session->run("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (1, 2)");
  session->run("INSERT INTO named_object (type, name, content) VALUES (1, 'a', ''), (1, 'b', ''), (1, 'c', '')");
  session->run(
      "INSERT INTO named_object_owner (entity_id, object_id, object_type) VALUES (1, 1, 1), (2, 2, 1), (3, 3, 1)");
}

}  // namespace zarotest

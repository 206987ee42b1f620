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

}  // namespace zarotest

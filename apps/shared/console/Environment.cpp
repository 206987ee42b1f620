#include "console/Environment.h"

#include <cstdlib>

#include "console/UsageError.h"

void setInstallation(const std::string* home) {
  if (home != nullptr) {
    if (home->empty()) {
      throw UsageError("--home names no directory");
    }
    setenv("ZARO_HOME", home->c_str(), 1);
  }
  // Debian registers the PostgreSQL driver with its communication log on, and every process would leave a file in /tmp.
  // Data sources name drivers by file, so nothing registered is needed.
  setDefault("ODBCINSTINI", "/dev/null");
}

void setDefault(const char* variable, const char* value) {
  constexpr int kKeepWhatIsSet = 0;
  setenv(variable, value, kKeepWhatIsSet);
}

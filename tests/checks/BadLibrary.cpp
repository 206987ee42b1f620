// Everything that check-library looks for; never linked with anything.
#include <string>

#include "PolicyLog.h"
#include "miscUtils.h"

void somebodyElses();
void unmarked();

template <typename Text>
void weakTemplate(int, Text) {}
template void weakTemplate(int, std::string);

namespace ZARO {
class StoreStatement {
 public:
  virtual ~StoreStatement() = default;
  virtual std::string text();
};

std::string StoreStatement::text() {
  unmarked();
  return {};
}
}  // namespace ZARO

void unmarked() {
  somebodyElses();
}

void PolicyLog::log(LogLevel, const char*, ...) {}

int miscUtils::getAdminId(ZARO::RdbmsInterface&, const char*, unsigned int&) {
  return 0;
}

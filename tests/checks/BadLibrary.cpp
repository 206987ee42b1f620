// Everything that check-library looks for; never linked with anything.
#include <string>

#include "PolicyLog.h"
#include "miscUtils.h"

void somebodyElses();
void helper();

template <typename Text>
void weakHelper(int, Text) {}
template void weakHelper(int, std::string);

namespace ZARO {
class StoreStatement {
 public:
  virtual ~StoreStatement() = default;
  virtual std::string text();
};

std::string StoreStatement::text() {
  helper();
  return {};
}
}  // namespace ZARO

void helper() {
  somebodyElses();
}

void PolicyLog::log(LogLevel, const char*, ...) {}

int miscUtils::getAdminId(ZARO::RdbmsInterface&, const char*, unsigned int&) {
  return 0;
}

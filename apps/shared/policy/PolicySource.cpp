#include "policy/PolicySource.h"

#include <utility>

#include "policy/PolicyLoading.h"
#include "store/Database.h"

namespace {

// A connection out of the pool each time, so that one that the database has dropped is made anew.
class DatabaseSource : public PolicySource {
 public:
  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    auto db = std::make_unique<StoreConnection>();
    db->requireOwnSchema();
    if (known && storedPolicyVersion(*db) == *known) {
      return std::nullopt;
    }
    return beginMailPolicy(std::move(db));
  }
};

}  // namespace

std::unique_ptr<PolicySource> makeDatabaseSource() {
  return std::make_unique<DatabaseSource>();
}

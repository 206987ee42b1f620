#include "loading/PolicySource.h"

#include "ZaroRuntime/RuntimeError.h"
#include "policy/PolicyLoading.h"
#include "store/Database.h"

namespace {

// A connection out of the pool each time, so that one that the database has dropped is made anew.
class DatabaseSource : public PolicySource {
 public:
  std::optional<MailPolicy> loadUnless(std::optional<std::uint64_t> known) override {
    StoreConnection db;
    db.requireOwnSchema();
    if (known && storedPolicyVersion(db) == *known) {
      return std::nullopt;
    }
    return loadMailPolicy(db);
  }
};

}  // namespace

std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings) {
  if (settings.fromPolicyServer) {
    throw zaroruntime::RuntimeError("[mail_filter] source: this filter reads no policy server yet",
                                    zaroruntime::FailureKind::Configuration);
  }
  return std::make_unique<DatabaseSource>();
}

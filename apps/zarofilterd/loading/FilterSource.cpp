#include "loading/FilterSource.h"

#include "ZaroRuntime/RuntimeError.h"

std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings) {
  if (settings.fromPolicyServer) {
    throw zaroruntime::RuntimeError("[mail_filter] source: this filter reads no policy server yet",
                                    zaroruntime::FailureKind::Configuration);
  }
  return makeDatabaseSource();
}

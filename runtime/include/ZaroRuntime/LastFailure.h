// Why the platform failed last.
#pragma once

#include <string>

#include "ZaroRuntime/RuntimeError.h"

namespace zaroruntime {

// The text that the platform threw last on this thread, or logged when it answered with a code; empty if it has not
// failed. The library answers with a status code only, so programs ask here for the reason.
std::string lastFailure();
// What kind of failure that was; None if it has not failed.
FailureKind lastFailureKind();
// From now on the platform has not failed on this thread. Texts that it threw before stay readable.
void forgetFailures();

// How many times the platform has failed so on this thread. It only grows: while it stands still, nothing that the
// library answers stems from a failure of the platform.
unsigned long failureCount();

}  // namespace zaroruntime

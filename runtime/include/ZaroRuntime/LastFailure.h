// Why the platform failed last.
#pragma once

#include <string>

namespace zaroruntime {

// The text that the platform threw last on this thread, or logged when it answered with a code; empty if it has not
// failed. The library answers with a status code only, so programs ask here for the reason.
std::string lastFailure();

}  // namespace zaroruntime

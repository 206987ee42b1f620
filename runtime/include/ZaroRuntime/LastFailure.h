// Why the platform failed last.
#pragma once

#include <string>

namespace zaroruntime {

// The text that the platform threw last on this thread; empty if it has thrown none. The library answers with a status
// code only, so programs ask here for the reason.
std::string lastFailure();

}  // namespace zaroruntime

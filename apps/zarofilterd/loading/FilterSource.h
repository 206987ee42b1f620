// Where the filter's policy comes from.
#pragma once

#include <memory>

#include "policy/PolicySource.h"
#include "store/FilterSettings.h"

// The source that the settings name. Throws RuntimeError.
std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings);

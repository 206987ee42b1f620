// What the decision does with each kind; what the kinds mean is the callers' business.
#pragma once

#include "KxListedEmailAddress.h"

namespace zaro_addressmatch {

constexpr KxEmailBelongsTo kFirstTierA = 1;
constexpr KxEmailBelongsTo kFirstTierB = 2;
constexpr KxEmailBelongsTo kSecondTierB = 4;
constexpr KxEmailBelongsTo kSecondTierA = 8;
constexpr KxEmailBelongsTo kExceptionToA = 16;
constexpr KxEmailBelongsTo kExceptionToB = 32;
constexpr KxEmailBelongsTo kForbidden = 64;

}  // namespace zaro_addressmatch

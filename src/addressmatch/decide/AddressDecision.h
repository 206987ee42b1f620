// How addresses are decided over trees, one by one and in groups.
#pragma once

#include <cstddef>
#include <vector>

#include "KxWildcardEmail.h"
#include "addressmatch/decide/Decision.h"
#include "addressmatch/decide/SearchedTrees.h"

namespace zaro_addressmatch {

// Decides one address. Throws std::bad_alloc.
void decideAddress(const std::vector<KxWildcardNode*>& trees, const char* address, KxMatchResult& result);

// So many addresses are decided together, so that their cache misses overlap.
constexpr std::size_t kAddressesTogether = 24;
// Decides up to so many. Throws std::bad_alloc.
void decideTogether(const SearchedTrees& trees, const char* const* addresses, std::size_t count, KxMatchResult* results);

}  // namespace zaro_addressmatch

// The numbers that a locked table gives its entries.
#pragma once

namespace zaro_addressmatch {

// Calls `assign(element, rank)` for the elements in order, ranks from 0 on, all below `limit`. True when `limit` ranks
// were assigned, so that elements may be left without one.
template <typename Iterator, typename Assign>
bool assignRanks(Iterator first, Iterator last, unsigned int limit, Assign assign) {
  unsigned int rank = 0;
  for (; first != last && rank != limit; ++first, ++rank) {
    assign(*first, rank);
  }
  return rank == limit;
}

}  // namespace zaro_addressmatch

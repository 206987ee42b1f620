#include "addressmatch/index/SharedFilters.h"

#include "addressmatch/index/FrozenIndex.h"

namespace zaro_addressmatch {

namespace {

using Iterator = std::vector<UnfilteredIndex>::iterator;

// The biggest of what `sizeOf` says of some indexes.
template <typename SizeOf>
std::size_t most(Iterator first, Iterator last, SizeOf sizeOf) {
  std::size_t biggest = 0;
  std::for_each(first, last, [&](const UnfilteredIndex& one) { biggest = std::max<std::size_t>(biggest, sizeOf(one)); });
  return biggest;
}

// Whether some indexes share filters at a good price: all have slices of the same size.
bool goTogether(Iterator first, Iterator last) {
  constexpr std::size_t kSmall = 65536;
  const auto sizeOf = [](const UnfilteredIndex& one) { return one.size(); };
  const auto sets = static_cast<unsigned int>(last - first);
  std::size_t alone = 0;
  std::for_each(first, last, [&](const UnfilteredIndex& one) { alone += SlicedFilter::sizeFor(1, one.size()); });
  return SlicedFilter::sizeFor(sets, most(first, last, sizeOf)) <= std::max(kSmall, 2 * alone);
}

void share(Iterator first, Iterator last) {
  const auto sets = static_cast<unsigned int>(last - first);
  const auto filters = std::make_shared<SharedFilters>();
  filters->names.resize(sets, most(first, last, [](const UnfilteredIndex& one) { return one.names.size(); }));
  filters->wildcards.resize(sets, most(first, last, [](const UnfilteredIndex& one) { return one.wildcards.size(); }));
  filters->sliceStep = SlicedFilter::sliceOf(1, sets);
  for (unsigned int set = 0; set != sets; ++set) {
    const UnfilteredIndex& one = first[set];
    for (const std::uint64_t hash : one.names) {
      filters->names.add(hash, set);
    }
    for (const std::uint64_t hash : one.wildcards) {
      filters->wildcards.add(hash, set);
    }
    const unsigned int slice = SlicedFilter::sliceOf(set, sets);
    filters->depths |= one.index->depths();
    filters->alwaysAsked |= std::uint32_t{one.index->isAlwaysAsked()} << slice;
    one.index->setFilters(filters, slice);
  }
}

}  // namespace

void shareFilters(std::vector<UnfilteredIndex>& indexes) {
  for (Iterator first = indexes.begin(); first != indexes.end();) {
    Iterator last = first + 1;
    while (last != indexes.end() && last - first != SlicedFilter::kMostSets &&
           last->index->seed().words[0] == first->index->seed().words[0] && goTogether(first, last + 1)) {
      ++last;
    }
    share(first, last);
    first = last;
  }
}

}  // namespace zaro_addressmatch

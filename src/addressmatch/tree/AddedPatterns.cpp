#include "addressmatch/tree/AddedPatterns.h"

#include <cstring>

#include "addressmatch/index/SuffixHash.h"
#include "addressmatch/text/LowerCaseText.h"

namespace zaro_addressmatch {

namespace {

// Calls `take(begin)` for the suffixes of a domain that begin with a label, the shortest first, as long as it answers true.
template <typename Take>
void forEachSuffix(const char* text, std::size_t domain, std::size_t size, Take take) {
  for (std::size_t begin = size;; --begin) {
    if ((begin == domain || text[begin - 1] == '.') && (!take(begin) || begin == domain)) {
      return;
    }
  }
}

// 0 has another meaning.
AddedPatterns::Key keyOfHash(std::uint64_t hash) {
  return hash != 0 ? hash : 1;
}

}  // namespace

AddedPatterns::Key AddedPatterns::keyOf(const char* pattern, std::size_t size) {
  const auto* at = static_cast<const char*>(std::memchr(pattern, '@', size));
  if (at == nullptr) {
    return 0;
  }
  const auto domain = static_cast<std::size_t>(at + 1 - pattern);
  SuffixHash hash(processHashSeed(), pattern, size);
  Key key = 0;
  std::size_t shorter = size + 1;  // where the suffix before this one begins
  forEachSuffix(pattern, domain, size, [&](std::size_t begin) {
    const bool isWildcard = shorter - begin == 2 && pattern[begin] == '*';
    if (isWildcard) {
      key = shorter <= size ? keyOfHash(~hash.from(shorter)) : 0;
      return false;
    }
    key = keyOfHash(hash.from(begin));
    shorter = begin;
    return true;
  });
  return key;
}

bool AddedPatterns::mayConcern(const char* address) const {
  const LowerCaseText text(address);
  const auto* at = static_cast<const char*>(std::memchr(text.get(), '@', text.size()));
  if (at == nullptr) {
    return true;
  }
  const auto domain = static_cast<std::size_t>(at + 1 - text.get());
  SuffixHash hash(processHashSeed(), text.get(), text.size());
  bool concerned = false;
  forEachSuffix(text.get(), domain, text.size(), [&](std::size_t begin) {
    const std::uint64_t suffix = hash.from(begin);
    concerned = has(keyOfHash(begin == domain ? suffix : ~suffix));
    return !concerned;
  });
  return concerned;
}

}  // namespace zaro_addressmatch

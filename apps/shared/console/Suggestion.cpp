// Optimal string alignment distance, the Levenshtein distance with neighbours swapped (Damerau, "A technique for
// computer detection and correction of spelling errors", 1964): quadratic in the lengths, three rows of memory.
#include "console/Suggestion.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace {

std::size_t distance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> beforeLast;
  std::vector<std::size_t> last(other.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t(0));
  for (std::size_t i = 1; i <= one.size(); ++i) {
    std::vector<std::size_t> row = {i};
    for (std::size_t j = 1; j <= other.size(); ++j) {
      const std::size_t changed = last[j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
      row.push_back(std::min({last[j] + 1, row[j - 1] + 1, changed}));
      if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
      }
    }
    beforeLast = std::exchange(last, std::move(row));
  }
  return last.back();
}

}  // namespace

std::string mostLike(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  std::size_t least = word.size() / 3 + 1;
  for (const std::string& candidate : known) {
    const std::size_t letters = distance(word, candidate);
    if (letters < least) {
      least = letters;
      best = candidate;
    }
  }
  return best;
}

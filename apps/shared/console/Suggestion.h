// What the user may have meant by a mistyped word.
#pragma once

#include <string>
#include <vector>

// The known word that takes the fewest letters added, removed, changed or swapped; empty when that is more than every
// third letter.
std::string mostLike(const std::string& word, const std::vector<std::string>& known);

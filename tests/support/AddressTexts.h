// Random addresses and patterns from tiny alphabets, so that they often meet, and awkward ones above all.
#pragma once

#include <cstddef>
#include <random>
#include <string>

namespace slow {

using Random = std::mt19937;

inline std::size_t upTo(Random& random, std::size_t highest) {
  return std::uniform_int_distribution<std::size_t>(0, highest)(random);
}

template <std::size_t Count>
const char* oneOf(Random& random, const char* const (&choices)[Count]) {
  return choices[upTo(random, Count - 1)];
}

// Mostly LOCAL@LABEL.LABEL with empty and wildcard pieces, sometimes any characters.
inline std::string randomAddressText(Random& random) {
  static const char* const kNames[] = {"", "a", "b", "A", "*", "*", "ab", "a*", "user", "a.b"};
  static const char* const kLabels[] = {"", "a", "b", "B", "a", "b", "*", "a*b", "**", "user"};
  static const char* const kWhole[] = {"*", "*@*", "", "@", "a", "*@", "@*", "**", "a@b@a", "a@"};
  static const char kCharacters[] = "ab*@.A";

  const std::size_t shape = upTo(random, 19);
  if (shape == 0) {
    return oneOf(random, kWhole);
  }
  std::string text;
  if (shape == 1) {
    for (std::size_t length = upTo(random, 7); length != 0; --length) {
      text += kCharacters[upTo(random, sizeof kCharacters - 2)];
    }
    return text;
  }
  text = oneOf(random, kNames);
  text += '@';
  for (std::size_t labels = upTo(random, 3);; --labels) {
    text += oneOf(random, kLabels);
    if (labels == 0) {
      return text;
    }
    text += '.';
  }
}

}  // namespace slow

// The tokens that clients prove themselves by: one or more, so that a new one can be given out before the old one goes.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

class Tokens {
 public:
  // No token is right.
  Tokens() = default;
  // The lines of a text; empty ones count for nothing. Throws RuntimeError, which shows no token, when there is none or
  // a line is none.
  explicit Tokens(std::string_view lines);

  // Takes the same time for every text of a length.
  bool contains(std::string_view token) const;

 private:
  using Digest = std::array<unsigned char, 32>;

  static Digest _digestOf(std::string_view token);

  std::vector<Digest> m_digests;
};

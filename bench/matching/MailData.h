// Patterns and addresses as a gateway meets them, made up from a fixed seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace bench {

// Texts one behind the other, so that walking through the addresses costs every contender the same.
struct MailData {
  // Distinct patterns in lower case, in no order:
  //   82 %  user@example.test      7 %  *@example.test      6 %  *@*.example.test
  //    4 %  user@*.example.test    1 %  user@*
  // A few domains have many of them, most have a few.
  std::vector<std::string> patterns;
  // Half of them are stored as they are, a quarter match wildcard patterns only (as far as chance allows), a quarter
  // match nothing. A tenth of them have capitals.
  std::vector<std::string> addresses;
};

MailData makeMailData(std::size_t patterns, std::size_t addresses);

}  // namespace bench

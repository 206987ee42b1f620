// The form of an address: one "@" at most, with the domain that mail servers see behind it; a form is its own as a
// pattern, and forms of patterns are their own.
#include "mail/MailAddress.h"

#include <algorithm>

#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  const std::string address = normalAddress(text);
  FUZZ_CHECK(std::count(address.begin(), address.end(), '@') <= 1);
  FUZZ_CHECK(normalPattern(address) == address || address == "*" || address.find("\"*\"@") == 0);

  const std::string extended = normalAddress(text, "+-");
  // What is left may need quotes, "a%." for one, and the numbers that stand for a "%" in them.
  const auto percentSigns = static_cast<std::size_t>(std::count(address.begin(), address.end(), '%'));
  FUZZ_CHECK(extended.size() <= address.size() + 2 + 2 * percentSigns);
  FUZZ_CHECK(extended.substr(std::min(extended.find('@'), extended.size())) ==
             address.substr(std::min(address.find('@'), address.size())));

  const std::string stripped = normalAddress(text, AddressForm{"+", true, true});
  FUZZ_CHECK(std::count(stripped.begin(), stripped.end(), '@') <= 1);

  const std::string pattern = normalPattern(text);
  FUZZ_CHECK(normalPattern(pattern) == pattern);
  return 0;
}

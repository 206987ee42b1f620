// What requests of policy clients say: the first line of the input is a target, the rest is a field.
#include "http/RequestFields.h"

#include <algorithm>

#include "FuzzInput.h"

namespace {

bool isWithin(std::string_view part, std::string_view whole) {
  return part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::chrono::seconds kLongest(300);
  const std::string input = textOf(data, size);
  const std::string_view target = std::string_view(input).substr(0, input.find('\n'));
  const std::string_view field = std::string_view(input).substr(std::min(target.size() + 1, input.size()));
  if (const auto parsed = parseTarget(target, kLongest)) {
    FUZZ_CHECK(isWithin(parsed->path, target) && parsed->path.substr(0, 1) == "/");
    FUZZ_CHECK(!parsed->wait || (parsed->wait->count() >= 0 && *parsed->wait <= kLongest));
  }
  FUZZ_CHECK(!holdsTag(field, "\"a\"") || field.find("\"a\"") != field.npos || field.find('*') != field.npos);
  FUZZ_CHECK(!takesGzip(field) || field.find_first_of("pP*") != field.npos);
  if (const auto token = bearerToken(field)) {
    FUZZ_CHECK(isWithin(*token, field) && isToken(*token));
    const std::string tag = '"' + std::string(*token) + '"';
    FUZZ_CHECK(holdsTag("\"\", W/" + tag, tag));
  }
  return 0;
}

// Members of address groups and the files that hold them.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "store/GroupMembers.h"

namespace {

std::optional<std::string> memberIn(const std::string& line) {
  try {
    return memberOfLine(line);
  } catch (const zaroruntime::RuntimeError&) {
    return std::nullopt;
  }
}

// Whatever a member is, its line holds it and nothing else.
void checkMember(const std::string& member) {
  if (!wrongMember(member).empty()) {
    return;
  }
  const std::string line = memberLine(member);
  FUZZ_CHECK(line.find_first_of(std::string("\r\n\0", 3)) == std::string::npos);
  FUZZ_CHECK(memberIn(line) == member);
}

void checkDistinct(const std::vector<std::string>& addresses) {
  DistinctMembers members;
  std::map<std::string, std::size_t> places;
  std::vector<std::string> want;
  for (const std::string& address : addresses) {
    const auto [place, isNew] = places.emplace(memberKey(address), want.size());
    if (isNew) {
      want.push_back(address);
    }
    FUZZ_CHECK(members.add(address) == place->second);
  }
  FUZZ_CHECK(members.addresses() == want);
  FUZZ_CHECK(members.take() == want);
}

}  // namespace

// Lines of a file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> lines(1);
  for (const char character : textOf(data, size)) {
    if (character == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += character;
    }
  }
  for (const std::string& line : lines) {
    checkMember(line);
    if (const auto member = memberIn(line)) {
      checkMember(*member);
    }
  }
  checkDistinct(lines);
  return 0;
}

#include "store/GroupMembers.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "ZaroRuntime/PrintableText.h"
#include "console/LineReader.h"
#include "console/Text.h"
#include "mail/LetterCase.h"
#include "store/Administration.h"

namespace {

// They set members apart from each other on the way to the database.
constexpr const char* kTags[] = {"<ma>", "</ma>", "<mas>", "</mas>"};
// What stands before an address that is written with escapes. No member begins so, since it would hold a blank.
constexpr std::string_view kEscaped = "\\ ";

bool beginsWith(const std::string& text, std::string_view begin) {
  return text.compare(0, begin.size(), begin) == 0;
}

bool comesBackFromItsLine(const std::string& address) {
  std::string line = address;
  withoutByteOrderMark(line, 1);
  return line == address && isPlainText(address) && !beginsWith(address, kEscaped) && memberOfLine(address) == address;
}

}  // namespace

std::string wrongMember(const std::string& address) {
  std::string fault = wrongName(address);
  if (!fault.empty()) {
    return fault;
  }
  if (std::any_of(std::begin(kTags), std::end(kTags),
                  [&](const char* tag) { return address.find(tag) != std::string::npos; })) {
    return "holds a tag of the list of members";
  }
  if (address.find(' ') != std::string::npos) {
    return "holds a blank";
  }
  // Without one, the null sender and the pattern of all addresses are the only patterns that mail can match.
  return address.find('@') == std::string::npos && address != "<>" && address != "*" ? "has no @" : "";
}

std::string memberKey(const std::string& address) {
  return inLowerCase(address);
}

DistinctMembers::DistinctMembers() : m_places(0, Hash{&m_addresses}, Equal{&m_addresses}) {}

std::size_t DistinctMembers::add(const std::string& address) {
  m_addresses.push_back(address);
  const auto [place, isNew] = m_places.insert(m_addresses.size() - 1);
  if (!isNew) {
    m_addresses.pop_back();
  }
  return *place;
}

std::vector<std::string> DistinctMembers::take() {
  m_places.clear();
  return std::move(m_addresses);
}

std::size_t DistinctMembers::Hash::operator()(std::size_t place) const {
  return std::hash<std::string>()(memberKey((*addresses)[place]));
}

bool DistinctMembers::Equal::operator()(std::size_t one, std::size_t other) const {
  const std::string& left = (*addresses)[one];
  const std::string& right = (*addresses)[other];
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

std::string memberLine(const std::string& address) {
  return comesBackFromItsLine(address) ? address : std::string(kEscaped) + zaroruntime::printableText(address);
}

std::optional<std::string> memberOfLine(const std::string& line) {
  if (beginsWith(line, kEscaped)) {
    return unescaped(line.substr(kEscaped.size()));
  }
  if (line.find_first_not_of(" \t") == std::string::npos || line.front() == '#') {
    return std::nullopt;
  }
  return line;
}

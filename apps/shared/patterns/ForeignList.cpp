#include "patterns/ForeignList.h"

#include <algorithm>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "patterns/PatternMeaning.h"
#include "patterns/PatternPieces.h"

namespace {

constexpr std::string_view kNullSender = "<>";
constexpr std::string_view kAnyName = "*@";  // what the patterns of a domain begin with
constexpr const char* kBlanks = " \t";

ListLine fault(const std::string& text, const std::string& reason) {
  return {{}, quoted(text) + " " + reason, ""};
}

ListLine meaningOf(std::string_view text) {
  const std::string given(text);
  if (text == kNullSender) {
    return {{given}, "", ""};
  }
  std::vector<std::string> patterns = patternsMeantBy(text);
  return patterns.empty() ? fault(given, "cannot be said in patterns for certain")
                          : ListLine{std::move(patterns), "", ""};
}

bool saysNothing(std::string_view text) {
  return text.empty() || text.front() == '#';
}

// The key of an access map: an address, "name@" for the name at every domain, a domain with its sub-domains, or
// ".domain" for these alone.
ListLine keyMeaning(const std::string& key) {
  if (key.find('*') != std::string::npos) {
    return fault(key, "has a \"*\", which is no wildcard in an access map");
  }
  const std::size_t at = key.find('@');
  ListLine line = meaningOf(at != std::string::npos && at + 1 == key.size() ? key + "*" : key);
  const bool isDomain = at == std::string::npos && key != kNullSender && line.fault.empty();
  if (isDomain) {
    const std::string domain = line.patterns.front().substr(kAnyName.size());
    const bool hasSubdomainsAlone = domain.front() == '*';
    if (!hasSubdomainsAlone) {
      line.patterns.push_back(std::string(kAnyName) + "*." + domain);
    }
  }
  return line;
}

std::string inCapitals(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(), [](char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
  });
  return capitals;
}

ListLine accessLine(const std::string& line) {
  const std::string_view text = trimmed(line);
  if (saysNothing(text)) {
    return {};
  }
  if (line.find_first_of(kBlanks) == 0) {
    return {};  // more of the action before
  }
  const std::string key(text.substr(0, text.find_first_of(kBlanks)));
  const std::string_view value = trimmed(text.substr(key.size()));
  if (value.empty()) {
    return fault(key, "has no action on its line");
  }
  ListLine found = keyMeaning(key);
  found.action = inCapitals(value.substr(0, value.find_first_of(kBlanks)));
  return found;
}

// The fields of a line of CSV; nothing for quotes that do not close, or close before the end of a field.
std::optional<std::vector<std::string>> fieldsOf(std::string_view line) {
  std::vector<std::string> fields(1);
  bool isQuoted = false;
  bool wasQuoted = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    const char character = line[at];
    if (isQuoted && character == '"' && at + 1 < line.size() && line[at + 1] == '"') {
      fields.back() += line[++at];
    } else if (isQuoted && character == '"') {
      isQuoted = false;
      wasQuoted = true;
    } else if (!isQuoted && character == ',') {
      fields.emplace_back();
      wasQuoted = false;
    } else if (!isQuoted && !wasQuoted && character == '"' && fields.back().empty()) {
      isQuoted = true;
    } else if (wasQuoted) {
      return std::nullopt;
    } else {
      fields.back() += character;
    }
  }
  return isQuoted ? std::nullopt : std::make_optional(std::move(fields));
}

}  // namespace

ListLine ForeignList::read(const std::string& line) {
  switch (m_format) {
    case ListFormat::Access:
      return accessLine(line);
    case ListFormat::Csv:
      return _field(line);
    case ListFormat::Plain:
      break;
  }
  const std::string_view text = trimmed(line);
  return saysNothing(text) ? ListLine() : meaningOf(text);
}

ListLine ForeignList::_field(const std::string& line) {
  const auto fields = fieldsOf(line);
  if (!fields) {
    return fault(line, "has quotes that do not enclose a field");
  }
  if (!m_place) {
    const auto number = decimalNumber(m_column);
    if (number && *number > 0) {
      m_place = static_cast<std::size_t>(*number) - 1;
    } else {
      const auto named = std::find(fields->begin(), fields->end(), m_column);
      if (named == fields->end()) {
        throw zaroruntime::RuntimeError("the first line names no column " + quoted(m_column),
                                        zaroruntime::FailureKind::Data);
      }
      m_place = static_cast<std::size_t>(named - fields->begin());
      return {};
    }
  }
  if (trimmed(line).empty()) {
    return {};
  }
  if (*m_place >= fields->size()) {
    return fault(line, "has no column " + std::to_string(*m_place + 1));
  }
  const std::string_view text = trimmed((*fields)[*m_place]);
  return text.empty() ? ListLine() : meaningOf(text);
}

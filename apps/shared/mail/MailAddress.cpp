#include "mail/MailAddress.h"

#include <idn2.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>

#include "mail/LetterCase.h"
#include "patterns/PatternPieces.h"

namespace {

constexpr std::string_view kNullSender = "<>";

// Position of the "@" in front of the domain. A domain has no quotes, so an "@" with one behind it is inside a local
// part that stands alone.
std::size_t domainSign(std::string_view text) {
  const std::size_t at = text.rfind('@');
  return at == std::string_view::npos || text.find('"', at) != std::string_view::npos ? std::string_view::npos : at;
}

// What a local part says: quotes around and backslashes in front of a character only spell it.
std::string contentOf(std::string_view localPart) {
  std::string content;
  for (std::size_t at = 0; at != localPart.size(); ++at) {
    if (localPart[at] == '\\' && at + 1 != localPart.size()) {
      content += localPart[++at];
    } else if (localPart[at] != '"') {
      content += localPart[at];
    }
  }
  return content;
}

// Whether a local part needs no quotes (Dot-string).
bool isDotString(std::string_view content) {
  return !content.empty() && content.front() != '.' && content.back() != '.' &&
         content.find("..") == std::string_view::npos &&
         std::all_of(content.begin(), content.end(),
                     [](char character) { return isNameCharacter(character) || isBeyondAscii(character); });
}

// Whether a local part is in quotes as a whole (Quoted-string), and holds something.
bool isQuotedString(std::string_view localPart) {
  if (localPart.size() < 3 || localPart.front() != '"' || localPart.back() != '"') {
    return false;
  }
  const std::string_view inside = localPart.substr(1, localPart.size() - 2);
  for (std::size_t at = 0; at != inside.size(); ++at) {
    if (inside[at] == '"' || (inside[at] == '\\' && ++at == inside.size()) ||
        (inside[at] != ' ' && isBlankOrControl(inside[at]))) {
      return false;
    }
  }
  return true;
}

bool isHost(std::string_view domain) {
  if (domain.size() > 2 && domain.front() == '[' && domain.back() == ']') {
    const std::string_view literal = domain.substr(1, domain.size() - 2);
    return std::none_of(literal.begin(), literal.end(), isBlankOrControl) &&
           literal.find_first_of("[\\]") == std::string_view::npos;
  }
  const auto isOfHost = [](char character) {
    return isLabelCharacter(character) || isBeyondAscii(character) || character == '.';
  };
  return !domain.empty() && domain.front() != '.' && domain.back() != '.' &&
         domain.find("..") == std::string_view::npos && std::all_of(domain.begin(), domain.end(), isOfHost);
}

std::string inQuotes(std::string_view content) {
  std::string text = "\"";
  for (const char character : content) {
    switch (character) {
      case '@':
        text += "%40";
        break;
      case '%':
        text += "%25";
        break;
      case '"':
      case '\\':
        text += '\\';
        [[fallthrough]];
      default:
        text += character;
    }
  }
  return text + '"';
}

// The content of a local part in quotes, whose "@" and "%" are written as inQuotes does.
std::string withoutNumbers(std::string_view content) {
  std::string text(content);
  for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
    const std::string_view number = std::string_view(text).substr(at + 1, 2);
    if (number == "40" || number == "25") {
      text.replace(at, 3, number == "40" ? "@" : "%");
    }
  }
  return text;
}

std::string localPartOf(std::string_view content) {
  const std::string text = inLowerCase(content);
  return isDotString(text) ? text : inQuotes(text);
}

bool isAnsweredByTheServer(std::string_view content, bool hyphenDelimits) {
  constexpr std::array<std::string_view, 3> kNames = {"mailer-daemon", "double-bounce", "postmaster"};
  constexpr std::string_view kOwner = "owner-";
  constexpr std::string_view kRequest = "-request";
  const std::string name = inLowerCase(content);
  const bool isOfAList =
      name.compare(0, kOwner.size(), kOwner) == 0 ||
      (name.size() > kRequest.size() && name.compare(name.size() - kRequest.size(), kRequest.size(), kRequest) == 0);
  return std::find(kNames.begin(), kNames.end(), name) != kNames.end() || (hyphenDelimits && isOfAList);
}

std::string_view withoutExtension(std::string_view content, std::string_view delimiters) {
  const std::size_t end = content.find_first_of(delimiters, 1);
  if (end == std::string_view::npos || isAnsweredByTheServer(content, delimiters.find('-') != std::string_view::npos)) {
    return content;
  }
  return content.substr(0, end);
}

// --- Tags of mail servers ---

bool beginsWith(std::string_view text, std::string_view lowerCaseBegin) {
  return text.size() >= lowerCaseBegin.size() && inLowerCase(text.substr(0, lowerCaseBegin.size())) == lowerCaseBegin;
}

// The part up to a separator, which is taken off `text` with it. Nothing when the separator is not there.
std::optional<std::string_view> takePart(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  if (end == std::string_view::npos || end == 0) {
    return std::nullopt;
  }
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(end + 1);
  return part;
}

// A mailbox in the making: the local part without its spelling, and the domain as it is spelled.
struct Mailbox {
  std::string name;
  std::string domain;
};

// prvs=TAG=LOCAL
bool stripBatvTag(Mailbox& mailbox) {
  constexpr std::string_view kBegin = "prvs=";
  if (!beginsWith(mailbox.name, kBegin)) {
    return false;
  }
  std::string_view rest = std::string_view(mailbox.name).substr(kBegin.size());
  const auto tag = takePart(rest, '=');
  if (!tag || rest.empty() || !std::all_of(tag->begin(), tag->end(), isAlphanumeric)) {
    return false;
  }
  mailbox.name = std::string(rest);
  return true;
}

// What begins a form of SRS: its name and one of three separators.
bool takeSrsBegin(std::string_view& text, std::string_view name) {
  constexpr std::string_view kSeparators = "=+-";
  if (!beginsWith(text, name) || text.size() == name.size() ||
      kSeparators.find(text[name.size()]) == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(name.size() + 1);
  return true;
}

// SRS0=HASH=TIME=DOMAIN=LOCAL, SRS1=HASH=HOST==HASH=TIME=DOMAIN=LOCAL
bool stripSrsTag(Mailbox& mailbox) {
  std::string_view rest = mailbox.name;
  if (takeSrsBegin(rest, "srs1")) {
    if (!takePart(rest, '=') || !takePart(rest, '=') || !takeSrsBegin(rest, "")) {
      return false;
    }
  } else if (!takeSrsBegin(rest, "srs0")) {
    return false;
  }
  if (!takePart(rest, '=') || !takePart(rest, '=')) {
    return false;
  }
  const auto domain = takePart(rest, '=');
  const auto isOfDomain = [](char character) {
    return isLabelCharacter(character) || isBeyondAscii(character) || character == '.';
  };
  // An "@" in it would move the domain.
  if (!domain || rest.empty() || !std::all_of(domain->begin(), domain->end(), isOfDomain)) {
    return false;
  }
  mailbox = {std::string(rest), std::string(*domain)};
  return true;
}

// The A-label of a label beyond ASCII; empty if there is none.
std::string aLabelOf(std::string_view label) {
  if (label.find('\0') != std::string_view::npos) {
    return {};
  }
  std::uint8_t* converted = nullptr;
  const std::string text(label);
  const int result = idn2_lookup_u8(reinterpret_cast<const std::uint8_t*>(text.c_str()), &converted,
                                    IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
  if (result == IDN2_MALLOC) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<std::uint8_t, void (*)(void*)> owned(converted, idn2_free);
  return result == IDN2_OK ? reinterpret_cast<const char*>(converted) : std::string();
}

std::string labelOf(std::string_view label) {
  const bool isAscii = std::none_of(label.begin(), label.end(), isBeyondAscii);
  const std::string converted = isAscii ? std::string() : aLabelOf(label);
  return inLowerCase(converted.empty() ? label : converted);
}

// With "." for each of the characters that people who write other scripts type for it (UTS #46).
std::string withPlainDots(std::string_view domain) {
  constexpr std::array<std::string_view, 3> kDots = {"\u3002", "\uff0e", "\uff61"};
  std::string plain(domain);
  for (const std::string_view dot : kDots) {
    for (std::size_t at = plain.find(dot); at != std::string::npos; at = plain.find(dot, at)) {
      plain.replace(at, dot.size(), ".");
    }
  }
  return plain;
}

std::string domainOf(std::string_view spelled) {
  if (!spelled.empty() && spelled.front() == '[') {
    return inLowerCase(spelled);  // an address literal
  }
  const std::string domain = withPlainDots(spelled);
  std::string form;
  for (std::size_t begin = 0; begin <= domain.size();) {
    const std::size_t end = std::min(domain.find('.', begin), domain.size());
    form += labelOf(std::string_view(domain).substr(begin, end - begin));
    form += '.';
    begin = end + 1;
  }
  form.pop_back();
  while (form.size() > 1 && form.back() == '.') {
    form.pop_back();  // the root's
  }
  return form;
}

// Without the brackets of a path, and the hosts on its way.
std::string_view mailboxOf(std::string_view path) {
  if (path.size() < 2 || path.front() != '<' || path.back() != '>') {
    return path;
  }
  path = trimmed(path.substr(1, path.size() - 2));
  const std::size_t route = path.find(':');
  return !path.empty() && path.front() == '@' && route != std::string_view::npos ? path.substr(route + 1) : path;
}

}  // namespace

bool isMailbox(std::string_view text) {
  const std::size_t at = domainSign(text);
  if (at == std::string_view::npos) {
    return false;
  }
  const std::string_view localPart = text.substr(0, at);
  return (isDotString(localPart) || isQuotedString(localPart)) && isHost(text.substr(at + 1));
}

std::string normalAddress(std::string_view spelled) {
  return normalAddress(spelled, AddressForm());
}

std::string normalAddress(std::string_view spelled, std::string_view delimiters) {
  return normalAddress(spelled, AddressForm{delimiters});
}

std::string normalAddress(std::string_view spelled, const AddressForm& form) {
  const std::string_view path = trimmed(spelled);
  const std::string_view mailbox = mailboxOf(path);
  if (mailbox.empty()) {
    return std::string(path.empty() ? path : kNullSender);
  }
  const std::size_t at = domainSign(mailbox);
  const std::string content = contentOf(mailbox.substr(0, at));
  if (at == std::string_view::npos) {
    return localPartOf(content);
  }
  Mailbox stripped = {content, std::string(mailbox.substr(at + 1))};
  // Each tag is shorter than what it stands in, so that this ends.
  while ((form.stripBatv && stripBatvTag(stripped)) || (form.stripSrs && stripSrsTag(stripped))) {
  }
  return localPartOf(withoutExtension(stripped.name, form.delimiters)) + '@' + domainOf(stripped.domain);
}

bool isPlainPattern(std::string_view pattern) {
  const std::size_t at = pattern.find('@');
  if (at == std::string_view::npos || at == 0 || pattern.back() == '.') {
    return false;
  }
  const auto isPlain = [](char character) {
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') || character == '-' ||
           character == '_' || character == '.' || character == '*';
  };
  return isDotString(pattern.substr(0, at)) &&
         std::all_of(pattern.begin(), pattern.begin() + static_cast<std::ptrdiff_t>(at), isPlain) &&
         std::all_of(pattern.begin() + static_cast<std::ptrdiff_t>(at) + 1, pattern.end(), isPlain);
}

std::string normalPattern(std::string_view pattern) {
  if (isPlainPattern(pattern)) {
    return std::string(pattern);
  }
  const std::size_t at = domainSign(pattern);
  if (at == std::string_view::npos) {
    return std::string(pattern);
  }
  const std::string_view name = pattern.substr(0, at);
  const bool isQuoted = name.find('"') != std::string_view::npos;
  const std::string content = isQuoted ? withoutNumbers(contentOf(name)) : contentOf(name);
  const bool isLiteralStar = content == "*" && name != "*";
  return (isLiteralStar ? inQuotes(content) : localPartOf(content)) + '@' + domainOf(pattern.substr(at + 1));
}

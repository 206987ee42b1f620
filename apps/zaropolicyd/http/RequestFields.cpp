#include "http/RequestFields.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
  const std::size_t end = text.find_last_not_of(kBlanks);
  return begin == text.size() ? std::string_view() : text.substr(begin, end - begin + 1);
}

// Takes what stands before a delimiter, and the delimiter with it.
std::string_view takeUntil(std::string_view& text, char delimiter) {
  const std::string_view taken = text.substr(0, text.find(delimiter));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  return taken;
}

bool isLetterOrDigit(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9');
}

char lowered(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool equalsIgnoringCase(std::string_view one, std::string_view other) {
  return one.size() == other.size() &&
         std::equal(one.begin(), one.end(), other.begin(), [](char a, char b) { return lowered(a) == lowered(b); });
}

// The target without scheme and host, which a client may give.
std::string_view originForm(std::string_view target) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (equalsIgnoringCase(target.substr(0, scheme.size()), scheme)) {
      const std::size_t path = target.find_first_of("/?", scheme.size());
      return path == std::string_view::npos || target[path] == '?' ? std::string_view() : target.substr(path);
    }
  }
  return target;
}

// A number of seconds, `longest` for a greater one; nothing for what is no number.
std::optional<std::chrono::seconds> secondsOf(std::string_view text, std::chrono::seconds longest) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  std::chrono::seconds::rep number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() ? std::min(std::chrono::seconds(number), longest) : longest;
}

// A quality in thousandths; nothing for what is none.
std::optional<int> qualityOf(std::string_view text) {
  constexpr int kWhole = 1000;
  constexpr std::size_t kMostDigits = 3;
  if (text.empty() || (text[0] != '0' && text[0] != '1') || (text.size() > 1 && text[1] != '.') ||
      text.size() > 2 + kMostDigits) {
    return std::nullopt;
  }
  int quality = text[0] == '1' ? kWhole : 0;
  int place = kWhole / 10;
  for (const char digit : text.substr(std::min<std::size_t>(text.size(), 2))) {
    if (digit < '0' || digit > '9') {
      return std::nullopt;
    }
    quality += (digit - '0') * place;
    place /= 10;
  }
  return quality <= kWhole ? std::optional(quality) : std::nullopt;
}

// The quality among the parameters of a coding: that of one without is 1, and what cannot be read is not wanted.
int qualityIn(std::string_view parameters) {
  constexpr int kWhole = 1000;
  while (!parameters.empty()) {
    std::string_view value = takeUntil(parameters, ';');
    const std::string_view name = trimmed(takeUntil(value, '='));
    if (equalsIgnoringCase(name, "q")) {
      return qualityOf(trimmed(value)).value_or(0);
    }
  }
  return kWhole;
}

}  // namespace

std::optional<Target> parseTarget(std::string_view target, std::chrono::seconds longest) {
  std::string_view query = originForm(target);
  if (query.empty() || query[0] != '/') {
    return std::nullopt;
  }
  Target parsed;
  parsed.path = takeUntil(query, '?');
  while (!query.empty()) {
    std::string_view value = takeUntil(query, '&');
    if (takeUntil(value, '=') != "wait") {
      continue;
    }
    const bool twice = parsed.wait.has_value();
    parsed.wait = secondsOf(value, longest);
    if (twice || !parsed.wait) {
      return std::nullopt;
    }
  }
  return parsed;
}

bool holdsTag(std::string_view ifNoneMatch, std::string_view tag) {
  if (trimmed(ifNoneMatch) == "*") {
    return true;
  }
  for (;;) {
    ifNoneMatch.remove_prefix(std::min(ifNoneMatch.find_first_not_of(" \t,"), ifNoneMatch.size()));
    if (ifNoneMatch.substr(0, 2) == "W/") {
      ifNoneMatch.remove_prefix(2);
    }
    // A comma may stand within the quotes.
    const std::size_t end = ifNoneMatch.find('"', 1);
    if (ifNoneMatch.empty() || ifNoneMatch[0] != '"' || end == std::string_view::npos) {
      return false;
    }
    if (ifNoneMatch.substr(0, end + 1) == tag) {
      return true;
    }
    ifNoneMatch.remove_prefix(end + 1);
  }
}

bool takesGzip(std::string_view acceptEncoding) {
  std::optional<int> gzip;
  std::optional<int> any;
  int plain = 0;
  while (!acceptEncoding.empty()) {
    std::string_view parameters = takeUntil(acceptEncoding, ',');
    const std::string_view coding = trimmed(takeUntil(parameters, ';'));
    const int quality = qualityIn(parameters);
    if (equalsIgnoringCase(coding, "gzip") || equalsIgnoringCase(coding, "x-gzip")) {
      gzip = quality;
    } else if (coding == "*") {
      any = quality;
    } else if (equalsIgnoringCase(coding, "identity")) {
      plain = quality;
    }
  }
  const int wanted = gzip.value_or(any.value_or(0));
  return wanted > 0 && wanted >= plain;
}

std::optional<std::string_view> bearerToken(std::string_view authorization) {
  std::string_view token = trimmed(authorization);
  const std::string_view scheme = takeUntil(token, ' ');
  token = trimmed(token);
  return equalsIgnoringCase(scheme, "Bearer") && isToken(token) ? std::optional(token) : std::nullopt;
}

bool isToken(std::string_view text) {
  const std::size_t padding = std::min(text.find('='), text.size());
  const auto isPart = [](char letter) {
    return isLetterOrDigit(letter) || std::string_view("-._~+/").find(letter) != std::string_view::npos;
  };
  return padding != 0 && std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(padding), isPart) &&
         text.find_first_not_of('=', padding) == std::string_view::npos;
}

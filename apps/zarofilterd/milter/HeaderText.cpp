#include "milter/HeaderText.h"

#include <algorithm>
#include <vector>

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool isBlank(char letter) {
  return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n';
}

// --- From ---

// Reads a list of mailboxes as far as its first address.
class FromReader {
 public:
  explicit FromReader(std::string_view text) : m_text(text) {}

  std::optional<std::string> address() {
    for (; m_at < m_text.size(); ++m_at) {
      switch (m_text[m_at]) {
        case '(':
          _skipComment();
          break;
        case '"':
          m_outside += _quoted();
          break;
        case '<':
          return _inBrackets();
        case ',':
        case ';':
          if (auto found = _outside()) {
            return found;
          }
          m_outside.clear();
          break;
        case ':':  // the name of a group
          m_outside.clear();
          break;
        default:
          m_outside += m_text[m_at];
      }
    }
    return _outside();
  }

 private:
  // Stops at the last parenthesis of the comment.
  void _skipComment() {
    int depth = 0;
    for (; m_at < m_text.size(); ++m_at) {
      if (m_text[m_at] == '\\') {
        ++m_at;
      } else if (m_text[m_at] == '(') {
        ++depth;
      } else if (m_text[m_at] == ')' && --depth == 0) {
        return;
      }
    }
  }

  // The text with its quotes; stops at the last one.
  std::string _quoted() {
    std::string quoted(1, m_text[m_at++]);
    for (; m_at < m_text.size(); ++m_at) {
      quoted += m_text[m_at];
      if (m_text[m_at] == '"') {
        break;
      }
      if (m_text[m_at] == '\\' && m_at + 1 < m_text.size()) {
        quoted += m_text[++m_at];
      }
    }
    return quoted;
  }

  std::optional<std::string> _inBrackets() {
    std::string address;
    for (++m_at; m_at < m_text.size() && m_text[m_at] != '>'; ++m_at) {
      if (m_text[m_at] == '"') {
        address += _quoted();
      } else if (m_text[m_at] == '(') {
        _skipComment();
      } else if (!isBlank(m_text[m_at])) {
        address += m_text[m_at];
      }
    }
    return address.find('@') != kNone ? std::optional(address) : std::nullopt;
  }

  // An address without brackets; a phrase is none.
  std::optional<std::string> _outside() const {
    const auto first = std::find_if_not(m_outside.begin(), m_outside.end(), isBlank);
    const auto last = std::find_if_not(m_outside.rbegin(), m_outside.rend(), isBlank).base();
    const std::string address = first < last ? std::string(first, last) : std::string();
    return address.find('@') != kNone ? std::optional(address) : std::nullopt;
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  std::string m_outside;
};

// --- Encoded words ---

bool isAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char letter) { return letter >= ' ' && letter < 127; });
}

std::string base64(const std::string& bytes) {
  constexpr const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    unsigned int group = 0;
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8U | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= count ? kDigits[group >> (18 - 6 * i) & 63U] : '=';
    }
  }
  return text;
}

bool continuesCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
}

// An encoded word has 75 characters at most, and no character is divided among two. One word stands on a line, since
// long lines are cut on the way.
std::string encodedWords(const std::string& text) {
  constexpr std::size_t kMostBytes = 45;
  std::string words;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = std::min(text.size(), at + kMostBytes);
    while (end < text.size() && end > at + 1 && continuesCharacter(text[end])) {
      --end;
    }
    words += (words.empty() ? "" : "\n ");
    words += "=?UTF-8?B?" + base64(text.substr(at, end - at)) + "?=";
    at = end;
  }
  return words;
}

}  // namespace

std::optional<std::string> addressOfFrom(std::string_view value) {
  return FromReader(value).address();
}

std::string asHeaderText(const std::string& text) {
  return isAscii(text) ? text : encodedWords(text);
}

std::string taggedSubject(const std::string& tag, const std::string& subject) {
  const std::size_t begin = std::min(subject.find_first_not_of(" \t"), subject.size());
  // Blanks between two encoded words are not shown, so the one behind the tag is encoded with it.
  const std::string written = isAscii(tag) ? tag : encodedWords(tag + " ");
  // Blanks before a tag are gone with those before the subject.
  const std::string seen = written.substr(std::min(written.find_first_not_of(" \t"), written.size()));
  if (subject.compare(begin, seen.size(), seen) == 0) {
    return subject;
  }
  return written + " " + subject.substr(begin);
}

std::string asReplyText(const std::string& text) {
  constexpr std::size_t kLongest = 400;
  std::string line = text.substr(0, kLongest);
  std::replace_if(
      line.begin(), line.end(), [](char letter) { return letter < ' ' || letter > '~'; }, '?');
  return line;
}

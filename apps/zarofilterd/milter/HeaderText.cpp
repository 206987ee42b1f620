#include "milter/HeaderText.h"

#include <algorithm>
#include <vector>

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// --- From ---

// Collects an address out of the characters outside of comments. Blanks beside "@", "." and what divides the hosts of a
// route are part of it (RFC 5322, 4.4); others end a word, and the first word with an "@" is the address.
class AddressCollector {
 public:
  void add(std::string_view text) {
    if (!m_isComplete && m_isBlankBefore && !_isJoint(text.front()) && !m_word.empty() && !_isJoint(m_word.back())) {
      if (_isAddress()) {
        m_isComplete = true;
      } else {
        m_word.clear();
      }
    }
    m_isBlankBefore = false;
    if (!m_isComplete) {
      m_word += text;
    }
  }
  void addBlank() { m_isBlankBefore = true; }
  void clear() { *this = AddressCollector(); }

  // Whether the word ends with the "@".
  bool isBeforeDomain() const { return !m_word.empty() && m_word.back() == '@'; }
  std::optional<std::string> address() const { return _isAddress() ? std::optional(m_word) : std::nullopt; }

 private:
  static bool _isJoint(char character) { return std::string_view("@.:,").find(character) != kNone; }
  bool _isAddress() const { return m_word.find('@') != kNone; }

  std::string m_word;
  bool m_isBlankBefore = false;
  bool m_isComplete = false;
};

// Reads a list of mailboxes as far as its first address. What is opened and never closed is taken for a character,
// since the readers of mail show what follows it.
class FromReader {
 public:
  explicit FromReader(std::string_view text) : m_text(text) {}

  std::optional<std::string> address() {
    AddressCollector outside;
    while (m_at < m_text.size()) {
      switch (m_text[m_at]) {
        case '<':
          if (auto found = _inBrackets()) {
            return found;
          }
          outside.addBlank();
          break;
        case ',':
        case ';':
          if (auto found = outside.address()) {
            return found;
          }
          [[fallthrough]];
        case ':':  // behind the name of a group
          outside.clear();
          ++m_at;
          break;
        default:
          _readInto(outside);
      }
    }
    return outside.address();
  }

 private:
  // The position behind what begins here and ends with `end`; kNone if it does not. A backslash takes the character
  // behind it along.
  std::size_t _endOf(char end) const {
    for (std::size_t at = m_at + 1; at < m_text.size(); ++at) {
      if (m_text[at] == end) {
        return at + 1;
      }
      at += m_text[at] == '\\' ? 1 : 0;
    }
    return kNone;
  }

  std::size_t _endOfComment() const {
    int depth = 0;
    for (std::size_t at = m_at; at < m_text.size(); ++at) {
      if (m_text[at] == '\\') {
        ++at;
      } else if (m_text[at] == '(') {
        ++depth;
      } else if (m_text[at] == ')' && --depth == 0) {
        return at + 1;
      }
    }
    return kNone;
  }

  // Reads a comment, a blank, or what makes up words: a quoted text, an address literal, a character.
  void _readInto(AddressCollector& words) {
    constexpr std::string_view kNoPart = "()>\" \t\r\n";
    const char first = m_text[m_at];
    const std::size_t end = _endOfPart(words.isBeforeDomain());
    const bool isQuoted = first == '"' && end != m_at + 1;
    if (isQuoted || kNoPart.find(first) == kNone) {
      words.add(m_text.substr(m_at, end - m_at));
    } else {
      words.addBlank();
    }
    m_at = end;
  }

  std::size_t _endOfPart(bool isBeforeDomain) {
    const char first = m_text[m_at];
    if (first == '\\') {
      return std::min(m_at + 2, m_text.size());
    }
    const bool isOpening = first == '(' || first == '"' || (first == '[' && isBeforeDomain);
    // One search for an end that is not there, or a long field would take the square of its length.
    if (isOpening && m_neverClosed.find(first) == kNone) {
      const std::size_t end = first == '(' ? _endOfComment() : _endOf(first == '[' ? ']' : first);
      if (end != kNone) {
        return end;
      }
      m_neverClosed += first;
    }
    return m_at + 1;
  }

  std::optional<std::string> _inBrackets() {
    AddressCollector inside;
    for (++m_at; m_at < m_text.size() && m_text[m_at] != '>';) {
      if (m_text[m_at] == '<') {
        inside.clear();
        ++m_at;
      } else {
        _readInto(inside);
      }
    }
    m_at = std::min(m_at + 1, m_text.size());
    return inside.address();
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  std::string m_neverClosed;  // opening characters
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

#include "sql/SqlText.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "common/AsciiText.h"

namespace zaroruntime {

namespace {

// Bytes over 127 count as letters, as they do in both databases.
bool isWord(char sign) {
  return isAsciiLetter(sign) || isAsciiDigit(sign) || sign == '_' || static_cast<unsigned char>(sign) > 127;
}

bool startsWith(std::string_view text, std::size_t at, std::string_view what) {
  return text.compare(at, what.size(), what) == 0;
}

// One past the closing quote, or npos.
std::size_t endOfQuoted(std::string_view text, std::size_t open, char quote, bool backslashEscapes) {
  const char stops[] = {quote, backslashEscapes ? '\\' : quote};
  std::size_t at = open + 1;
  while ((at = text.find_first_of(std::string_view(stops, 2), at)) != std::string_view::npos) {
    const bool doubled = at + 1 < text.size() && text[at + 1] == quote;
    if (text[at] == quote && !doubled) {
      return at + 1;
    }
    at += 2;  // a doubled quote, or a backslash with what it escapes
  }
  return std::string_view::npos;
}

std::size_t endOfComment(std::string_view text, std::size_t open) {
  int depth = 0;
  for (std::size_t at = open; at + 1 < text.size();) {
    if (startsWith(text, at, "/*")) {
      ++depth;
      at += 2;
    } else if (startsWith(text, at, "*/")) {
      at += 2;
      if (--depth == 0) {
        return at;
      }
    } else {
      ++at;
    }
  }
  return std::string_view::npos;
}

// The opening $tag$ at `at`, or nothing.
std::string_view dollarTag(std::string_view text, std::size_t at) {
  std::size_t end = at + 1;
  while (end < text.size() && isWord(text[end])) {
    ++end;
  }
  const bool number = end > at + 1 && isAsciiDigit(text[at + 1]);
  return end < text.size() && text[end] == '$' && !number ? text.substr(at, end + 1 - at) : std::string_view();
}

// One past the word that begins at `begin`: a name or key word, which may hold dollar signs, or the digits of a number,
// which a name may follow without a blank.
std::size_t endOfWord(std::string_view text, std::size_t begin) {
  const bool number = isAsciiDigit(text[begin]);
  std::size_t end = begin + 1;
  while (end < text.size() && (number ? isAsciiDigit(text[end]) : isWord(text[end]) || text[end] == '$')) {
    ++end;
  }
  return end;
}

// The end of the text ends a line, too.
std::size_t endOfLine(std::string_view text, std::size_t at) {
  return std::min(text.find_first_of("\n\r", at), text.size());
}

// PostgreSQL takes literals with blanks and a line's end between them for one; line comments count as blanks. Where the
// next part of the literal that ends at `at` opens, or npos.
std::size_t nextPartOfLiteral(std::string_view text, std::size_t at) {
  bool newLine = false;
  while (at < text.size() && (isAsciiBlank(text[at]) || startsWith(text, at, "--"))) {
    newLine = newLine || text[at] == '\n' || text[at] == '\r';
    at = text[at] == '-' ? endOfLine(text, at) : at + 1;
  }
  return newLine && startsWith(text, at, "'") ? at : std::string_view::npos;
}

SqlSegment segment(SqlPiece piece, std::string_view text, std::size_t begin, std::size_t end) {
  const bool closed = end != std::string_view::npos;
  return {piece, begin, closed ? end : text.size(), closed};
}

// An E literal, or a further part of one, whose quote opens at `open`.
SqlSegment escapeLiteralAt(std::string_view text, std::size_t open) {
  return segment(SqlPiece::EscapeLiteral, text, open, endOfQuoted(text, open, '\'', true));
}

// What begins at `at`, where a token does; Code for a word or a sign.
SqlSegment segmentAt(std::string_view text, std::size_t at) {
  const char sign = text[at];
  if (sign == '\'') {
    return segment(SqlPiece::Literal, text, at, endOfQuoted(text, at, sign, false));
  }
  if (asciiLower(sign) == 'e' && startsWith(text, at + 1, "'")) {
    return escapeLiteralAt(text, at + 1);
  }
  if (sign == '"') {
    return segment(SqlPiece::QuotedName, text, at, endOfQuoted(text, at, sign, false));
  }
  if (startsWith(text, at, "--")) {
    return segment(SqlPiece::Comment, text, at, endOfLine(text, at));
  }
  if (startsWith(text, at, "/*")) {
    return segment(SqlPiece::Comment, text, at, endOfComment(text, at));
  }
  const std::string_view tag = sign == '$' ? dollarTag(text, at) : std::string_view();
  if (!tag.empty()) {
    const std::size_t close = text.find(tag, at + tag.size());
    const bool closed = close != std::string_view::npos;
    return segment(SqlPiece::DollarLiteral, text, at, closed ? close + tag.size() : close);
  }
  return segment(SqlPiece::Code, text, at, isWord(sign) ? endOfWord(text, at) : at + 1);
}

const char* nameOf(SqlPiece piece) {
  switch (piece) {
    case SqlPiece::QuotedName:
      return "quoted name";
    case SqlPiece::Comment:
      return "comment";
    default:
      return "literal";
  }
}

// Words of code in capitals, one after the other; comments are passed over.
class Words {
 public:
  explicit Words(std::string_view text) : m_text(text) {}

  // Empty at the end, and at a literal or quoted name.
  std::string next() {
    while (m_at < m_text.size() && !isWord(m_text[m_at])) {
      const char sign = m_text[m_at];
      if (sign == '\'' || sign == '"') {
        return {};
      }
      m_at = isCommentAt(m_at) ? segmentAt(m_text, m_at).end : m_at + 1;
    }
    std::string word;
    const std::size_t end = m_at < m_text.size() ? endOfWord(m_text, m_at) : m_at;
    for (; m_at < end; ++m_at) {
      word += asciiUpper(m_text[m_at]);
    }
    return word;
  }

 private:
  bool isCommentAt(std::size_t at) const { return startsWith(m_text, at, "--") || startsWith(m_text, at, "/*"); }

  std::string_view m_text;
  std::size_t m_at = 0;
};

// The text behind the mark that some editors put before UTF-8; SQLite takes the mark for a blank.
std::string_view withoutMark(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  return startsWith(text, 0, kMark) ? text.substr(kMark.size()) : text;
}

// The code of a statement that stands in no parentheses, with a sign of its own for every literal and quoted name.
std::string outsideParentheses(std::string_view statement) {
  std::string outside;
  int depth = 0;
  for (const SqlSegment& segment : scanSql(statement)) {
    if (segment.piece != SqlPiece::Code) {
      outside += segment.piece == SqlPiece::Comment ? ' ' : '?';
      continue;
    }
    for (const char sign : statement.substr(segment.begin, segment.end - segment.begin)) {
      depth += sign == '(' ? 1 : sign == ')' ? -1 : 0;
      outside += depth == 0 ? sign : ' ';
    }
  }
  return outside;
}

// Tells where the statements of a script end.
class StatementEnd {
 public:
  // Takes the next word of code.
  void takeWord(const std::string& word) {
    ++m_words;
    m_created = m_words == 1 ? word == "CREATE" : m_created;
    // CREATE [TEMP | TEMPORARY | OR REPLACE | CONSTRAINT] TRIGGER; further on it would be a mere name.
    m_trigger = m_trigger || (m_created && m_words <= 4 && word == "TRIGGER");
    if (m_trigger && (word == "BEGIN" || word == "CASE")) {
      ++m_depth;
    } else if (m_trigger && word == "END" && m_depth > 0) {
      --m_depth;
    }
  }

  bool isAtSemicolon() const { return m_depth == 0; }

  void reset() { *this = StatementEnd(); }

 private:
  int m_words = 0;
  int m_depth = 0;  // open BEGIN and CASE in a trigger
  bool m_created = false;
  bool m_trigger = false;
};

}  // namespace

std::vector<SqlSegment> scanSql(std::string_view text) {
  std::vector<SqlSegment> segments;
  std::size_t codeBegin = 0;
  std::size_t nextEscapes = std::string_view::npos;  // where the next part of an escape literal opens
  for (std::size_t at = 0; at < text.size();) {
    const SqlSegment found = at == nextEscapes ? escapeLiteralAt(text, at) : segmentAt(text, at);
    at = found.end;
    if (found.piece == SqlPiece::Code) {
      continue;
    }
    if (found.piece == SqlPiece::EscapeLiteral) {
      nextEscapes = nextPartOfLiteral(text, found.end);
    }
    if (found.begin > codeBegin) {
      segments.push_back({SqlPiece::Code, codeBegin, found.begin, true});
    }
    segments.push_back(found);
    codeBegin = found.end;
  }
  if (codeBegin < text.size()) {
    segments.push_back({SqlPiece::Code, codeBegin, text.size(), true});
  }
  return segments;
}

std::string whyNotOneStatement(std::string_view text) {
  bool ended = false;
  for (const SqlSegment& segment : scanSql(text)) {
    if (!segment.closed) {
      return std::string("a ") + nameOf(segment.piece) + " does not end";
    }
    if (segment.piece == SqlPiece::Comment) {
      return "a statement must not hold comments";
    }
    if (segment.piece != SqlPiece::Code) {
      if (ended) {
        return "more than one statement";
      }
      continue;
    }
    for (const char sign : text.substr(segment.begin, segment.end - segment.begin)) {
      if (sign == ';') {
        ended = true;
      } else if (ended && !isAsciiBlank(sign)) {
        return "more than one statement";
      }
    }
  }
  return {};
}

TransactionVerb transactionVerb(std::string_view statement) {
  struct VerbRow {
    const char* first;
    const char* second;  // "" for the end; null for any
    TransactionVerb verb;
  };
  // On some servers BEGIN and END with other words around them are the braces of a block.
  static constexpr VerbRow kVerbs[] = {
      {"BEGIN", "", TransactionVerb::Begin},
      {"BEGIN", "TRANSACTION", TransactionVerb::Begin},
      {"BEGIN", "TRAN", TransactionVerb::Begin},
      {"BEGIN", "DISTRIBUTED", TransactionVerb::Begin},
      {"BEGIN", "WORK", TransactionVerb::Begin},
      {"BEGIN", "DEFERRED", TransactionVerb::Begin},
      {"BEGIN", "IMMEDIATE", TransactionVerb::Begin},
      {"BEGIN", "EXCLUSIVE", TransactionVerb::Begin},
      {"BEGIN", "ISOLATION", TransactionVerb::Begin},
      {"BEGIN", "READ", TransactionVerb::Begin},
      {"BEGIN", "NOT", TransactionVerb::Begin},
      {"BEGIN", "DEFERRABLE", TransactionVerb::Begin},
      {"START", "TRANSACTION", TransactionVerb::Begin},
      {"COMMIT", nullptr, TransactionVerb::Commit},
      {"END", "", TransactionVerb::Commit},
      {"END", "TRANSACTION", TransactionVerb::Commit},
      {"END", "WORK", TransactionVerb::Commit},
      {"END", "AND", TransactionVerb::Commit},
      {"ROLLBACK", nullptr, TransactionVerb::Rollback},
      {"ABORT", nullptr, TransactionVerb::Rollback},
      {"SAVEPOINT", nullptr, TransactionVerb::Savepoint},
      {"RELEASE", nullptr, TransactionVerb::Savepoint},
      {"PREPARE", "TRANSACTION", TransactionVerb::Unsupported},
  };
  Words words(withoutMark(statement));
  const std::string first = words.next();
  const std::string second = words.next();
  const auto* const row = std::find_if(std::begin(kVerbs), std::end(kVerbs), [&](const VerbRow& verb) {
    return first == verb.first && (verb.second == nullptr || second == verb.second);
  });
  const TransactionVerb verb = row != std::end(kVerbs) ? row->verb : TransactionVerb::None;
  if (verb != TransactionVerb::Commit && verb != TransactionVerb::Rollback) {
    return verb;
  }
  std::string last;
  for (std::string word = second; !word.empty(); last = std::exchange(word, words.next())) {
    if (word == "TO") {
      return TransactionVerb::Savepoint;
    }
    if (word == "PREPARED" || (word == "CHAIN" && last != "NO")) {
      return TransactionVerb::Unsupported;
    }
  }
  return verb;
}

bool isPlainData(std::string_view statement) {
  static constexpr const char* kVerbs[] = {"SELECT", "VALUES", "WITH", "INSERT", "REPLACE", "UPDATE", "DELETE"};
  const std::string first = Words(withoutMark(statement)).next();
  return std::any_of(std::begin(kVerbs), std::end(kVerbs), [&](const char* verb) { return first == verb; });
}

bool copiesThroughClient(std::string_view statement) {
  if (Words(withoutMark(statement)).next() != "COPY") {
    return false;
  }
  const std::string clauses = outsideParentheses(statement);
  Words words(clauses);
  std::string last;
  for (std::string word = words.next(); !word.empty(); last = std::exchange(word, words.next())) {
    // PostgreSQL takes either word in either direction.
    if ((last == "FROM" || last == "TO") && (word == "STDIN" || word == "STDOUT")) {
      return true;
    }
  }
  return false;
}

std::vector<ScriptStatement> splitScript(std::string_view script) {
  std::vector<ScriptStatement> statements;
  ScriptStatement current;
  StatementEnd end;
  std::size_t line = 1;

  const auto append = [&](std::string_view text) {
    for (const char sign : text) {
      if (current.text.empty() && !isAsciiBlank(sign)) {
        current.line = line;
      }
      if (!current.text.empty() || !isAsciiBlank(sign)) {
        current.text += sign;
      }
      line += sign == '\n' ? 1 : 0;
    }
  };
  const auto finish = [&] {
    while (!current.text.empty() && isAsciiBlank(current.text.back())) {
      current.text.pop_back();
    }
    if (!current.text.empty()) {
      statements.push_back(current);
    }
    current = ScriptStatement();
    end.reset();
  };

  for (const SqlSegment& segment : scanSql(script)) {
    const std::string_view text = script.substr(segment.begin, segment.end - segment.begin);
    if (!segment.closed) {
      throw RuntimeError("line " + std::to_string(line) + ": a " + nameOf(segment.piece) + " does not end",
                         FailureKind::Data);
    }
    if (segment.piece == SqlPiece::Comment) {
      append(" ");
      line += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
      continue;
    }
    if (segment.piece != SqlPiece::Code) {
      append(text);
      continue;
    }
    for (std::size_t at = 0; at < text.size();) {
      if (isWord(text[at])) {
        const std::string_view word = text.substr(at, endOfWord(text, at) - at);
        end.takeWord(Words(word).next());
        append(word);
        at += word.size();
      } else if (text[at] == ';' && end.isAtSemicolon()) {
        finish();
        ++at;
      } else {
        append(text.substr(at, 1));
        ++at;
      }
    }
  }
  finish();
  return statements;
}

}  // namespace zaroruntime

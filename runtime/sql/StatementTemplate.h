// The text of a statement file and what may be put into it.
//
// A file holds one statement. Its conversions are %s, %d, %u and %%, without flags or widths. Each %s stands inside a
// plain literal ('...'), and its argument must have its quotes doubled, so that nothing breaks out of the literal. A
// number stands where it makes no other literal, name or comment of what is around it.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

namespace zaroruntime {

class StatementTemplate {
 public:
  // Throws RuntimeError saying what is wrong with the text.
  explicit StatementTemplate(std::string text);

  // One letter for each conversion that takes an argument: 's', 'd' or 'u'.
  std::string conversions() const;

  // The statement with the arguments (const char*, int, unsigned int) put in. Throws RuntimeError for a null text and
  // for one with an undoubled quote.
  std::string format(va_list arguments) const;

 private:
  struct Conversion {
    char letter;
    std::size_t position;  // of the percent sign
  };

  // The text with a number for each %d, 1 for each %u, and nothing for each %s.
  std::string _withNumbers(const std::string& number) const;

  std::string m_text;
  std::vector<Conversion> m_conversions;
};

// The template in a file; throws RuntimeError naming the file.
StatementTemplate readStatementFile(const std::string& path);
// The same, but read again only when the file has changed since this thread read it. Good until this thread asks again.
const StatementTemplate& statementFile(const std::string& path);

}  // namespace zaroruntime

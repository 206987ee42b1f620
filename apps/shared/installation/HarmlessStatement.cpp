#include "installation/HarmlessStatement.h"

#include <fstream>
#include <iterator>

#include "ZaroRuntime/RuntimeError.h"

std::string harmlessStatement(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) {
    throw zaroruntime::RuntimeError(path + ": cannot be read", zaroruntime::FailureKind::Configuration);
  }
  std::string statement;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%' || at + 1 == text.size()) {
      statement += text[at];
      continue;
    }
    switch (text[++at]) {
      case 's':
        statement += 'x';
        break;
      case '%':
        statement += '%';
        break;
      default:
        statement += '1';
    }
  }
  // The loader drops a semicolon at the end as well.
  statement.erase(statement.find_last_not_of("; \t\r\n") + 1);
  return statement;
}

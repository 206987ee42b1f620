// The statement files that the library runs, in one table. The library's calls name file, buffer and columns where they
// use them, since it exports no table; tests/unit/tables compares the calls, the files of both databases and the manual.
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

enum class StatementKind {
  Query,
  Change,
  Transaction,  // cannot be explained
};

// The buffer that the library forms a statement in: of fixed size, and made to measure where the texts among the
// parameters are longer than they may be in that. Of several calls with one file, the smallest.
struct StatementBuffer {
  std::size_t fixed;  // bytes; 0: always made to measure
  std::size_t longestTexts = std::numeric_limits<std::size_t>::max();
};

struct CataloguedStatement {
  const char* file;
  const char* conversions;  // of its parameters in order: 's', 'd' or 'u'
  StatementKind kind;
  StatementBuffer buffer;
  std::vector<const char*> columns;  // that are read from its result
};

const std::vector<CataloguedStatement>& statementCatalog();
// Null when the library runs no such file.
const CataloguedStatement* findStatement(const std::string& file);

// The size of a statement's buffer when its texts have so many bytes together. The library counts quotes twice, as they
// are written, but in the names of address groups once.
std::size_t bufferSize(const CataloguedStatement& statement, std::size_t texts);

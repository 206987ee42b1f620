// The statement files that the library runs.
#pragma once

#include <string>
#include <vector>

enum class StatementKind {
  Query,
  Change,
  Transaction,  // cannot be explained
};

struct CataloguedStatement {
  const char* file;
  const char* conversions;  // of its parameters in order: 's', 'd' or 'u'
  StatementKind kind;
  std::vector<const char*> columns;  // that are read from its result
};

const std::vector<CataloguedStatement>& statementCatalog();

// The text of a statement file with harmless parameters: x for texts, 1 for numbers. The file must be one that the
// loader takes. Throws RuntimeError when it cannot be read.
std::string harmlessStatement(const std::string& path);

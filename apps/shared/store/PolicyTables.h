// The tables of the stored policy as an exported document has them (docs/policy-document.md): export, import and their
// checks go by these declarations alone.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "console/Output.h"

enum class PolicyValue { Identifier, Number, Boolean, Text };

struct PolicyColumn {
  const char* key;     // in the document
  const char* column;  // in the database
  PolicyValue value;
  // Bounds of a number; of a text those of its characters.
  long long least;
  long long greatest;
  const char* refersTo = nullptr;  // the table, by its key, whose row an identifier names
  bool mayBeNull = false;
  std::optional<int> refersToType = std::nullopt;  // the "type" that the row must have
};

// Rows of another table that belong to one row. One whose rows refer to those of another list of the row stands behind it.
struct PolicyList {
  const char* key;
  const char* table;
  const char* owner;  // the column that names the row that they belong to
  // The column of their order, from 0; null for a set, which is in the order of its values and has one column.
  const char* position;
  std::vector<PolicyColumn> columns;  // of one, elements are its values; of several, they are objects
  const char* ownersType = nullptr;   // a column that repeats the "type" of the row they belong to
  // The members of an address group, which GroupEdit writes and other objects lack.
  bool isMembers = false;
};

struct PolicyTable {
  const char* key;   // in the document
  const char* kind;  // what a row is called
  const char* table;
  std::size_t keyColumns;  // how many of the columns, from the first on, tell rows apart
  std::vector<PolicyColumn> columns;
  // Columns, by their places, whose values together no other row has. The last is given another value for the moment
  // when two rows change places.
  std::vector<std::vector<std::size_t>> uniques;
  std::vector<PolicyList> lists;
  std::string (*fault)(const Json& row) = nullptr;  // what else is wrong with a row; empty for nothing
  // A document's rows stand for all of the table even where they are merged with what is stored.
  bool isOneWhole = false;

  bool hasIdentifiers() const { return columns.front().value == PolicyValue::Identifier; }
};

// A table that another refers to stands before it.
const std::vector<PolicyTable>& policyTables();

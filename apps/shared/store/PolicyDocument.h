// The stored policy as one document, and the differences of two; docs/policy-document.md describes it.
//
// A document has one form: each table a list of rows in the order of their keys, each row its keys in the declared
// order, sets in ascending order. So equal policies are equal documents, and equal bytes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Output.h"
#include "store/PolicyTables.h"

// The text is no document, or not one that can be stored; `what` begins with the place.
class PolicyTextError : public zaroruntime::RuntimeError {
 public:
  explicit PolicyTextError(const std::string& text) : RuntimeError(text, zaroruntime::FailureKind::Data) {}
};

// A document without rows.
Json emptyPolicy();
// The document in bytes. RuntimeError for a text that is not UTF-8.
std::string policyText(const Json& policy);

// The document of a text, in its one form. Throws PolicyTextError.
//   stored   a policy that it is merged with: tables and rows that the text lacks are those of this one; without it, the
//            text must have every table
Json readPolicyText(const std::string& text, const Json* stored);

// Puts rows into the order of the form.
void sortRows(const PolicyTable& table, Json& rows);

// A row before and after; null where it is not.
using RowChange = std::pair<const Json*, const Json*>;
// The rows of a table that differ between two policies.
std::vector<RowChange> changedRows(const PolicyTable& table, const Json& before, const Json& after);

// What tells a row from others, in one value.
Json keyOf(const PolicyTable& table, const Json& row);

// Each difference: change (added, changed, removed), kind, key, name, field, before, after. Of a row that is added or
// removed there is one, with the whole row; of a changed one there is one for each field, and of a list what is in one
// alone.
Json differencesOf(const Json& before, const Json& after);

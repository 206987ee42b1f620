// The stored policy out of the database, and into it.
//
// Everything throws RuntimeError.
#pragma once

#include <string>

#include "console/Output.h"
#include "store/Database.h"

// The whole policy as it is at one moment.
Json readPolicy();

struct PolicyImport {
  std::string text;      // the document
  bool merges = false;   // what the document lacks stays
  bool isTrial = false;  // nothing is changed
};

// Makes the stored policy that of a document, in one transaction, and reads it back before that is committed. Answers
// the differences.
Json importPolicy(const PolicyImport& wanted);

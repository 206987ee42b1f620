// A policy as a list of what is in it, for people who read one or compare two.
#pragma once

#include <string>
#include <vector>

#include "console/Output.h"
#include "policy/MailPolicy.h"

// A rule, a wildcard group, an address group, an object, or the order of rule filters.
struct PolicyEntry {
  std::string kind;
  unsigned int id = 0;
  std::string name;
  Json fields;                       // texts, numbers, truth values; what stands for nothing is null
  std::vector<std::string> members;  // of an address group
};

// By kind and identifier; rules by position. What a rule refers to has its name. Throws RuntimeError for an action that
// is none.
std::vector<PolicyEntry> entriesOf(const MailPolicy& policy);

// One line for the fields that hold something.
std::string textOf(const PolicyEntry& entry);

// Rows of change, kind, id, name, field, before, after: one for each entry that comes or goes, for each field that
// changes, and for each member that comes or goes.
Json differencesOf(const std::vector<PolicyEntry>& before, const std::vector<PolicyEntry>& after);

// The keys of results, command by command, as --json prints them: what --query takes, and what the manual is compared
// with. A command without a row prints bytes or a document of its own, and nothing by key.
#pragma once

#include <string>
#include <vector>

struct ResultKeys {
  const char* command;
  const char* keys;    // of a result, or of each of several; a blank between them
  const char* within;  // of what stands inside of those
};

const std::vector<ResultKeys>& resultKeys();

// Throws UsageError, which names the keys that there are, unless the command's results have the key.
void requireResultKey(const std::string& command, const std::string& key);

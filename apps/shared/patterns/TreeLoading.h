// Trees of patterns for deciding mail, loaded whole or not at all.
#pragma once

#include <string>
#include <vector>

#include "console/Progress.h"
#include "patterns/PatternTrees.h"

enum class PatternSpelling {
  AsMail,  // in the form that normalPattern gives
  Literal  // as the library would take them
};

// Loads a tree for each source, as parseTreeSources takes them. Patterns whose kind the library refuses are told on
// standard error and passed over. Throws UsageError, RuntimeError when a source cannot be read, and BadLine for a line
// that is no pattern.
void loadTrees(const std::vector<std::string>& sources, PatternSpelling spelling, PatternTrees& trees,
               Progress& progress);

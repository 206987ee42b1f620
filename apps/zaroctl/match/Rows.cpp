#include "match/Rows.h"

void describe(const Decision& decision, const PatternTrees& trees, const std::string& prefix, Json& row) {
  const auto key = [&](const char* name) { return prefix + name; };
  row[key("code")] = decision.code;
  if (decision.code == 0) {
    for (const char* name : {"pattern", "kind", "tree", "tree_index"}) {
      row[key(name)] = nullptr;
    }
    return;
  }
  row[key("pattern")] = decision.pattern;
  row[key("kind")] = decision.kind;
  row[key("tree")] = trees.name(decision.tree);
  row[key("tree_index")] = decision.tree;
}

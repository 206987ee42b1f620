#include "match/Rows.h"

void describe(const Decision& decision, const PatternTrees& trees, const std::string& prefix, Json& row) {
  const auto key = [&](std::string name) {
    if (!prefix.empty()) {
      name[0] = static_cast<char>(name[0] - 'a' + 'A');
    }
    return prefix + name;
  };
  row[key("code")] = decision.code;
  if (decision.code == 0) {
    for (const char* name : {"pattern", "kind", "tree", "treeIndex"}) {
      row[key(name)] = nullptr;
    }
    return;
  }
  row[key("pattern")] = decision.pattern;
  row[key("kind")] = decision.kind;
  row[key("tree")] = trees.name(decision.tree);
  row[key("treeIndex")] = decision.tree;
}

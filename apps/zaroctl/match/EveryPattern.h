// Every pattern that contains an address.
#pragma once

#include <string>
#include <vector>

#include "match/Question.h"
#include "match/Rows.h"

class EveryPattern : public Question {
 public:
  EveryPattern(Output& out, PatternTrees& trees, bool together)
      : m_trees(trees),
        m_rows(out,
               {{"address", "ADDRESS"},
                {"pattern", "PATTERN"},
                {"kind", "KIND"},
                {"weight", "WEIGHT"},
                {"tree", "TREE"},
                {"asked", "ASKED"}},
               together) {}

  bool answer(const Addresses& addresses) override;
  void finish() override { m_rows.finish(); }

 private:
  void show(const AskedAddress& address);

  PatternTrees& m_trees;
  Rows m_rows;
  std::vector<KxListedEmailAddress*> m_leaves;
};

// Which pattern decides an address.
#pragma once

#include "match/Question.h"
#include "match/Rows.h"

class DecidingPattern : public Question {
 public:
  DecidingPattern(Output& out, PatternTrees& trees, bool together)
      : m_trees(trees),
        m_rows(out,
               {{"address", "ADDRESS"},
                {"code", "CODE"},
                {"pattern", "PATTERN"},
                {"kind", "KIND"},
                {"tree", "TREE"},
                {"asked", "ASKED"}},
               together) {}

  bool answer(const Addresses& addresses) override;
  void finish() override { m_rows.finish(); }

 private:
  PatternTrees& m_trees;
  Rows m_rows;
};

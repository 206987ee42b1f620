// Which addresses two sets of trees decide differently.
#pragma once

#include <string>

#include "match/Question.h"
#include "match/Rows.h"

class Differences : public Question {
 public:
  Differences(Output& out, PatternTrees& oldTrees, PatternTrees& newTrees, bool together)
      : m_old(oldTrees),
        m_new(newTrees),
        m_rows(out,
               {{"address", "ADDRESS"},
                {"old_code", "OLD CODE"},
                {"old_pattern", "OLD PATTERN"},
                {"new_code", "NEW CODE"},
                {"new_pattern", "NEW PATTERN"},
                {"asked", "ASKED"}},
               together) {}

  // Found is what did not change.
  bool answer(const Addresses& addresses) override;
  void finish() override { m_rows.finish(); }

 private:
  static bool isSame(const Decision& before, const Decision& after);
  static std::string text(const Decision& decision) { return decision.pattern != nullptr ? decision.pattern : ""; }

  PatternTrees& m_old;
  PatternTrees& m_new;
  Rows m_rows;
};

// What became of every pattern that contains an address.
#pragma once

#include <string>

#include "KxMatchExplanation.h"
#include "console/Output.h"
#include "match/Question.h"
#include "patterns/PatternTrees.h"

class Reasons : public Question {
 public:
  Reasons(Output& out, PatternTrees& trees) : m_out(out), m_trees(trees) {}

  bool answer(const Addresses& addresses) override;

 private:
  bool explain(const AskedAddress& address);
  Json candidatesOf(const KxMatchExplanation& explanation) const;
  Json documentOf(const AskedAddress& address, const KxMatchExplanation& explanation, const Json& candidates) const;

  Output& m_out;
  PatternTrees& m_trees;
};

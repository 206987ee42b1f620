// How many addresses are decided, and how fast.
#pragma once

#include <cstdint>
#include <map>

#include "console/Output.h"
#include "console/Progress.h"
#include "match/Question.h"
#include "patterns/PatternTrees.h"

class Totals : public Question {
 public:
  Totals(Output& out, PatternTrees& trees) : m_out(out), m_trees(trees) {}

  bool answer(const Addresses& addresses) override;
  void finish() override;

 private:
  Output& m_out;
  PatternTrees& m_trees;
  Stopwatch m_watch;
  std::map<unsigned int, std::uint64_t> m_byCode;
  std::uint64_t m_unreadable = 0;
};

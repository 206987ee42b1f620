// What people get wrong in lists of patterns and never learn.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KxListedEmailAddress.h"
#include "KxMatchExplanation.h"
#include "console/Progress.h"
#include "patterns/PatternTrees.h"

struct LintFinding {
  std::string file;
  std::size_t line;
  std::string pattern;
  const char* rule;  // a word for programs
  std::string reason;
  std::string suggestion;
};

class PatternLint {
 public:
  // Trees in order of precedence. Throws RuntimeError when a file cannot be read.
  void load(const TreeSource& source, Progress& progress);
  // Freezes the trees and looks for what shows only when all are there. Returns every finding, by place.
  std::vector<LintFinding> findings();

 private:
  // A pattern as its file has it.
  struct Line {
    std::size_t tree;
    std::size_t file;  // in m_files
    std::size_t number;
    std::string pattern;
  };
  // What the lines made of one leaf.
  struct Leaf {
    Line first;
    Line last;  // the one that changed its kinds last
    KxEmailBelongsTo state;
    bool startedRefused;  // whether the first line's kind was refused
  };

  void _add(const PatternOrigin& origin);
  void _checkKnown(Leaf& known, const KxListedEmailAddress& leaf, const Line& line, KxEmailBelongsTo kind, bool added);
  void _checkDecision(const KxListedEmailAddress& leaf);
  static std::size_t _deciding(const KxMatchExplanation& explanation);
  // The candidate that is tied with the deciding one, or null.
  static const KxMatchCandidate* _tied(const KxMatchExplanation& explanation);
  void _reportTie(const Line& line, const KxListedEmailAddress& other);
  std::string _where(const Line& line) const;
  std::string _named(const KxListedEmailAddress* leaf) const;
  void _report(const Line& line, const char* rule, std::string reason, std::string suggestion);

  PatternTrees m_trees;
  std::vector<std::string> m_files;
  std::unordered_map<const KxListedEmailAddress*, Leaf> m_leaves;
  std::vector<const KxListedEmailAddress*> m_order;
  std::vector<std::pair<std::size_t, LintFinding>> m_findings;  // with the place of the file
};

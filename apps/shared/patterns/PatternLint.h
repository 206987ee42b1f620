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
  std::vector<std::string> patterns;  // of the suggestion, for lines of their own in place of this one; may be none
};

// Every line costs the same, however many there are. All operations throw std::bad_alloc when memory runs out.
class PatternLint {
 public:
  // `passing` are the kinds that let mail pass.
  explicit PatternLint(KxEmailBelongsTo passing) : m_passing(passing) {}

  // Trees in order of precedence. Throws RuntimeError when a file cannot be read.
  void load(const TreeSource& source, Progress& progress);
  // Freezes the trees and looks for what shows only when all are there. Returns every finding, by place.
  std::vector<LintFinding> findings();

 private:
  // A pattern as its file has it.
  struct Line {
    unsigned int tree;
    unsigned int file;  // in m_files
    std::size_t number;
    std::size_t text;  // in m_texts
    KxEmailBelongsTo kind;
    bool added;
    const KxListedEmailAddress* leaf;  // known when the trees are frozen
  };
  // What the lines made of one leaf. Lines stand for their positions in m_lines.
  struct Leaf {
    std::size_t first;
    std::size_t last;  // the one that changed its kinds last
    KxEmailBelongsTo state;
    bool startedRefused;  // whether the first line's kind was refused
    bool refusesMore;     // whether a line is refused that would count without the others
  };

  void _add(const PatternOrigin& origin);
  unsigned int _placeOf(const std::string& file);
  void _findLeaves();
  // Checks a line against those before it that made its leaf.
  void _settle(std::size_t position);
  void _checkKnown(Leaf& known, const Line& line, bool added);
  void _checkDecision(const KxListedEmailAddress& leaf);
  void _checkCatchAll(const KxListedEmailAddress& leaf, const Line& line);
  static std::size_t _deciding(const KxMatchExplanation& explanation);
  // The candidate that is tied with the deciding one, or null.
  static const KxMatchCandidate* _tied(const KxMatchExplanation& explanation);
  void _reportTie(const Line& line, const KxListedEmailAddress& other);
  const char* _textOf(const Line& line) const { return m_texts.c_str() + line.text; }
  std::string _where(const Line& line) const;
  std::string _named(const KxListedEmailAddress* leaf) const;
  void _report(const Line& line, const char* rule, std::string reason, std::string suggestion);
  void _report(std::size_t file, LintFinding finding);

  KxEmailBelongsTo m_passing;
  PatternTrees m_trees;
  std::vector<std::string> m_files;
  std::vector<Line> m_lines;
  std::string m_texts;  // of the lines, each with a NUL behind it
  std::unordered_map<const KxListedEmailAddress*, Leaf> m_leaves;
  std::vector<std::pair<std::size_t, LintFinding>> m_findings;  // with the place of the file
};

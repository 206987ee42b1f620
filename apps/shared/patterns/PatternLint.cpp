#include "patterns/PatternLint.h"

#include <strings.h>

#include <algorithm>
#include <new>
#include <utility>

#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "console/Text.h"
#include "patterns/MatchExplanation.h"
#include "patterns/PatternAdding.h"
#include "patterns/PatternMeaning.h"
#include "patterns/PatternMistakes.h"

namespace {

std::string kindText(KxEmailBelongsTo kind) {
  return "kind " + std::to_string(kind);
}

std::string joined(const std::vector<std::string>& patterns) {
  std::string text;
  for (const std::string& pattern : patterns) {
    text += (text.empty() ? "" : " and ") + pattern;
  }
  return text;
}

}  // namespace

void PatternLint::load(const TreeSource& source, Progress& progress) {
  const auto badLine = [this](const std::string& file, std::size_t line, const BadLine& bad) {
    const unsigned int place = _placeOf(file);
    _report(place, {file, line, "", "bad-line", bad.problem(), "PATTERN, or PATTERN, a tab and a number", {}});
  };
  m_trees.load(
      source, [this](const PatternOrigin& origin) { _add(origin); }, badLine, progress);
}

unsigned int PatternLint::_placeOf(const std::string& file) {
  if (m_files.empty() || m_files.back() != file) {
    m_files.push_back(file);
  }
  return static_cast<unsigned int>(m_files.size() - 1);
}

// Only takes the line in: a tree that is asked while it is filled sorts what it holds each time.
void PatternLint::_add(const PatternOrigin& origin) {
  const unsigned int file = _placeOf(origin.file);
  const std::vector<PatternMistake> mistakes = mistakesIn(origin.pattern);
  const std::vector<std::string> patterns =
      mistakes.empty() ? std::vector<std::string>() : patternsMeantBy(origin.pattern);
  for (const PatternMistake& mistake : mistakes) {
    _report(file, {origin.file, origin.line, origin.pattern, mistake.rule, mistake.reason,
                   patterns.empty() ? mistake.advice : joined(patterns), patterns});
  }

  const bool added = addPattern(origin.root, origin.pattern.c_str(), origin.kind, nullptr);
  m_lines.push_back(
      {static_cast<unsigned int>(origin.tree), file, origin.line, m_texts.size(), origin.kind, added, nullptr});
  m_texts.append(origin.pattern).push_back('\0');
}

// Of all that contain a pattern its own leaf is the most specific.
void PatternLint::_findLeaves() {
  constexpr std::size_t kTogether = 512;
  std::vector<const char*> patterns;
  std::vector<KxListedEmailAddress*> matches;
  std::vector<std::size_t> ends;
  for (std::size_t begin = 0; begin != m_lines.size(); begin += patterns.size()) {
    const unsigned int tree = m_lines[begin].tree;
    patterns.clear();
    for (std::size_t at = begin; at != m_lines.size() && m_lines[at].tree == tree && patterns.size() != kTogether; ++at) {
      patterns.push_back(_textOf(m_lines[at]));
    }
    KxWildcardEmail::findMatchesBatch(*m_trees.roots()[tree], patterns.data(), patterns.size(), matches, ends);
    if (ends.size() != patterns.size()) {
      throw std::bad_alloc();
    }
    std::size_t first = 0;
    for (std::size_t i = 0; i != ends.size(); ++i) {
      if (first == ends[i]) {
        throw std::bad_alloc();
      }
      m_lines[begin + i].leaf = matches[first];
      first = ends[i];
    }
  }
}

void PatternLint::_settle(std::size_t position) {
  const Line& line = m_lines[position];
  const auto inserted = m_leaves.insert({line.leaf, {position, position, 0, !line.added, false}});
  Leaf& leaf = inserted.first->second;
  const bool added = KxListedEmailAddress::isStateAllowed(leaf.state | line.kind);
  if (added != line.added) {
    throw std::bad_alloc();  // what the tree lacked while it took the line in
  }
  if (!inserted.second) {
    _checkKnown(leaf, line, added);
  } else if (added) {
    leaf.state = line.kind;
  } else {
    _report(line, "refused-kind", kindText(line.kind) + " is refused: no pattern may have it",
            "one of 1, 2, 4, 8, 16, 32");
  }
}

void PatternLint::_checkKnown(Leaf& known, const Line& line, bool added) {
  const std::string text = line.leaf->getFullAddressAsStr();
  const KxEmailBelongsTo state = added ? known.state | line.kind : known.state;
  if (strcasecmp(text.c_str(), _textOf(line)) != 0) {
    _report(line, "two-texts",
            "the same pattern as " + quoted(text) + " of " + _where(m_lines[known.first]) + ", whose text stays",
            "one text for both");
  } else if (added && state == known.state) {
    _report(line, "given-twice", "given before, in " + _where(m_lines[known.first]), "remove one of the two lines");
  }
  if (!added) {
    known.refusesMore = known.refusesMore || KxListedEmailAddress::isStateAllowed(line.kind);
    _report(
        line, "refused-kind",
        kindText(line.kind) + " is refused: the pattern has " + kindText(state) + " from " + _where(m_lines[known.last]),
        "remove one of the two lines, or put one of them into another tree");
  } else if (state != known.state) {
    known.last = static_cast<std::size_t>(&line - m_lines.data());
    known.state = state;
  }
}

std::vector<LintFinding> PatternLint::findings() {
  KxWildcardEmail::initScanTimeMode();
  _findLeaves();
  m_leaves.reserve(m_lines.size());
  for (std::size_t position = 0; position != m_lines.size(); ++position) {
    _settle(position);
  }
  for (std::size_t position = 0; position != m_lines.size(); ++position) {
    const KxListedEmailAddress& leaf = *m_lines[position].leaf;
    const Leaf& known = m_leaves.at(&leaf);
    if (known.first == position) {
      _checkDecision(leaf);
      _checkCatchAll(leaf, m_lines[known.last]);
    }
  }
  std::stable_sort(m_findings.begin(), m_findings.end(), [](const auto& one, const auto& other) {
    return std::make_pair(one.first, one.second.line) < std::make_pair(other.first, other.second.line);
  });
  std::vector<LintFinding> findings;
  findings.reserve(m_findings.size());
  for (auto& [file, finding] : m_findings) {
    findings.push_back(std::move(finding));
  }
  m_findings.clear();
  return findings;
}

void PatternLint::_checkCatchAll(const KxListedEmailAddress& leaf, const Line& line) {
  const KxEmailBelongsTo kind = leaf.getState();
  const bool isSingle = (kind & (kind - 1)) == 0;  // others decide nothing
  if (isSingle && (kind & m_passing) != 0 && isCatchAll(leaf.getFullAddressAsStr())) {
    _report(line, "catch-all", "matches every address, and " + kindText(kind) + " lets mail pass",
            "the addresses and domains that are to pass");
  }
}

// Every pattern that contains this one matches whatever this one matches. So what becomes of this one when its own text
// is asked for becomes of it always, except that it may decide there and be taken over by a narrower one elsewhere.
void PatternLint::_checkDecision(const KxListedEmailAddress& leaf) {
  KxMatchExplanation explanation;
  KxWildcardEmail::explainEmailAddress(leaf.getFullAddressAsStr(), m_trees.roots(), explanation);
  const auto own = std::find_if(explanation.candidates.begin(), explanation.candidates.end(),
                                [&](const KxMatchCandidate& candidate) { return candidate.leaf == &leaf; });
  if (own == explanation.candidates.end()) {
    throw std::bad_alloc();  // the explanation is not complete
  }
  const Leaf& known = m_leaves.at(&leaf);
  const Line& line = m_lines[known.last];
  // What is refused now would be taken in without this line.
  const std::string remove = known.refusesMore ? "remove it and what is refused of the pattern" : "remove it";
  const auto other = [&](std::size_t position) { return _named(explanation.candidates[position].leaf); };
  switch (own->fate) {
    case KxMatchCandidate::Ignored:
      if (known.startedRefused && own->state == 0) {
        break;  // reported at the line that was refused
      }
      _report(line, "no-single-kind", "never decides; " + fateText(*own), "one kind a tree; further ones in other trees");
      break;
    case KxMatchCandidate::NotSearched:
      _report(line, "never-decides",
              "an earlier tree always decides, by " + other(_deciding(explanation)) + " or a narrower pattern",
              remove + ", or put its tree first");
      break;
    case KxMatchCandidate::Outranked:
      _report(line, "never-decides", "the first tier always decides, by " + other(own->other) + " or a narrower pattern",
              remove + ", or give it " + kindText(own->state == 8 ? 1 : 2));
      break;
    case KxMatchCandidate::Decided:
      if (const KxMatchCandidate* tied = _tied(explanation)) {
        // With one text for both, the other one is reported.
        if (tied->leaf->getFullAddress() != leaf.getFullAddress()) {
          _reportTie(line, *tied->leaf);
        }
      }
      break;
    case KxMatchCandidate::Tied:
      _reportTie(line, *explanation.candidates[own->other].leaf);
      break;
    case KxMatchCandidate::Lighter:
      // Of the two kinds of the first tier the lighter one still shows in the code.
      if (explanation.tier == KxMatchExplanation::FirstTier && own->state != explanation.candidates[own->other].state) {
        _report(line, "never-decides",
                "always behind " + other(own->other) + " of the other kind; it only adds " +
                    std::to_string(explanation.addedCode) + " to the code",
                "keep it where that is wanted; otherwise one kind for both");
        break;
      }
      [[fallthrough]];
    case KxMatchCandidate::Later:
      _report(line, "never-decides", "always behind " + other(own->other), remove);
      break;
    case KxMatchCandidate::Exception:
      if (own->removed == 0) {
        _report(line, "idle-exception", "takes nothing back: no earlier tree has the same text with the kind it is for",
                "the very text of the pattern that it is to take back, in a later tree");
      }
      break;
    default:
      break;
  }
}

std::size_t PatternLint::_deciding(const KxMatchExplanation& explanation) {
  std::size_t position = 0;
  while (explanation.candidates[position].fate != KxMatchCandidate::Decided) {
    ++position;
  }
  return position;
}

const KxMatchCandidate* PatternLint::_tied(const KxMatchExplanation& explanation) {
  for (const KxMatchCandidate& candidate : explanation.candidates) {
    if (candidate.fate == KxMatchCandidate::Tied) {
      return &candidate;
    }
  }
  return nullptr;
}

void PatternLint::_reportTie(const Line& line, const KxListedEmailAddress& other) {
  _report(line, "always-tied",
          "always as heavy as " + _named(&other) + " of the other kind, or behind a narrower pattern",
          "one of the two kinds for both");
}

std::string PatternLint::_where(const Line& line) const {
  return m_files[line.file] + ":" + std::to_string(line.number);
}

std::string PatternLint::_named(const KxListedEmailAddress* leaf) const {
  return quoted(leaf->getFullAddressAsStr()) + " (" + _where(m_lines[m_leaves.at(leaf).last]) + ")";
}

void PatternLint::_report(const Line& line, const char* rule, std::string reason, std::string suggestion) {
  _report(line.file,
          {m_files[line.file], line.number, _textOf(line), rule, std::move(reason), std::move(suggestion), {}});
}

void PatternLint::_report(std::size_t file, LintFinding finding) {
  m_findings.emplace_back(file, std::move(finding));
}

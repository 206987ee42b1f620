#include "patterns/PatternLint.h"

#include <strings.h>

#include <algorithm>
#include <new>
#include <utility>

#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "console/Text.h"
#include "patterns/MatchExplanation.h"
#include "patterns/PatternText.h"

namespace {

std::string kindText(KxEmailBelongsTo kind) {
  return "kind " + std::to_string(kind);
}

// The leaf that holds a pattern which has just been added: of all that contain the pattern it is the most specific.
const KxListedEmailAddress& leafOf(KxWildcardNode& tree, const std::string& pattern) {
  std::vector<KxListedEmailAddress*> leaves;
  if (!tree.findAllMatches(pattern.c_str(), leaves) || leaves.empty()) {
    throw std::bad_alloc();
  }
  return *leaves.front();
}

}  // namespace

void PatternLint::load(const TreeSource& source, Progress& progress) {
  const auto badLine = [this](const std::string& file, std::size_t line, const BadLine& bad) {
    if (m_files.empty() || m_files.back() != file) {
      m_files.push_back(file);
    }
    _report({0, m_files.size() - 1, line, ""}, "bad-line", bad.problem(), "PATTERN, or PATTERN, a tab and a number");
  };
  m_trees.load(
      source, [this](const PatternOrigin& origin) { _add(origin); }, badLine, progress);
}

void PatternLint::_add(const PatternOrigin& origin) {
  if (m_files.empty() || m_files.back() != origin.file) {
    m_files.push_back(origin.file);
  }
  const Line line = {origin.tree, m_files.size() - 1, origin.line, origin.pattern};
  for (TextFinding& finding : checkPatternText(origin.pattern)) {
    _report(line, finding.rule, finding.reason, std::move(finding.suggestion));
  }

  const bool added = origin.root.addAddressPattern(origin.pattern.c_str(), origin.kind, nullptr, nullptr);
  const KxListedEmailAddress& leaf = leafOf(origin.root, origin.pattern);
  const auto inserted = m_leaves.insert({&leaf, {line, line, leaf.getState(), !added}});
  if (!inserted.second) {
    _checkKnown(inserted.first->second, leaf, line, origin.kind, added);
    return;
  }
  m_order.push_back(&leaf);
  if (!added) {
    _report(line, "refused-kind", kindText(origin.kind) + " is refused: no pattern may have it",
            "one of 1, 2, 4, 8, 16, 32");
  }
}

void PatternLint::_checkKnown(Leaf& known, const KxListedEmailAddress& leaf, const Line& line, KxEmailBelongsTo kind,
                              bool added) {
  const std::string text = leaf.getFullAddressAsStr();
  if (strcasecmp(text.c_str(), line.pattern.c_str()) != 0) {
    _report(line, "two-texts",
            "the same pattern as " + quoted(text) + " of " + _where(known.first) + ", whose text stays",
            "one text for both");
  } else if (added && leaf.getState() == known.state) {
    _report(line, "given-twice", "given before, in " + _where(known.first), "remove one of the two lines");
  }
  if (!added) {
    _report(line, "refused-kind",
            kindText(kind) + " is refused: the pattern has " + kindText(leaf.getState()) + " from " + _where(known.last),
            "remove one of the two lines, or put one of them into another tree");
  } else if (leaf.getState() != known.state) {
    known.last = line;
    known.state = leaf.getState();
  }
}

std::vector<LintFinding> PatternLint::findings() {
  KxWildcardEmail::initScanTimeMode();
  for (const KxListedEmailAddress* leaf : m_order) {
    _checkDecision(*leaf);
  }
  std::stable_sort(m_findings.begin(), m_findings.end(), [](const auto& one, const auto& other) {
    return std::make_pair(one.first, one.second.line) < std::make_pair(other.first, other.second.line);
  });
  std::vector<LintFinding> findings;
  for (auto& [file, finding] : m_findings) {
    findings.push_back(std::move(finding));
  }
  m_findings.clear();
  return findings;
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
  const Line& line = m_leaves.at(&leaf).last;
  const auto other = [&](std::size_t position) { return _named(explanation.candidates[position].leaf); };
  switch (own->fate) {
    case KxMatchCandidate::Ignored:
      if (m_leaves.at(&leaf).startedRefused && own->state == 0) {
        break;  // reported at the line that was refused
      }
      _report(line, "no-single-kind", "never decides; " + fateText(*own), "one kind a tree; further ones in other trees");
      break;
    case KxMatchCandidate::NotSearched:
      _report(line, "never-decides",
              "an earlier tree always decides, by " + other(_deciding(explanation)) + " or a narrower pattern",
              "remove it, or put its tree first");
      break;
    case KxMatchCandidate::Outranked:
      _report(line, "never-decides", "the first tier always decides, by " + other(own->other) + " or a narrower pattern",
              "remove it, or give it kind 1 or 2");
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
      _report(line, "never-decides", "always behind " + other(own->other), "remove it");
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
  return quoted(leaf->getFullAddressAsStr()) + " (" + _where(m_leaves.at(leaf).last) + ")";
}

void PatternLint::_report(const Line& line, const char* rule, std::string reason, std::string suggestion) {
  m_findings.push_back(
      {line.file, {m_files[line.file], line.number, line.pattern, rule, std::move(reason), std::move(suggestion)}});
}

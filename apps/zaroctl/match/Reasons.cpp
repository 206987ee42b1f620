#include "match/Reasons.h"

#include <cstddef>
#include <new>
#include <utility>

#include "KxWildcardEmail.h"
#include "match/Rows.h"
#include "patterns/MatchExplanation.h"

bool Reasons::answer(const Addresses& addresses) {
  bool all = true;
  for (const AskedAddress& address : addresses) {
    if (address.asked) {
      all = explain(address) && all;
    }
  }
  return all;
}

bool Reasons::explain(const AskedAddress& address) {
  KxMatchExplanation explanation;
  KxWildcardEmail::explainEmailAddress(address.asked->c_str(), m_trees.roots(), explanation);
  if (!explanation.complete) {
    throw std::bad_alloc();
  }
  const Json candidates = candidatesOf(explanation);
  if (m_out.isByKey()) {
    m_out.next({}, documentOf(address, explanation, candidates));
  } else {
    m_out.remark(address.given == address.asked ? *address.given : *address.given + ", asked as " + *address.asked);
    m_out.rows({{"n", "N"},
                {"pattern", "PATTERN"},
                {"kind", "KIND"},
                {"weight", "WEIGHT"},
                {"tree", "TREE"},
                {"text", "WHAT BECAME OF IT", Output::Width::Whole}},
               candidates);
    m_out.remark(codeText(explanation));
  }
  return explanation.code != 0;
}

Json Reasons::candidatesOf(const KxMatchExplanation& explanation) const {
  Json rows = Json::array();
  for (const KxMatchCandidate& candidate : explanation.candidates) {
    Json row = {{"n", rows.size() + 1},
                {"pattern", candidate.leaf->getFullAddressAsStr()},
                {"kind", candidate.state},
                {"weight", candidate.weight},
                {"tree", m_trees.name(candidate.tree)},
                {"tree_index", candidate.tree},
                {"fate", fateWord(candidate.fate)}};
    if (candidate.other != KxMatchCandidate::kNone) {
      row["other"] = candidate.other + 1;
    }
    if (candidate.fate == KxMatchCandidate::Exception) {
      row["removed"] = candidate.removed;
    }
    row["text"] = fateText(candidate);
    rows.push_back(std::move(row));
  }
  return rows;
}

Json Reasons::documentOf(const AskedAddress& address, const KxMatchExplanation& explanation,
                         const Json& candidates) const {
  Json document = address.row();
  describe({explanation.code, explanation.treeIndex, explanation.name, explanation.belongsTo}, m_trees, "", document);
  document["tier"] = tierWord(explanation.tier);
  document["weight_a"] = explanation.weightA;
  document["weight_b"] = explanation.weightB;
  document["both_kinds"] = explanation.bothKinds;
  document["base_code"] = explanation.baseCode;
  document["added_code"] = explanation.addedCode;
  document["trees_searched"] = explanation.treesSearched;
  document["candidates"] = candidates;
  document["text"] = codeText(explanation);
  return document;
}

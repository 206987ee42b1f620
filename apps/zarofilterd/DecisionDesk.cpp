#include "DecisionDesk.h"

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

std::string ruleName(const Verdict& verdict) {
  return verdict.rule != nullptr ? verdict.rule->stored.name : "";
}

Verdict decideAndCount(const DecisionDesk& desk, const PolicyGeneration& generation, const Question& question,
                       bool headerMayFollow) {
  const Clock::time_point began = Clock::now();
  const Verdict verdict = Decider(generation, desk.settings.decisions).decide(question);
  const auto took = Clock::now() - began;
  if (!headerMayFollow || !verdict.awaitsHeader) {
    desk.metrics.countDecision(verdict.code, ruleName(verdict), took);
  }
  return verdict;
}

}  // namespace

Verdict DecisionDesk::decide(const PolicyGeneration& generation, const Question& question) const {
  constexpr bool kHeaderMayFollow = true;
  return decideAndCount(*this, generation, question, kHeaderMayFollow);
}

Verdict DecisionDesk::decideWithoutHeader(const PolicyGeneration& generation, const Question& question) const {
  constexpr bool kHeaderMayFollow = false;
  return decideAndCount(*this, generation, question, kHeaderMayFollow);
}

void DecisionDesk::tell(const PolicyGeneration& generation, const std::string& queueId, const Question& question,
                        const Verdict& verdict, const std::string& done) const {
  LogFields line;
  line.add("queue", queueId.empty() ? "NOQUEUE" : queueId);
  line.add("sender", std::string(question.sender));
  if (question.headerFrom) {
    line.add("from", std::string(*question.headerFrom));
  }
  line.add("recipient", std::string(question.recipient));
  line.add("rule", ruleName(verdict));
  line.add("pattern", std::string(verdict.pattern));
  line.add("code", std::to_string(verdict.code));
  line.add("action", keysText(verdict.keys()));
  if (verdict.does(ZaroAction::Quarantine)) {
    line.add("area", verdict.rule->area);
  }
  line.add("done", settings.decisions.shadow ? "shadow" : verdict.isExempt ? "exempt" : done);
  line.add("generation", std::to_string(generation.version()));
  log.info(line);
}

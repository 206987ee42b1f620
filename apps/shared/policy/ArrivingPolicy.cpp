#include "policy/ArrivingPolicy.h"

#include <algorithm>
#include <string>
#include <system_error>

#include "policy/PolicyError.h"

void addMembers(MailPolicy& policy, const MemberPiece& piece) {
  for (const GroupMembers& some : piece) {
    const auto group =
        std::lower_bound(policy.groups.begin(), policy.groups.end(), some.group,
                         [](const MailPolicy::Group& one, unsigned int identifier) { return one.id < identifier; });
    if (group == policy.groups.end() || group->id != some.group) {
      throw UnreadablePolicy(
          "the stored policy has members of the address group " + std::to_string(some.group) + ", which is not there",
          policy.version);
    }
    group->members.add(some.members);
  }
}

ArrivingPolicy::ArrivingPolicy(MailPolicy withoutMembers, ReadMembers readMembers)
    : m_policy(std::move(withoutMembers)) {
  try {
    m_members = std::make_unique<ReadAhead<MemberPiece>>(std::move(readMembers));
  } catch (const std::system_error& failure) {
    throw zaroruntime::RuntimeError(std::string("no thread to read the members of address groups: ") + failure.what());
  }
}

bool ArrivingPolicy::waitForMembersOf(unsigned int group) {
  const auto isOfGroup = [group](const GroupMembers& some) { return some.group == group; };
  while (m_lastGroup <= group) {
    const std::optional<MemberPiece> piece = _nextPiece();
    if (!piece) {
      return false;
    }
    if (std::any_of(piece->begin(), piece->end(), isOfGroup)) {
      return true;
    }
  }
  return false;
}

const MailPolicy& ArrivingPolicy::whole() {
  while (_nextPiece()) {
  }
  return m_policy;
}

std::optional<MemberPiece> ArrivingPolicy::_nextPiece() {
  if (m_failure != nullptr) {
    std::rethrow_exception(m_failure);
  }
  if (m_members == nullptr) {
    return std::nullopt;
  }
  std::optional<MemberPiece> piece = m_members->next();
  if (piece) {
    _add(*piece);
  } else {
    m_members.reset();
  }
  return piece;
}

void ArrivingPolicy::_add(const MemberPiece& piece) {
  try {
    addMembers(m_policy, piece);
  } catch (...) {
    m_failure = std::current_exception();
    throw;
  }
  m_lastGroup = piece.back().group;
}

// A policy of which members of address groups may still be on their way: they take long to read and long to make trees
// of, so both go on at once. For one thread alone.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "policy/MailPolicy.h"
#include "policy/ReadAhead.h"

// The next members of a group; `group` is its identifier.
struct GroupMembers {
  unsigned int group = 0;
  TextList members;
};

// Members that come together, at least one, group by group in the order of identifiers.
using MemberPiece = std::vector<GroupMembers>;
// The next piece, nothing behind the last.
using ReadMembers = std::function<std::optional<MemberPiece>()>;

// Puts the members behind those that the groups have, which stand in the order of identifiers. Throws UnreadablePolicy
// for members of a group that is not there.
void addMembers(MailPolicy& policy, const MemberPiece& piece);

class ArrivingPolicy {
 public:
  // All of it is there.
  ArrivingPolicy(MailPolicy whole) : m_policy(std::move(whole)) {}
  // A thread of its own calls `readMembers`, until that has no more or throws, or this ends, and then destroys it.
  // Throws RuntimeError when there is no thread to be had.
  ArrivingPolicy(MailPolicy withoutMembers, ReadMembers readMembers);

  // What has come, as long as this is not moved. Members move when more of them come, nothing else does.
  const MailPolicy& soFar() const { return m_policy; }
  // Waits for more members of a group, and others that come with them; false when the group has all. Throws what
  // `readMembers` and addMembers throw, and the same again when it is called again.
  bool waitForMembersOf(unsigned int group);
  // Waits for all. Throws the same.
  const MailPolicy& whole();

 private:
  std::optional<MemberPiece> _nextPiece();
  void _add(const MemberPiece& piece);

  MailPolicy m_policy;
  unsigned int m_lastGroup = 0;  // that members have come of
  std::exception_ptr m_failure;
  std::unique_ptr<ReadAhead<MemberPiece>> m_members;  // null when all have come
};

#include "policy/MemberReading.h"

#include <string_view>
#include <vector>

#include "policy/JsonTextArray.h"
#include "policy/StoredNumber.h"

namespace {

using zaroruntime::Dialect;
using zaroruntime::FailureKind;
using Row = StoreConnection::Row;

constexpr std::size_t kMembersAtOnce = 5000;

[[noreturn]] void refuseCutMembers() {
  throw DatabaseError("the members of address groups did not come whole", FailureKind::Data);
}

// Puts members that come one after the other into their groups, whose numbers of members are known before.
class MemberDistribution {
 public:
  void expect(unsigned int group, std::size_t members) {
    m_piece.push_back({group, {}});
    m_counts.push_back(members);
  }

  void take(std::string_view member) {
    while (m_next != m_piece.size() && m_piece[m_next].members.size() == m_counts[m_next]) {
      ++m_next;
    }
    if (m_next == m_piece.size()) {
      refuseCutMembers();
    }
    m_piece[m_next].members.add(member);
  }

  // When all have come.
  MemberPiece finish() {
    if (m_piece.back().members.size() != m_counts.back()) {
      refuseCutMembers();
    }
    return std::move(m_piece);
  }

 private:
  MemberPiece m_piece;
  std::vector<std::size_t> m_counts;  // the expected ones
  std::size_t m_next = 0;
};

// Answers the last position in the last group.
unsigned int expectSeveralGroups(StoreConnection& db, const std::string& piece, MemberDistribution& distribution) {
  unsigned int lastPosition = 0;
  for (const Row& group : db.rows("SELECT group_id, count(*) AS members, max(position) AS last_position FROM " + piece +
                                      " GROUP BY group_id ORDER BY group_id",
                                  {"group_id", "members", "last_position"})) {
    distribution.expect(numberIn<unsigned int>(group[0]), numberIn<std::size_t>(group[1]));
    lastPosition = numberIn<unsigned int>(group[2]);
  }
  return lastPosition;
}

}  // namespace

std::optional<MemberPiece> MemberReading::next() {
  if (!m_hasMore) {
    return std::nullopt;
  }
  const std::string piece = _nextPiece();
  const std::vector<Row> rows = m_db.rows(
      "SELECT count(*) AS members, min(group_id) AS first_group, max(group_id) AS last_group, max(position) AS "
      "last_position, " +
          _jsonOfAddresses() + " AS addresses FROM " + piece,
      {"members", "first_group", "last_group", "last_position", "addresses"});
  const Row& row = rows.at(0);
  const auto count = numberIn<std::size_t>(row[0]);
  if (count == 0) {
    m_hasMore = false;
    return std::nullopt;
  }
  auto lastPosition = numberIn<unsigned int>(row[3]);
  MemberDistribution distribution;
  if (row[1] == row[2]) {
    distribution.expect(numberIn<unsigned int>(row[1]), count);
  } else {
    lastPosition = expectSeveralGroups(m_db, piece, distribution);
  }
  const bool isWhole = eachTextIn(row[4] ? std::string_view(*row[4]) : std::string_view(),
                                  [&](std::string_view member) { distribution.take(member); });
  if (!isWhole) {
    refuseCutMembers();
  }
  m_hasMore = count == kMembersAtOnce;
  m_condition = " WHERE (group_id, position) > (" + *row[2] + ", " + std::to_string(lastPosition) + ")";
  return distribution.finish();
}

std::string MemberReading::_nextPiece() const {
  return "(SELECT group_id, position, address FROM address_group_member" + m_condition +
         " ORDER BY group_id, position LIMIT " + std::to_string(kMembersAtOnce) + ") AS piece";
}

// Drivers hand out rows and columns one by one, and each costs as much as hundreds of characters: thousands of
// addresses come as one text. SQLite before 3.44 knows no order within an aggregate; it adds the rows as they come from
// the piece, and keeps the order of that for this aggregate's sake.
std::string MemberReading::_jsonOfAddresses() const {
  return m_db.dialect() == Dialect::SQLite ? "json_group_array(address)"
                                           : "CAST(json_agg(address ORDER BY group_id, position) AS text)";
}

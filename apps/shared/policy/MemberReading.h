// The members of address groups out of the database.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "policy/ArrivingPolicy.h"
#include "store/Database.h"

// Reads thousands of members at a time, behind the last that it has (keyset pagination), so that the database finds
// each piece at once. All of it in one transaction, which reads of one moment.
class MemberReading {
 public:
  explicit MemberReading(StoreConnection& db) : m_db(db) {}

  // The next members, nothing behind the last. Throws DatabaseError, and PolicyError for what is no number.
  std::optional<MemberPiece> next();

 private:
  std::string _nextPiece() const;
  std::string _jsonOfAddresses() const;

  StoreConnection& m_db;
  std::string m_condition;  // of the members that are left
  bool m_hasMore = true;
};

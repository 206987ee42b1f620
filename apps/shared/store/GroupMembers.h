// Addresses as members of a group: which can be one, which are the same, and how a file holds them.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

// Why a text cannot be a member; empty when it can.
std::string wrongMember(const std::string& address);

// What tells members apart: the address with its ASCII letters in lower case, as addresses are matched.
std::string memberKey(const std::string& address);

// Members in the order in which they are given, each once. The spelling that comes first stays.
class DistinctMembers {
 public:
  DistinctMembers();
  DistinctMembers(const DistinctMembers&) = delete;
  DistinctMembers& operator=(const DistinctMembers&) = delete;

  // Takes a member unless it is there. Answers its place in `addresses`, and the number of these tells whether it is new.
  std::size_t add(const std::string& address);
  const std::vector<std::string>& addresses() const { return m_addresses; }
  // Gives the members away.
  std::vector<std::string> take();

 private:
  // Both look at the address in a place, so that none is kept twice.
  struct Hash {
    const std::vector<std::string>* addresses;
    std::size_t operator()(std::size_t place) const;
  };
  struct Equal {
    const std::vector<std::string>* addresses;
    bool operator()(std::size_t one, std::size_t other) const;
  };

  std::vector<std::string> m_addresses;
  std::unordered_set<std::size_t, Hash, Equal> m_places;
};

// --- Files of members, one a line ---

// The line of a member, without its end: the address, or its printable form behind a backslash and a blank when the
// address alone would be read as something else.
std::string memberLine(const std::string& address);
// The member that a line holds; nothing for a comment or an empty line. Throws RuntimeError for a wrong escape.
std::optional<std::string> memberOfLine(const std::string& line);

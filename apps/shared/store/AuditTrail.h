// The audit trail of the policy, which triggers of the database write.
//
// Everything throws RuntimeError.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "console/Output.h"
#include "store/Database.h"

// A moment as the trail has it, YYYY-MM-DDTHH:MM:SS.mmmZ, out of one on the command line: a date, or a date and a time
// down to minutes, seconds or parts of them, with or without "Z". UTC. Nothing for a text that is none.
std::optional<std::string> auditTime(const std::string& text);

struct AuditQuery {
  std::optional<unsigned int> object;  // what is about this one
  std::optional<std::string> since;    // as `auditTime` gives it
};

// Hands on each entry, the oldest first: id, at, administrator, login, host, program, change, subject, object, before,
// after; null for what it lacks.
void readAuditTrail(const AuditQuery& query, const std::function<void(const Json&)>& take);

// Removes the entries before a moment, and leaves one about that. Answers how many went.
std::size_t trimAuditTrail(const std::string& before);

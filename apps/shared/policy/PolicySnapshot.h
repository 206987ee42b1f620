// A policy as a text that outlives its database: JSON, one value a line.
//
//   {"format":1,"version":N,"made_at":"...","rules":N,"entities":N,"groups":N,"members":N,"objects":N}
//   {"rule":ID,...}  {"entity":ID,...}  {"group":ID,...}  {"members":["...",...]}  {"object":ID,...}  {"order":{...}}
//   {"sha256":"..."}
//
// The members of a group follow it, in pieces. The last line has the SHA-256 of all before it, line ends included, so
// that a text that was cut or changed is no snapshot.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "policy/MailPolicy.h"

// Gives the lines of a policy, each with its end, to `put`, and throws what that throws. Throws
// UnreadablePolicy for a policy with texts that are no UTF-8.
void writeSnapshot(const MailPolicy& policy, const std::function<void(std::string_view)>& put);

// Reads one as a whole. `next` takes the next line, without its end, and answers false behind the last one. Throws
// RuntimeError for anything that is no whole snapshot.
MailPolicy readSnapshot(const std::function<bool(std::string&)>& next);
// The same of a text that is there as a whole.
MailPolicy readSnapshotText(std::string_view text);
// The SHA-256 that the last line of a whole snapshot has.
std::string_view digestOf(std::string_view snapshot);

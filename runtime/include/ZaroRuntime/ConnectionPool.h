// What a program may want of the connection pools of its process, beside what the platform declares.
#pragma once

namespace zaroruntime {

// How pools connect from now on, for programs at which a user waits; otherwise within 30 seconds, and with 5 further
// trials.
//   timeOut   seconds for one attempt
//   trials    further attempts; 0 for none
void setPoolConnecting(int timeOut, int trials);

// Closes the connections of every pool: idle ones now, those on loan when they come back. For the end of a program,
// since a pool lives until then and SQLite tidies its files up when the last connection closes. A pool that is asked
// again connects anew.
void closePools();

}  // namespace zaroruntime

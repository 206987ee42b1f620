// What every program does around its work.
#pragma once

#include <functional>

#include "console/ExitCode.h"

// Prepares the process, runs the work and tells on standard error what it throws. Returns the exit status; a signal
// that interrupted the work is raised again, so that the calling process learns why it ended.
//
// A program knows the password of the database, so that its memory is kept out of core dumps; and a file that grows
// beyond the limit of its size is a failed write, not the end of the program.
//
// Where memory runs out, also where the libraries of others let no exception pass, the program ends with a status, and
// standard error has the text that `outOfMemory` answers; it takes no memory.
int runProgram(
    const std::function<ExitCode()>& work, const char* (*outOfMemory)() = [] { return "out of memory"; });

// From now on `new` on this thread waits where memory has run out, for a second in one go, before it throws. For
// threads of a service in whose libraries an exception ends the program, or loses what would have gone on.
void waitForMemory();

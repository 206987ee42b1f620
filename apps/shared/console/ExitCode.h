// What the program's exit status says.
#pragma once

enum class ExitCode : int {
  Found = 0,     // or done
  NotFound = 1,  // the answer is that there is none
  Usage = 2,     // the command line is wrong
  Failure = 75,  // database, settings or files
};

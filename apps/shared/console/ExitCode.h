// What a program's exit status says: the numbers of sysexits.h, so that a mail server or a script knows what to do.
#pragma once

#include "ZaroRuntime/RuntimeError.h"

enum class ExitCode : int {
  Found = 0,           // or done
  NotFound = 1,        // the answer is that there is none
  Usage = 64,          // the command line is wrong
  Data = 65,           // what was given, read or stored is not as it must be
  Unavailable = 69,    // something needed did not do its work, and another attempt is not known to help
  CannotCreate = 73,   // a file or directory could not be made
  InputOutput = 74,    // a file, the input or the output could not be read or written
  TryAgain = 75,       // the same may succeed later, and nothing is changed
  Refused = 77,        // not permitted, or what is stored stands against it
  Configuration = 78,  // the installation is wrong
};

// The status of a program that a failure ended. Whatever is thrown as a RuntimeError says by its kind which one: so a
// command chooses the status where it chooses the text.
ExitCode exitCodeOf(zaroruntime::FailureKind kind);

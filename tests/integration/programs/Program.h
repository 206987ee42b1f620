// Runs the built program as a child process. A run that takes longer than any should is ended, and says so in its errors.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace zarotest {

struct ProgramResult {
  int status = -1;  // exit status; 128 and the signal's number when a signal ended it
  std::string out;
  std::string err;
};

struct ProgramRun {
  std::string input;                               // standard input
  std::map<std::string, std::string> environment;  // every other variable whose name begins with ZARO is unset
  std::string outputFile;                          // standard output goes there, if named
  std::function<void(int pid)> whileRunning;       // called in between
  unsigned long largestFile = 0;                   // no file may grow beyond so many bytes; 0 is no limit
  bool obeysPermissions = false;                   // of files and directories, even if the tests run as root
  // On a terminal: holds the output back from the start until the terminal has been silenced and the text typed, so
  // that the program is not yet waiting for it.
  bool typedBeforeThePrompt = false;
};

ProgramResult zaroctl(const std::vector<std::string>& arguments, const ProgramRun& run = {});

// The same on a terminal, where `typed` is typed as soon as something was printed. Both outputs are in `out`, with
// plain line ends. `run` gives the environment and the moment of typing.
ProgramResult zaroctlOnTerminal(const std::vector<std::string>& arguments, const std::string& typed,
                                const ProgramRun& run = {});

// Lines of a text, without their ends.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace zarotest

// Runs the built program as a child process.
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
};

ProgramResult zaroctl(const std::vector<std::string>& arguments, const ProgramRun& run = {});

// The same on a terminal, where `typed` is typed as soon as something was printed. Both outputs are in `out`, with
// plain line ends.
ProgramResult zaroctlOnTerminal(const std::vector<std::string>& arguments, const std::string& typed,
                                const ProgramRun& run = {});

// Lines of a text, without their ends.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace zarotest

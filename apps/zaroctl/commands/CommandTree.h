// The commands of the program, and which of them the command line chose.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "console/ExitCode.h"
#include "console/Output.h"

// What a command does: prints its result and answers the exit code. It may throw UsageError, and for
// failures a RuntimeError, whose kind gives the exit code; the program prints their texts.
using Action = std::function<ExitCode(Output&)>;

class CommandTree {
 public:
  explicit CommandTree(CLI::App& root) : m_root(root) {}

  // Adds a command and returns it for its options.
  //   words      its name, a blank between the words: "admin id" is command "id" of group "admin"
  //   examples   command lines that its help shows
  CLI::App* add(const std::string& words, const std::string& description, const std::vector<std::string>& examples,
                Action action);

  // Every command, for those that tell about commands.
  const CLI::App& root() const { return m_root; }
  // How often --verbose was given; known once the command line is parsed.
  std::size_t verbosity() const { return m_root.count("--verbose"); }
  // The action of the command that was parsed; empty before parsing.
  const Action& chosen() const { return m_chosen; }

 private:
  CLI::App& m_root;
  Action m_chosen;
};

// A command that tells of what is not there as one not found.
Action tellingNotThere(const Action& action);

// The footer of a help text.
std::string examplesText(const std::vector<std::string>& examples);

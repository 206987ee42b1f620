// The command line of the program, declared once: what is parsed, what help shows, and what the manual's synopsis is
// compared with.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "commands/CommandTree.h"

// Options that every command takes.
struct GlobalOptions {
  std::string home;
  bool json = false;
  std::string query;  // the one key whose values are printed; empty for all
  int verbosity = 0;  // how often --verbose was given
};

class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Every command below its group, with all its options.
  CLI::App& app() { return m_app; }
  const CLI::App& app() const { return m_app; }

  // Known once it is parsed.
  const GlobalOptions& options() const { return m_options; }
  const Action& chosen() const { return m_tree.chosen(); }

 private:
  CLI::App m_app;
  GlobalOptions m_options;
  CommandTree m_tree;
};

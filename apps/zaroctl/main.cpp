// zaroctl: the policy database of the gateway from a shell.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandLine.h"
#include "commands/ResultKeys.h"
#include "console/Environment.h"
#include "console/ExitCode.h"
#include "console/Output.h"
#include "console/RunProgram.h"
#include "console/Suggestion.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Transaction.h"

using zaroruntime::RuntimeError;

namespace {

void setEnvironment(const CLI::App& app, const GlobalOptions& options) {
  setInstallation(app.count("--home") != 0 ? &options.home : nullptr);
  if (options.verbosity > 0) {
    setDefault("ZARO_LOG_LEVEL", options.verbosity > 1 ? "4" : "2");
  } else if (std::getenv("ZARO_LOG") == nullptr) {
    // The reason of a failure is printed anyway; who asked for a log gets it.
    setDefault("ZARO_LOG_LEVEL", "0");
  }
}

Output outputFor(const GlobalOptions& options) {
  const bool isTerminal = isatty(STDOUT_FILENO) != 0;
  if (options.json) {
    return Output(Output::Form::Document);
  }
  if (!options.query.empty()) {
    return Output::valuesOf(options.query, isTerminal ? Output::Escaping::Printable : Output::Escaping::None);
  }
  return isTerminal ? Output(terminalOfOutput()) : Output(Output::Form::Lines);
}

// The command as far as it was understood, and its words.
const CLI::App& understood(const CLI::App& app) {
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
  }
  return *command;
}

std::string wordsOf(const CLI::App& app) {
  std::string words;
  for (const CLI::App* command = &app; !command->get_subcommands().empty();) {
    command = command->get_subcommands().front();
    words.append(words.empty() ? "" : " ").append(command->get_name());
  }
  return words;
}

std::string commandLine(const CLI::App& app) {
  const std::string words = wordsOf(app);
  return app.get_name() + (words.empty() ? "" : " " + words);
}

// The word that may have been meant; empty when none is like it.
std::string suggestion(const CLI::App& app, const std::string& word) {
  const CLI::App& command = understood(app);
  std::vector<std::string> known;
  for (const CLI::App* below : command.get_subcommands([](const CLI::App*) { return true; })) {
    known.push_back(below->get_name());
  }
  for (const CLI::App* declared : {&command, &app}) {
    for (const CLI::Option* option : declared->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        known.push_back("--" + name);
      }
    }
  }
  const std::string like = mostLike(word, known);
  return like.empty() ? "" : "; did you mean " + like + "?";
}

constexpr const char* kFirstSteps =
    "To begin with:\n"
    "  zaroctl init --sample DIR               make an installation, with a made-up company in it\n"
    "  export ZARO_HOME=DIR                    name it to every command\n"
    "  zaroctl check                           see whether all is well\n"
    "  zaroctl admin list                      see who administers it\n"
    "  zaroctl match --tree FILE ADDRESS       ask which pattern of a list decides an address\n"
    "  zaroctl lint FILE                       see what is wrong in a list of patterns\n"
    "All commands: zaroctl --help. One of them: zaroctl help COMMAND.\n";

// `help WORDS` is `WORDS --help`.
std::vector<std::string> givenWords(int argc, const char* const* argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  std::reverse(words.begin(), words.end());  // as the parser takes them
  return words;
}

ExitCode parseFailure(const CLI::App& app, const CLI::ParseError& error) {
  const auto extra = app.remaining(true);
  const auto unexpected = std::find_if(extra.begin(), extra.end(), [](const std::string& word) { return word != "--"; });
  const bool asksForHelp = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success);
  if (asksForHelp && unexpected == extra.end()) {
    app.exit(error);  // help or version, on standard output
    return ExitCode::Found;
  }
  // What was not understood tells more than what is therefore missing.
  const std::string wrong =
      unexpected == extra.end() ? error.what() : "not expected: " + *unexpected + suggestion(app, *unexpected);
  diagnose(wrong + " (see " + commandLine(app) + " --help)");
  return ExitCode::Usage;
}

// What a failure after a change has to say.
std::string unprintedChange(const std::exception& failure) {
  return std::string("the change is made, but its result cannot be printed: ") + failure.what();
}

const char* outOfMemory() {
  return hasCommittedChange() ? "the change is made, but its result cannot be printed: out of memory" : "out of memory";
}

// Not every result of a command has each of its keys, which only printing finds.
ExitCode act(const Action& action, Output& out) {
  try {
    return action(out);
  } catch (const UsageError& failure) {
    if (hasCommittedChange()) {
      throw RuntimeError(unprintedChange(failure), zaroruntime::FailureKind::Data);
    }
    throw;
  }
}

void finish(Output& out) {
  try {
    out.finish();
  } catch (const RuntimeError& failure) {
    if (hasCommittedChange()) {
      throw RuntimeError(unprintedChange(failure), failure.kind());
    }
    throw;
  }
}

ExitCode run(int argc, const char* const* argv) {
  if (argc < 2) {
    std::fputs(kFirstSteps, stdout);
  }
  CommandLine line;
  try {
    line.app().parse(givenWords(argc, argv));
  } catch (const CLI::ParseError& error) {
    return parseFailure(line.app(), error);
  }
  setEnvironment(line.app(), line.options());
  if (line.app().count("--query") != 0) {
    requireResultKey(wordsOf(line.app()), line.options().query);
  }
  Output out = outputFor(line.options());
  const ExitCode code = act(line.chosen(), out);
  finish(out);
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram([&] { return run(argc, argv); }, outOfMemory);
}

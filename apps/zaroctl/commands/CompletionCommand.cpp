// completion SHELL
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"

namespace {

struct Candidate {
  std::string word;
  std::string description;
  bool takesValue;
};

// What may follow some words of the command line: " admin" for "zaroctl admin", nothing for the program alone.
struct Place {
  std::string words;
  std::vector<Candidate> candidates;
};

void addOptions(const CLI::App& command, std::vector<Candidate>& candidates) {
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      if (std::any_of(candidates.begin(), candidates.end(),
                      [&](const Candidate& known) { return known.word == "--" + name; })) {
        continue;  // every command has --help
      }
      candidates.push_back({"--" + name, option->get_description(), option->get_expected_max() > 0});
    }
  }
}

// The places at and below a command, each with the options of `root`, which count everywhere.
void addPlaces(const CLI::App& root, const CLI::App& command, const std::string& words, std::vector<Place>& places) {
  const auto isNamed = [](const CLI::App* app) { return !app->get_name().empty(); };  // groups of options have no name
  const auto below = command.get_subcommands(isNamed);
  Place place{words, {}};
  for (const CLI::App* next : below) {
    place.candidates.push_back({next->get_name(), next->get_description(), false});
  }
  addOptions(command, place.candidates);
  if (&command != &root) {
    addOptions(root, place.candidates);
  }
  places.push_back(place);
  for (const CLI::App* next : below) {
    addPlaces(root, *next, words + " " + next->get_name(), places);
  }
}

std::set<std::string> optionsWithValue(const std::vector<Place>& places) {
  std::set<std::string> options;
  for (const Place& place : places) {
    for (const Candidate& candidate : place.candidates) {
      if (candidate.takesValue) {
        options.insert(candidate.word);
      }
    }
  }
  return options;
}

// The text in single quotes, with `quote` for each one that is in it.
std::string quoted(const std::string& text, const char* quote) {
  std::string result = "'";
  for (const char character : text) {
    if (character == '\'') {
      result += quote;
    } else {
      result += character;
    }
  }
  return result + "'";
}

std::string joined(const std::vector<std::string>& parts, const char* between) {
  std::string text;
  for (const std::string& part : parts) {
    text += (text.empty() ? "" : between) + part;
  }
  return text;
}

std::string valuePattern(const std::vector<Place>& places, const char* between) {
  const std::set<std::string> options = optionsWithValue(places);
  return joined({options.begin(), options.end()}, between);
}

std::string wordsPattern(const std::vector<Place>& places, const char* between) {
  std::vector<std::string> words;
  for (const Place& place : places) {
    if (!place.words.empty()) {
      words.push_back("'" + place.words + "'");
    }
  }
  return joined(words, between);
}

// The part that bash and zsh read alike: which place the words before the cursor lead to.
std::string findingPlace(const std::vector<Place>& places) {
  return "    if [[ -n $skip ]]; then\n"
         "      skip=\n"
         "      continue\n"
         "    fi\n"
         "    case $word in\n"
         "      " +
         valuePattern(places, "|") +
         ") skip=yes ;;\n"
         "      -*) ;;\n"
         "      *)\n"
         "        case \"$place $word\" in\n"
         "          " +
         wordsPattern(places, "|") +
         ") place+=\" $word\" ;;\n"
         "        esac\n"
         "        ;;\n"
         "    esac\n";
}

std::string bashScript(const std::vector<Place>& places) {
  std::string script =
      "# bash completion for zaroctl\n"
      "_zaroctl() {\n"
      "  local place='' skip='' word candidates=''\n"
      "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n" +
      findingPlace(places) +
      "  done\n"
      "  COMPREPLY=()\n"
      "  if [[ -n $skip ]]; then\n"
      "    return\n"
      "  fi\n"
      "  case $place in\n";
  for (const Place& place : places) {
    std::vector<std::string> words;
    for (const Candidate& candidate : place.candidates) {
      words.push_back(candidate.word);
    }
    script += "    '" + place.words + "') candidates='" + joined(words, " ") + "' ;;\n";
  }
  return script +
         "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$candidates\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
         "}\n"
         "complete -o default -F _zaroctl zaroctl\n";
}

std::string zshScript(const std::vector<Place>& places) {
  std::string script =
      "#compdef zaroctl\n"
      "_zaroctl() {\n"
      "  local place='' skip='' word\n"
      "  local -a candidates\n"
      "  for word in \"${(@)words[2,CURRENT-1]}\"; do\n" +
      findingPlace(places) +
      "  done\n"
      "  if [[ -n $skip ]]; then\n"
      "    _files\n"
      "    return\n"
      "  fi\n"
      "  case $place in\n";
  for (const Place& place : places) {
    script += "    '" + place.words + "')\n      candidates=(\n";
    for (const Candidate& candidate : place.candidates) {
      script += "        " + quoted(candidate.word + ":" + candidate.description, "'\\''") + "\n";
    }
    script += "      )\n      ;;\n";
  }
  return script +
         "  esac\n"
         "  _describe -o zaroctl candidates || _files\n"
         "}\n"
         "_zaroctl \"$@\"\n";
}

std::string fishScript(const std::vector<Place>& places) {
  std::string script =
      "# fish completion for zaroctl\n"
      "function __zaroctl_at\n"
      "    set -l place ''\n"
      "    set -l skip ''\n"
      "    for word in (commandline -opc)[2..-1]\n"
      "        if test -n \"$skip\"\n"
      "            set skip ''\n"
      "            continue\n"
      "        end\n"
      "        switch $word\n"
      "            case " +
      valuePattern(places, " ") +
      "\n"
      "                set skip yes\n"
      "            case '-*'\n"
      "            case '*'\n"
      "                if contains -- \"$place $word\" " +
      wordsPattern(places, " ") +
      "\n"
      "                    set place \"$place $word\"\n"
      "                end\n"
      "        end\n"
      "    end\n"
      "    test \"$place\" = \"$argv[1]\"\n"
      "end\n";
  for (const Place& place : places) {
    for (const Candidate& candidate : place.candidates) {
      const bool isOption = candidate.word.rfind("--", 0) == 0;
      script += "complete -c zaroctl -n \"__zaroctl_at '" + place.words + "'\" " +
                (isOption ? "-l " + candidate.word.substr(2) : "-a " + candidate.word) +
                (candidate.takesValue ? " -r" : "") + " -d " + quoted(candidate.description, "\\'") + "\n";
    }
  }
  return script;
}

struct Shell {
  const char* name;
  std::string (*script)(const std::vector<Place>&);
};

constexpr Shell kShells[] = {{"bash", bashScript}, {"zsh", zshScript}, {"fish", fishScript}};

}  // namespace

void addCompletion(CommandTree& tree) {
  const auto name = std::make_shared<std::string>();
  CLI::App* command = tree.add("completion", "Print what a shell needs to complete command lines of this program",
                               {"zaroctl completion bash >/etc/bash_completion.d/zaroctl"}, [name, &tree](Output& out) {
                                 std::vector<Place> places;
                                 addPlaces(tree.root(), tree.root(), "", places);
                                 for (const Shell& shell : kShells) {
                                   if (*name == shell.name) {
                                     out.raw(shell.script(places));
                                   }
                                 }
                                 return ExitCode::Found;
                               });
  std::vector<std::string> names;
  for (const Shell& shell : kShells) {
    names.emplace_back(shell.name);
  }
  command->add_option("SHELL", *name, "The shell")->required()->type_name("")->check(CLI::IsMember(names));
}

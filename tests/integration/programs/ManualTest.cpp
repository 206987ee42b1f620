// The manual against the declarations of the commands: the synopsis shows every command with its options and arguments
// as they are declared, every command is described, and nothing stands there that does not exist.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Documents.h"
#include "commands/CommandLine.h"
#include "commands/ResultKeys.h"

namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;
using Commands = std::map<std::string, const CLI::App*>;  // by their words: "admin id"

constexpr const char* kManual = "docs/zaroctl.md";

// --- The declarations ---

bool isDeclaredHere(const CLI::Option* option) {
  return !option->check_name("--help") && !option->check_name("--version");
}

void addCommands(const CLI::App& parent, const std::string& words, Commands& commands) {
  for (const CLI::App* command : parent.get_subcommands([](const CLI::App*) { return true; })) {
    const std::string name = words.empty() ? command->get_name() : words + " " + command->get_name();
    const bool isGroup = command->get_require_subcommand_min() > 0;
    if (isGroup) {
      addCommands(*command, name, commands);
    } else {
      commands.emplace(name, command);
    }
  }
}

std::string nameOf(const CLI::Option& option) {
  return option.get_name(option.get_positional());
}

// The command's option or argument of a name; null when it has none.
const CLI::Option* findOption(const CLI::App& command, const std::string& name) {
  for (const CLI::Option* option : command.get_options(isDeclaredHere)) {
    if (nameOf(*option) == name) {
      return option;
    }
  }
  return nullptr;
}

// What stands for the values of an option: "OLD NEW" are two. Of a choice, "DATABASE:{sqlite,postgresql}", the first part.
Words valuesOf(const CLI::Option& option) {
  Words values;
  if (option.get_positional() || option.get_items_expected_max() == 0) {
    return values;
  }
  std::istringstream text(option.get_type_name().substr(0, option.get_type_name().find(':')));
  for (std::string value; text >> value;) {
    values.push_back(value);
  }
  return values;
}

bool isRepeatable(const CLI::Option& option) {
  return option.get_expected_max() > 1;
}

// --- The synopsis ---

// Its forms, each in one piece and without "zaroctl ".
Words synopsis() {
  const std::string manual = zarotest::sourceFile(kManual);
  const std::string fence = "```\n";
  const std::size_t begin = manual.find(fence, manual.find("## Synopsis")) + fence.size();
  std::istringstream text(manual.substr(begin, manual.find(fence, begin) - begin));
  const std::string program = "zaroctl ";
  Words forms;
  for (std::string line; std::getline(text, line);) {
    if (line.compare(0, program.size(), program) == 0) {
      forms.push_back(line.substr(program.size()));
    } else if (!line.empty()) {
      forms.back() += line;
    }
  }
  return forms;
}

// An option or argument in a form.
struct Shown {
  std::string name;
  Words values;
  bool isRequired = true;
  bool isRepeated = false;
};

// "[--add ADDRESS]..." is "[", "--add", "ADDRESS", "]", "...".
Words tokensOf(const std::string& form) {
  std::string spaced;
  for (std::size_t at = 0; at < form.size(); ++at) {
    if (form.compare(at, 3, "...") == 0) {
      spaced += " ... ";
      at += 2;
    } else if (form[at] == '[' || form[at] == ']') {
      spaced.append(" ").append(1, form[at]).append(" ");
    } else {
      spaced += form[at];
    }
  }
  std::istringstream text(spaced);
  Words tokens;
  for (std::string token; text >> token;) {
    tokens.push_back(token);
  }
  return tokens;
}

// What a form shows after the words of its command.
std::vector<Shown> shownIn(const CLI::App& command, const std::string& form) {
  std::vector<Shown> shown;
  bool isBracketed = false;
  std::size_t valuesLeft = 0;
  for (const std::string& token : tokensOf(form)) {
    if (token == "[" || token == "]") {
      isBracketed = token == "[";
    } else if (token == "...") {
      shown.back().isRepeated = true;
    } else if (valuesLeft > 0) {
      shown.back().values.push_back(token);
      --valuesLeft;
    } else if (token != "|" && token != "-") {  // between alternatives; standard input
      shown.push_back({token, {}, !isBracketed, false});
      const CLI::Option* option = findOption(command, token);
      valuesLeft = option != nullptr ? valuesOf(*option).size() : 0;
    }
  }
  return shown;
}

class Manual : public testing::Test {
 protected:
  Manual() { addCommands(m_line.app(), "", m_commands); }

  // The command that a form begins with; empty when there is none.
  std::string commandOf(const std::string& form) const {
    std::string longest;
    for (const auto& [words, command] : m_commands) {
      if ((form + " ").compare(0, words.size() + 1, words + " ") == 0) {
        longest = words;
      }
    }
    return longest;
  }
  // What the forms of each command show behind its words, by command.
  std::map<std::string, std::vector<std::vector<Shown>>> shownByCommand() const {
    std::map<std::string, std::vector<std::vector<Shown>>> forms;
    for (const std::string& form : synopsis()) {
      const std::string words = commandOf(form);
      if (!words.empty()) {
        forms[words].push_back(shownIn(*m_commands.at(words), form.substr(words.size())));
      }
    }
    return forms;
  }

  CommandLine m_line;
  Commands m_commands;
};

TEST_F(Manual, synopsisHasEveryCommandAndNoOther) {
  std::set<std::string> declared;
  for (const auto& [words, command] : m_commands) {
    declared.insert(words);
  }
  Words forms = synopsis();
  EXPECT_EQ(forms.at(0), "[--home DIR] [--json | -q KEY] [-v] COMMAND [ARGUMENTS]");
  forms.erase(forms.begin());
  std::set<std::string> shown;
  for (const std::string& form : forms) {
    EXPECT_NE(commandOf(form), "") << form << ": begins with no command";
    shown.insert(commandOf(form));
  }
  EXPECT_EQ(shown, declared);
}

TEST_F(Manual, synopsisHasEveryOptionAndArgumentAndNoOther) {
  for (const auto& [words, forms] : shownByCommand()) {
    std::set<std::string> declared;
    for (const CLI::Option* option : m_commands.at(words)->get_options(isDeclaredHere)) {
      declared.insert(nameOf(*option));
    }
    std::set<std::string> shown;
    for (const std::vector<Shown>& form : forms) {
      for (const Shown& argument : form) {
        shown.insert(argument.name);
      }
    }
    EXPECT_EQ(shown, declared) << words;
  }
}

TEST_F(Manual, synopsisShowsOptionsAndArgumentsAsTheyAreDeclared) {
  for (const auto& [words, forms] : shownByCommand()) {
    for (const std::vector<Shown>& form : forms) {
      for (const Shown& shown : form) {
        SCOPED_TRACE(words + " " + shown.name);
        const CLI::Option* option = findOption(*m_commands.at(words), shown.name);
        ASSERT_NE(option, nullptr);
        EXPECT_EQ(shown.isRepeated, isRepeatable(*option));
        // With several forms, each may need what the command as such does not.
        EXPECT_TRUE(shown.isRequired == option->get_required() || (shown.isRequired && forms.size() > 1));
        const bool isOneOfItsChoices =
            shown.values.size() == 1 && option->get_type_name().find(shown.values[0]) != std::string::npos;
        EXPECT_TRUE(shown.values == valuesOf(*option) || isOneOfItsChoices) << testing::PrintToString(shown.values);
      }
    }
  }
}

TEST_F(Manual, hasTheGlobalOptions) {
  std::set<std::string> declared;
  for (const CLI::Option* option : m_line.app().get_options()) {
    const Words values = valuesOf(*option);
    const std::string value = values.empty() ? "" : " " + values[0];
    for (const std::string& name : option->get_lnames()) {
      declared.insert("--" + name + value);
    }
    for (const std::string& name : option->get_snames()) {
      declared.insert("-" + name + value);
    }
  }
  std::set<std::string> shown;
  for (const zarotest::TableRow& row : zarotest::tableOf(kManual, "| option | meaning |")) {
    for (const std::string& name : zarotest::codeWords(row[0])) {
      shown.insert(name);
    }
  }
  EXPECT_EQ(shown, declared);
}

TEST_F(Manual, describesEveryCommandAndNoOther) {
  std::set<std::string> declared;
  for (const auto& [words, command] : m_commands) {
    declared.insert(words);
  }
  const std::string manual = zarotest::sourceFile(kManual);
  const std::size_t begin = manual.find("\n## Commands\n") + 1;
  std::istringstream text(manual.substr(begin, manual.find("\n## ", begin) - begin));
  std::set<std::string> described;
  for (std::string line; std::getline(text, line);) {
    if (line.compare(0, 4, "### ") != 0) {
      continue;
    }
    std::string heading = line.substr(4);
    for (std::size_t comma = 0; (comma = heading.find(", ")) != std::string::npos; heading.erase(0, comma + 2)) {
      described.insert(heading.substr(0, comma));
    }
    described.insert(heading);
  }
  EXPECT_EQ(described, declared);
}

// The words of a table's cell and of a row of the code are the same, in the same order.
Words wordsIn(const char* text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

TEST_F(Manual, tellsTheKeysOfEveryResult) {
  struct Keys {
    Words keys;
    Words within;
    bool operator==(const Keys& other) const { return keys == other.keys && within == other.within; }
  };
  std::map<std::string, Keys> declared;
  for (const ResultKeys& row : resultKeys()) {
    EXPECT_EQ(m_commands.count(row.command), 1u) << row.command;
    declared[row.command] = {wordsIn(row.keys), wordsIn(row.within)};
  }
  std::map<std::string, Keys> told;
  for (const zarotest::TableRow& row : zarotest::tableOf(kManual, "| command | keys | keys inside of these |")) {
    for (const std::string& command : zarotest::codeWords(row[0])) {
      told[command] = {zarotest::codeWords(row[1]), zarotest::codeWords(row[2])};
    }
  }
  for (const auto& [command, keys] : declared) {
    EXPECT_TRUE(told[command] == keys) << command;
  }
  EXPECT_EQ(told.size(), declared.size());
}

TEST_F(Manual, helpOfEveryCommandHasWhatIsDeclaredAndExamples) {
  m_commands.emplace("", &m_line.app());
  for (const auto& [words, command] : m_commands) {
    const std::string help = command->help();
    EXPECT_THAT(help, HasSubstr(command->get_description())) << words;
    EXPECT_THAT(help, HasSubstr("\nExample")) << words;
    EXPECT_THAT(help, HasSubstr("\n  zaroctl " + words)) << words;
    for (const CLI::Option* option : command->get_options()) {
      EXPECT_THAT(help, HasSubstr("\n  " + option->get_name(option->get_positional(), true))) << words;
      EXPECT_NE(option->get_description(), "") << words << " " << option->get_name();
    }
  }
}

}  // namespace

// group import, group export
#include <strings.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "commands/GroupArgument.h"
#include "console/LineReader.h"
#include "console/Progress.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "patterns/ForeignList.h"
#include "store/AddressGroups.h"
#include "store/GroupMembers.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

ExitCode exportMembers(Output& out, const WantedGroup& group) {
  std::string text;
  for (const std::string& address : membersOf(group.find(group.as.find()))) {
    text += memberLine(address) + '\n';
  }
  out.raw(text);
  return ExitCode::Found;
}

// How the files are written, unless it is as group export writes them.
struct ForeignFormat {
  std::string name;
  std::string column;
  std::string action;
  bool leaveOut = false;

  bool isGiven() const { return !name.empty(); }
  ListFormat format() const { return kFormats.at(name); }

  inline static const std::map<std::string, ListFormat> kFormats = {
      {"plain", ListFormat::Plain}, {"access", ListFormat::Access}, {"csv", ListFormat::Csv}};
};

// Members out of files. Bad lines and members that came before are told and left out.
class ImportedMembers {
 public:
  explicit ImportedMembers(const ForeignFormat& format) : m_format(format) {}

  void read(const std::string& path) {
    const bool isInput = path == "-";
    if (m_format.isGiven()) {
      m_list.emplace(m_format.format(), m_format.column);
    }
    m_files.push_back(isInput ? "standard input" : path);
    const auto lines = isInput ? std::make_unique<LineReader>(STDIN_FILENO, m_files.back(), [] {})
                               : std::make_unique<LineReader>(path);
    m_progress.startFile(m_files.back(), lines->size());
    for (bool more = true; more;) {
      try {
        more = _readLine(*lines);
      } catch (const BadLine& bad) {
        ++m_bad;
        _tell(bad.what());
      }
    }
    m_progress.finish();
  }

  std::vector<std::string> take() { return m_members.take(); }
  // File and line of a member.
  std::string placeOf(std::size_t member) const {
    return m_files[m_places[member].file] + ":" + std::to_string(m_places[member].line);
  }
  std::size_t bad() const { return m_bad; }
  std::size_t duplicates() const { return m_duplicates; }
  // Of an access map, those of the lines that were taken.
  const std::set<std::string>& actions() const { return m_actions; }

 private:
  struct Place {
    std::size_t file;
    std::size_t line;
  };

  // False at the end.
  bool _readLine(LineReader& lines) {
    if (!lines.next(m_line)) {
      return false;
    }
    withoutByteOrderMark(m_line, lines.lineNumber());
    for (const std::string& address :
         m_list ? _patternsIn(m_line, lines.lineNumber()) : _memberIn(m_line, lines.lineNumber())) {
      const std::string wrong = wrongMember(address);
      if (!wrong.empty()) {
        throw BadLine(m_files.back(), lines.lineNumber(), quoted(address) + " " + wrong);
      }
      _take(address, lines.lineNumber());
    }
    m_progress.count(lines.bytesRead());
    return true;
  }

  std::vector<std::string> _patternsIn(const std::string& line, std::size_t number) {
    ListLine found = m_list->read(line);
    if (!m_format.action.empty() && !found.action.empty() &&
        strcasecmp(found.action.c_str(), m_format.action.c_str()) != 0) {
      return {};
    }
    if (!found.action.empty()) {
      m_actions.insert(found.action);
    }
    if (!found.fault.empty()) {
      throw BadLine(m_files.back(), number, found.fault);
    }
    return std::move(found.patterns);
  }

  std::vector<std::string> _memberIn(const std::string& line, std::size_t number) const {
    try {
      const auto member = memberOfLine(line);
      return member ? std::vector<std::string>{*member} : std::vector<std::string>();
    } catch (const RuntimeError& failure) {
      throw BadLine(m_files.back(), number, failure.what());
    }
  }

  void _take(const std::string& address, std::size_t line) {
    const std::size_t before = m_places.size();
    const std::size_t place = m_members.add(address);
    if (place == before) {
      m_places.push_back({m_files.size() - 1, line});
      return;
    }
    ++m_duplicates;
    _tell(m_files.back() + ":" + std::to_string(line) + ": " + quoted(address) + " is given in " + placeOf(place));
  }

  void _tell(const std::string& text) {
    m_progress.finish();
    diagnose(text);
  }

  const ForeignFormat& m_format;
  std::optional<ForeignList> m_list;  // of the file that is read
  std::set<std::string> m_actions;
  std::vector<std::string> m_files;
  DistinctMembers m_members;
  std::vector<Place> m_places;  // of each
  Progress m_progress;
  std::string m_line;
  std::size_t m_bad = 0;
  std::size_t m_duplicates = 0;
};

struct Import {
  WantedGroup group;
  bool append = false;
  ForeignFormat format;
  std::vector<std::string> files;
};

void requireFittingOptions(const ForeignFormat& format) {
  const bool isCsv = format.isGiven() && format.format() == ListFormat::Csv;
  if (isCsv != !format.column.empty()) {
    throw UsageError("--column goes with --format csv, which needs it");
  }
  if (!format.action.empty() && !(format.isGiven() && format.format() == ListFormat::Access)) {
    throw UsageError("--action goes with --format access");
  }
}

void requireOneAction(const ImportedMembers& imported) {
  if (imported.actions().size() > 1) {
    std::string actions;
    for (const std::string& action : imported.actions()) {
      actions.append(actions.empty() ? "" : ", ").append(quoted(action));
    }
    throw RuntimeError("nothing is imported: the lines have the actions " + actions + "; --action takes those of one",
                       FailureKind::Data);
  }
}

ExitCode importMembers(Output& out, const Import& import) {
  requireFittingOptions(import.format);
  ImportedMembers imported(import.format);
  for (const std::string& file : import.files) {
    imported.read(file);
  }
  requireOneAction(imported);
  if (imported.bad() != 0 && !import.format.leaveOut) {
    throw RuntimeError("nothing is imported: " + std::to_string(imported.bad()) + " lines cannot be members" +
                           (import.format.isGiven() ? "; --leave-out imports the others" : ""),
                       FailureKind::Data);
  }
  const GroupChange change = {std::nullopt, !import.append, {}, imported.take(), true};
  // Reading may take long, and the group is looked up afterwards.
  const Actor actor = import.group.as.find();
  const ChangedGroup changed = changeGroup(actor, import.group.find(actor), change);
  for (const std::size_t member : changed.present) {
    diagnose(imported.placeOf(member) + ": " + quoted(change.added[member]) + " is a member already");
  }
  Json record = {{"id", changed.id},
                 {"name", changed.name},
                 {"members", changed.members},
                 {"duplicates", imported.duplicates() + changed.present.size()}};
  if (import.format.isGiven()) {
    record["left_out"] = imported.bad();
  }
  out.record(record);
  return ExitCode::Found;
}

}  // namespace

void addGroupExport(CommandTree& tree) {
  const auto group = std::make_shared<WantedGroup>();
  CLI::App* command = tree.add("group export", "Print the members of an address group as group import reads them",
                               {"zaroctl group export Board >board.txt"},
                               tellingNotThere([group](Output& out) { return exportMembers(out, *group); }));
  addGroupArgument(*command, *group);
}

void addGroupImport(CommandTree& tree) {
  const auto import = std::make_shared<Import>();
  CLI::App* command =
      tree.add("group import", "Replace the members of an address group by those of files, one a line",
               {"zaroctl group import Board board.txt", "zaroctl group import --append Board - <more.txt"},
               tellingNotThere([import](Output& out) { return importMembers(out, *import); }));
  addGroupArgument(*command, import->group);
  command->add_option("FILE", import->files, "Files, or - for standard input")->required()->type_name("");
  command->add_flag("--append", import->append, "Keep the present members, in front");
  std::vector<std::string> formats;
  formats.reserve(ForeignFormat::kFormats.size());
  for (const auto& [name, format] : ForeignFormat::kFormats) {
    formats.push_back(name);
  }
  CLI::Option* format =
      command->add_option("--format", import->format.name, "What the files are, unless group export made them")
          ->type_name("FORMAT")
          ->check(CLI::IsMember(formats));
  command
      ->add_option("--column", import->format.column, "The column of csv: a number from 1, or a name in the first line")
      ->type_name("COLUMN");
  command->add_option("--action", import->format.action, "Of an access map only the lines with this action")
      ->type_name("ACTION");
  command->add_flag("--leave-out", import->format.leaveOut, "Import what can be said in patterns, and tell the rest")
      ->needs(format);
}

// group import, group export
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "commands/GroupArgument.h"
#include "console/LineReader.h"
#include "console/Progress.h"
#include "console/Text.h"
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

// Members out of files. Bad lines and members that came before are told and left out.
class ImportedMembers {
 public:
  void read(const std::string& path) {
    const bool isInput = path == "-";
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
    const auto address = _memberIn(m_line, lines.lineNumber());
    if (!address) {
      return true;
    }
    const std::string wrong = wrongMember(*address);
    if (!wrong.empty()) {
      throw BadLine(m_files.back(), lines.lineNumber(), quoted(*address) + " " + wrong);
    }
    _take(*address, lines.lineNumber());
    m_progress.count(lines.bytesRead());
    return true;
  }

  std::optional<std::string> _memberIn(const std::string& line, std::size_t number) const {
    try {
      return memberOfLine(line);
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
  std::vector<std::string> files;
};

ExitCode importMembers(Output& out, const Import& import) {
  ImportedMembers imported;
  for (const std::string& file : import.files) {
    imported.read(file);
  }
  if (imported.bad() != 0) {
    throw RuntimeError("nothing is imported: " + std::to_string(imported.bad()) + " lines cannot be members",
                       FailureKind::Data);
  }
  const GroupChange change = {std::nullopt, !import.append, {}, imported.take(), true};
  // Reading may take long, and the group is looked up afterwards.
  const Actor actor = import.group.as.find();
  const ChangedGroup changed = changeGroup(actor, import.group.find(actor), change);
  for (const std::size_t member : changed.present) {
    diagnose(imported.placeOf(member) + ": " + quoted(change.added[member]) + " is a member already");
  }
  out.record({{"id", changed.id},
              {"name", changed.name},
              {"members", changed.members},
              {"duplicates", imported.duplicates() + changed.present.size()}});
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
}

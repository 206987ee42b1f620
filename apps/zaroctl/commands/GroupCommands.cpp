// group list, group show, group add, group modify, group remove, group import, group export
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/LineReader.h"
#include "console/Progress.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/AddressGroups.h"
#include "store/Administration.h"

using zaroruntime::RuntimeError;

namespace {

using Addresses = std::vector<std::string>;

// A group as the command line names it.
struct WantedGroup {
  std::string text;
  bool isId = false;

  GroupSummary find() const {
    if (!isId) {
      return findGroup(text);
    }
    return findGroup(idArgument("GROUP", text));
  }
};

void addGroupArgument(CLI::App& command, WantedGroup& group) {
  command.add_option("GROUP", group.text, "The group's name, exactly as stored")->required()->type_name("");
  command.add_flag("--id", group.isId, "GROUP is the group's identifier");
}

void refuseWrongMembers(const Addresses& addresses) {
  for (const std::string& address : addresses) {
    const std::string wrong = wrongMember(address);
    if (!wrong.empty()) {
      throw UsageError("ADDRESS: " + quoted(address) + " " + wrong);
    }
  }
}

void refuseWrongGroupName(const std::string& name) {
  const std::string wrong = wrongGroupName(name);
  if (!wrong.empty()) {
    throw UsageError("NAME: " + quoted(name) + " " + wrong);
  }
}

ExitCode printGroup(Output& out, unsigned int id, const std::string& name, std::size_t members) {
  out.record({{"id", id}, {"name", name}, {"members", members}});
  return ExitCode::Found;
}

ExitCode listAll(Output& out) {
  Json rows = Json::array();
  for (const GroupSummary& group : listGroups()) {
    rows.push_back({{"id", group.id}, {"name", group.name}, {"members", group.members}});
  }
  out.rows({{"id", "ID"}, {"name", "NAME"}, {"members", "MEMBERS"}}, rows);
  return ExitCode::Found;
}

ExitCode showMembers(Output& out, const WantedGroup& group) {
  Json rows = Json::array();
  for (const std::string& address : membersOf(group.find())) {
    rows.push_back({{"address", address}});
  }
  out.rows({{"address", "ADDRESS"}}, rows);
  return ExitCode::Found;
}

ExitCode exportMembers(Output& out, const WantedGroup& group) {
  std::string text;
  for (const std::string& address : membersOf(group.find())) {
    text += address + '\n';
  }
  out.raw(text);
  return ExitCode::Found;
}

struct NewGroup {
  std::string name;
  std::string admin;
  unsigned int entityId = 0;
  Addresses members;
};

ExitCode add(Output& out, const NewGroup& wanted) {
  refuseWrongGroupName(wanted.name);
  refuseWrongMembers(wanted.members);
  const GroupSummary added = addGroup(wanted.admin, wanted.entityId, wanted.name, wanted.members);
  return printGroup(out, added.id, added.name, added.members);
}

struct GroupChange {
  WantedGroup group;
  std::string name;
  Addresses added;
  Addresses removed;
};

ExitCode modify(Output& out, const GroupChange& change) {
  refuseWrongMembers(change.added);
  const GroupSummary group = change.group.find();
  const std::string name = change.name.empty() ? group.name : change.name;
  refuseWrongGroupName(name);
  Addresses members = membersOf(group);
  for (const std::string& address : change.removed) {
    const auto gone = std::remove(members.begin(), members.end(), address);
    if (gone == members.end()) {
      throw RuntimeError(quoted(address) + " is no member of " + quoted(group.name) + "; nothing is changed");
    }
    members.erase(gone, members.end());
  }
  members.insert(members.end(), change.added.begin(), change.added.end());
  changeGroup(group, name, members);
  return printGroup(out, group.id, name, members.size());
}

ExitCode remove(Output& out, const WantedGroup& wanted) {
  const GroupSummary group = wanted.find();
  removeGroup(group);
  return printGroup(out, group.id, group.name, group.members);
}

// Members out of files, one a line. Bad lines and those that came before are told and left out.
class ImportedMembers {
 public:
  explicit ImportedMembers(Addresses present) : m_members(std::move(present)) {
    for (const std::string& member : m_members) {
      m_seen.emplace(member, "a member already");
    }
  }

  void read(const std::string& path) {
    const bool isInput = path == "-";
    const std::string name = isInput ? "standard input" : path;
    const auto lines =
        isInput ? std::make_unique<LineReader>(STDIN_FILENO, name, [] {}) : std::make_unique<LineReader>(path);
    m_progress.startFile(name, lines->size());
    std::string line;
    for (bool more = true; more;) {
      try {
        more = lines->next(line);
        withoutByteOrderMark(line, lines->lineNumber());
        if (more && line.find_first_not_of(" \t") != std::string::npos && line.front() != '#') {
          _take(line, name, lines->lineNumber());
          m_progress.count(lines->bytesRead());
        }
      } catch (const BadLine& bad) {
        _tell(bad.what());
      }
    }
    m_progress.finish();
  }

  const Addresses& members() const { return m_members; }
  std::size_t bad() const { return m_bad; }
  std::size_t duplicates() const { return m_duplicates; }

 private:
  void _take(const std::string& address, const std::string& file, std::size_t number) {
    const std::string place = file + ":" + std::to_string(number);
    const std::string wrong = wrongMember(address);
    if (!wrong.empty()) {
      throw BadLine(file, number, quoted(address) + " " + wrong);
    }
    const auto [seen, isNew] = m_seen.emplace(address, "given in " + place);
    if (isNew) {
      m_members.push_back(address);
      return;
    }
    ++m_duplicates;
    m_progress.finish();
    diagnose(place + ": " + quoted(address) + " is " + seen->second);
  }

  void _tell(const std::string& text) {
    ++m_bad;
    m_progress.finish();
    diagnose(text);
  }

  Addresses m_members;
  std::unordered_map<std::string, std::string> m_seen;  // and where
  Progress m_progress;
  std::size_t m_bad = 0;
  std::size_t m_duplicates = 0;
};

struct Import {
  WantedGroup group;
  bool append = false;
  std::vector<std::string> files;
};

ExitCode importMembers(Output& out, const Import& import) {
  const GroupSummary group = import.group.find();
  ImportedMembers imported(import.append ? membersOf(group) : Addresses());
  for (const std::string& file : import.files) {
    imported.read(file);
  }
  if (imported.bad() != 0) {
    throw RuntimeError("nothing is imported: " + std::to_string(imported.bad()) + " lines cannot be members");
  }
  changeGroup(group, group.name, imported.members());
  out.record({{"id", group.id},
              {"name", group.name},
              {"members", imported.members().size()},
              {"duplicates", imported.duplicates()}});
  return ExitCode::Found;
}

}  // namespace

void addGroupList(CommandTree& tree) {
  tree.add("group list", "List the address groups", {"zaroctl group list"}, listAll);
}

void addGroupShow(CommandTree& tree) {
  const auto group = std::make_shared<WantedGroup>();
  CLI::App* command = tree.add("group show", "List the members of an address group",
                               {"zaroctl group show Board", "zaroctl group show --id 12"},
                               tellingNotThere([group](Output& out) { return showMembers(out, *group); }));
  addGroupArgument(*command, *group);
}

void addGroupExport(CommandTree& tree) {
  const auto group = std::make_shared<WantedGroup>();
  CLI::App* command = tree.add("group export", "Print the members of an address group as group import reads them",
                               {"zaroctl group export Board >board.txt"},
                               tellingNotThere([group](Output& out) { return exportMembers(out, *group); }));
  addGroupArgument(*command, *group);
}

void addGroupAdd(CommandTree& tree) {
  const auto group = std::make_shared<NewGroup>();
  CLI::App* command = tree.add("group add", "Add an address group",
                               {"zaroctl group add --as postmaster Friends user@example.test '*@*.example.org'"},
                               tellingNotThere([group](Output& out) { return add(out, *group); }));
  command->add_option("--as", group->admin, "The administrator who adds it")->required()->type_name("ADMIN");
  command
      ->add_option("--entity", group->entityId,
                   "The managing group that owns it, by identifier; otherwise all of the administrator's")
      ->type_name("ID");
  command->add_option("NAME", group->name, "Its name")->required()->type_name("");
  command->add_option("ADDRESS", group->members, "Its members")->type_name("");
}

void addGroupModify(CommandTree& tree) {
  const auto change = std::make_shared<GroupChange>();
  CLI::App* command = tree.add("group modify", "Change an address group",
                               {"zaroctl group modify Board --add new@example.test --remove old@example.test",
                                "zaroctl group modify Board --name 'Board of directors'"},
                               tellingNotThere([change](Output& out) { return modify(out, *change); }));
  addGroupArgument(*command, change->group);
  command->add_option("--name", change->name, "Another name")->type_name("NAME");
  command->add_option("--add", change->added, "Another member, behind the others; once or more")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  command->add_option("--remove", change->removed, "A member to leave out; once or more")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
}

void addGroupRemove(CommandTree& tree) {
  const auto group = std::make_shared<WantedGroup>();
  CLI::App* command = tree.add("group remove", "Remove an address group", {"zaroctl group remove Friends"},
                               tellingNotThere([group](Output& out) { return remove(out, *group); }));
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

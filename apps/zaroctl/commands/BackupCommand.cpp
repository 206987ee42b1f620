// backup
#include <memory>
#include <string>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "installation/DatabaseBackup.h"
#include "store/Transaction.h"

void addBackup(CommandTree& tree) {
  const auto file = std::make_shared<std::string>();
  CLI::App* command = tree.add("backup", "Copy the embedded database into a file, also while it is in use",
                               {"zaroctl backup /var/backups/policy-$(date +%F).db"}, [file](Output& out) {
                                 const DatabaseBackup backup = backUpDatabase(*file);
                                 tellCommittedChange();
                                 out.record({{"file", backup.file}, {"bytes", backup.bytes}});
                                 return ExitCode::Found;
                               });
  command->add_option("FILE", *file, "The copy, which must not be there yet")->required()->type_name("");
}

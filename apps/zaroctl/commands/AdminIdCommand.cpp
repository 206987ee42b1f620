// admin id NAME
#include <memory>

#include "ZaroErrC.h"
#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "miscUtils.h"
#include "store/Database.h"

namespace {

ExitCode printAdminId(Output& out, const std::string& name) {
  const auto db = connectToDatabase();
  unsigned int id = 0;
  const std::string failure = "cannot look up " + quoted(name);
  switch (answerOf(failure, [&] { return miscUtils::getAdminId(*db, name.c_str(), id); })) {
    case ZaroErrC::Success:
      out.value("id", {{"name", name}, {"id", id}});
      return ExitCode::Found;
    case ZaroErrC::MissingData:
      diagnose("no administrator named " + quoted(name));
      return ExitCode::NotFound;
    default:
      throw zaroruntime::RuntimeError(failure + ": " + databaseFailure(), zaroruntime::lastFailureKind());
  }
}

}  // namespace

void addAdminId(CommandTree& tree) {
  const auto name = std::make_shared<std::string>();
  CLI::App* command = tree.add(
      "admin id", "Print the identifier of an administrator",
      {"zaroctl admin id postmaster", "zaroctl admin id --json \"Pat O'Neil\"", "zaroctl admin id -- -name-with-a-dash"},
      [name](Output& out) { return printAdminId(out, *name); });
  command->add_option("NAME", *name, "The administrator's name, exactly as stored")->required();
}

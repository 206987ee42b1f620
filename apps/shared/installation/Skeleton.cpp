#include "installation/Skeleton.h"

#include <cstdlib>
#include <filesystem>

#include "ZaroRuntime/RuntimeError.h"

namespace fs = std::filesystem;

namespace {

fs::path besideProgram() {
  return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "share/zaropolicy/home";
}

}  // namespace

std::string skeletonDirectory(const std::string& option) {
  const char* variable = std::getenv("ZARO_SKELETON");
  fs::path directory;
  if (!option.empty()) {
    directory = option;
  } else if (variable != nullptr && *variable != '\0') {
    directory = variable;
  } else {
    directory = besideProgram();
  }
  std::error_code ignored;
  if (!fs::is_regular_file(directory / "config/database.ini", ignored)) {
    throw zaroruntime::RuntimeError(
        directory.string() + ": not the skeleton of an installation (name it with --skeleton or ZARO_SKELETON)",
        zaroruntime::FailureKind::Configuration);
  }
  return directory.string();
}

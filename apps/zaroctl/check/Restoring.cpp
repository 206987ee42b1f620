#include "check/Restoring.h"

#include <filesystem>
#include <system_error>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/Skeleton.h"

namespace fs = std::filesystem;

std::string restoringCommand(const std::string& original, const std::string& path) {
  std::error_code ignored;
  if (fs::exists(fs::symlink_status(path, ignored))) {
    return "";
  }
  try {
    const std::string file = skeletonDirectory("") + "/" + original;
    return fs::exists(file, ignored) ? " (cp " + file + " " + path + ")" : "";
  } catch (const zaroruntime::RuntimeError&) {
    return "";
  }
}

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "check/Checks.h"

namespace fs = std::filesystem;

namespace {

// Looks at everything below a directory. What a link names is looked at too, but not gone through.
class FilesCheck {
 public:
  explicit FilesCheck(Findings& findings) : m_findings(findings) {}

  void run(const fs::path& directory) {
    _look(directory);
    _list(directory);
    if (m_sound) {
      m_findings.ok("files", directory.string() + ": can be listed; nothing that every user may write");
    }
  }

 private:
  void _list(const fs::path& directory) {
    std::error_code failure;
    std::vector<fs::path> paths;
    for (fs::directory_iterator entry(directory, failure); !failure && entry != fs::directory_iterator();
         entry.increment(failure)) {
      paths.push_back(entry->path());
    }
    if (failure) {
      _tell(directory.string() + ": cannot be listed: " + failure.message());
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths) {
      _look(path);
      std::error_code ignored;
      if (fs::symlink_status(path, ignored).type() == fs::file_type::directory) {
        _list(path);
      }
    }
  }

  void _look(const fs::path& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
      return;  // the check that needs the file tells what is wrong
    }
    if ((status.st_mode & S_IWOTH) != 0) {
      _tell(path.string() + ": every user may write it (chmod o-w " + path.string() + ")");
    }
  }

  void _tell(const std::string& finding) {
    m_findings.wrong("files", finding);
    m_sound = false;
  }

  Findings& m_findings;
  bool m_sound = true;
};

}  // namespace

void checkFiles(const zaroruntime::Installation& installation, Findings& findings) {
  FilesCheck(findings).run(fs::path(installation.home()).parent_path());
}

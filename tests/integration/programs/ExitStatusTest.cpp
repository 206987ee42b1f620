// What the exit status of a program says. Each has a command here that ends with it, and a line in the manual.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Documents.h"
#include "programs/ProgramTest.h"

namespace {

using zarotest::ProgramResult;
using zarotest::ProgramRun;

class ExitStatus : public zarotest::SampleInstallation {
 protected:
  struct Row {
    int status;
    std::vector<std::string> arguments;
    std::string input;
    std::function<void()> before = [] {};
  };

  // The last of each status; a row makes of the installation what it likes.
  std::vector<Row> rows() {
    return {
        {0, {"admin", "id", "postmaster"}, ""},
        {1, {"admin", "id", "nobody"}, ""},
        {64, {"admin", "ids"}, ""},
        {64, {"object", "list", "--as", "admin", "--type", "x"}, ""},
        {65, {"base64", "decode"}, "*"},
        {65, {"group", "import", "Board", "-"}, "no address\n"},
        {65, {"match", "--tree", "group:nothing", "a@b.test"}, ""},
        {73, {"init", home()}, ""},
        {74, {"base64", "encode", directory().path("nothing")}, ""},
        {77, {"group", "remove", "Partners"}, ""},
        {77, {"object", "modify", "--as", "postmaster", "3", "--name", "x"}, ""},
        {75, {"init", "--db", "postgresql", "--host", "127.0.0.1", "--port", "1", directory().path("other")}, "secret\n"},
        {75, {"password"}, "secret\n", [this] { m_lock.take(homeFile("config")); }},
        {78, {"settings", "server"}, "", [this] { replaceLine("config/zaro.ini", "language=", "language"); }},
        {69, {"admin", "id", "postmaster"}, "", [this] { writeFile("sql/ui_GetAdminId.sql", "no SQL '%s'"); }},
        {78, {"admin", "id", "postmaster"}, "", [this] { writeFile("config/database.ini", ""); }},
    };
  }

 private:
  class Lock {
   public:
    Lock() = default;
    ~Lock() { close(m_descriptor); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    void take(const std::string& directory) {
      m_descriptor = open(directory.c_str(), O_RDONLY | O_CLOEXEC);
      ASSERT_EQ(flock(m_descriptor, LOCK_EX), 0);
    }

   private:
    int m_descriptor = -1;
  };

  Lock m_lock;
};

TEST_P(ExitStatus, saysWhatToDo) {
  std::set<std::string> tried;
  for (const Row& row : rows()) {
    row.before();
    const ProgramResult result = run(row.arguments, row.input);
    EXPECT_EQ(result.status, row.status) << testing::PrintToString(row.arguments) << result.err;
    tried.insert(std::to_string(row.status));
  }
  std::set<std::string> described;
  for (const zarotest::TableRow& row : zarotest::tableOf("docs/zaroctl.md", "| status | meaning |")) {
    described.insert(row[0]);
  }
  EXPECT_EQ(tried, described);
}

TEST_P(ExitStatus, ofCheckIsThatOfTheFirstFinding) {
  EXPECT_EQ(run({"check"}).status, 0);
  replaceLine("config/odbc.ini", "[", "[another]");
  EXPECT_EQ(run({"check"}).status, 78);
}

ZARO_ON_EVERY_DATABASE(ExitStatus);

}  // namespace

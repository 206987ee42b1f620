// Tests of commands that an administrator runs while another program takes rights away.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "programs/ProgramTest.h"

class RightsGoing : public zarotest::SampleInstallation {
 protected:
  // Runs a command; the other program's removal is done when the command has begun its transaction.
  //   table   one that the command writes to: there a command that does not look at the rights waits
  zarotest::ProgramResult runWhileRightsGo(const std::string& removal, const std::string& table,
                                           const std::vector<std::string>& command) const {
    const auto other = session();
    if (GetParam() == zarotest::Dialect::SQLite) {  // which tells no other program that the command waits
      other->run("CREATE TRIGGER rights_go AFTER INSERT ON audit_actor BEGIN " + removal + "; END");
      return run(command);
    }
    other->run("BEGIN");
    other->run("LOCK TABLE " + table + " IN EXCLUSIVE MODE");
    other->run(removal);
    zarotest::ProgramResult result;
    std::thread running([&] { result = run(command); });
    while (value("SELECT count(*) FROM pg_locks WHERE NOT granted") == "0") {
      std::this_thread::yield();
    }
    other->run("COMMIT");
    running.join();
    return result;
  }
  static std::string removalOfGroups(const std::string& admin) {
    return "DELETE FROM administrator_entity WHERE administrator_id = (SELECT id FROM administrator WHERE name = '" +
           admin + "')";
  }
};

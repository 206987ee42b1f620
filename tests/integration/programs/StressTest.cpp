// Every command that writes, three processes of each, all at the same time: what was acknowledged is stored, and what
// was not is not. ZARO_STRESS_ROUNDS says how often each process writes (2).
#include <algorithm>
#include <cstdlib>
#include <set>
#include <thread>

#include "programs/ProgramTest.h"

namespace {

using zarotest::ProgramResult;

using Words = std::vector<std::string>;

constexpr int kWorkers = 3;

// $N in the texts stands for the number of the slot, which is one round of one worker.
struct Writer {
  const char* label;
  std::vector<std::string> prepared;  // statements that make what is to be changed
  Words command;
  std::string input;
  std::string query;  // tells, by its one value, whether it was done
  std::string done;
  std::string undone;
};

std::string object(const std::string& id, const std::string& type, const std::string& name) {
  return "INSERT INTO named_object (id, type, name) VALUES (" + id + ", " + type + ", '" + name + "')";
}

std::string owner(const std::string& id, const std::string& type) {
  return "INSERT INTO named_object_owner (entity_id, object_id, object_type) SELECT id, " + id + ", " + type +
         " FROM entity WHERE name = '*@sales.example.test'";
}

std::string count(const std::string& rest) {
  return "SELECT count(*) FROM " + rest;
}

// "Board" is one group for all; an object, and a group, of each slot are changed in two ways at once.
const std::vector<Writer>& writers() {
  static const std::vector<Writer> all = {
      {"object add",
       {},
       {"object", "add", "--as", "sales-admin", "--type", "2", "--content", "text", "object $N"},
       "",
       count("named_object_owner WHERE object_id IN (SELECT id FROM named_object WHERE name = 'object $N')"),
       "3",
       "0"},
      {"object modify --name",
       {object("1$N", "2", "old"), owner("1$N", "2")},
       {"object", "modify", "--as", "sales-admin", "1$N", "--name", "new"},
       "",
       "SELECT name FROM named_object WHERE id = 1$N",
       "new",
       "old"},
      {"object modify --content",
       {},
       {"object", "modify", "--as", "sales-admin", "1$N", "--content", "text"},
       "",
       "SELECT content FROM named_object WHERE id = 1$N",
       "text",
       ""},
      {"object remove",
       {object("2$N", "2", "old"), owner("2$N", "2")},
       {"object", "remove", "--as", "sales-admin", "2$N"},
       "",
       count("named_object WHERE id = 2$N"),
       "0",
       "1"},
      {"group add",
       {},
       {"group", "add", "--as", "sales-admin", "group $N", "a@b.test", "b@b.test"},
       "",
       count("address_group_member WHERE group_id IN (SELECT id FROM named_object WHERE name = 'group $N')"),
       "2",
       "0"},
      {"group modify --add",
       {},
       {"group", "modify", "Board", "--add", "added$N@b.test"},
       "",
       count("address_group_member WHERE address = 'added$N@b.test'"),
       "1",
       "0"},
      {"group modify --remove",
       {"INSERT INTO address_group_member (group_id, position, address) VALUES (5, 1$N, 'removed$N@b.test')"},
       {"group", "modify", "Board", "--remove", "removed$N@b.test"},
       "",
       count("address_group_member WHERE address = 'removed$N@b.test'"),
       "0",
       "1"},
      {"group import --append",
       {},
       {"group", "import", "--append", "Board", "-"},
       "one$N@b.test\ntwo$N@b.test\n",
       count("address_group_member WHERE address IN ('one$N@b.test', 'two$N@b.test')"),
       "2",
       "0"},
      {"group modify --name",
       {object("3$N", "5", "old"), owner("3$N", "5")},
       {"group", "modify", "--id", "3$N", "--name", "new"},
       "",
       "SELECT name FROM named_object WHERE id = 3$N",
       "new",
       "old"},
      {"group import",
       {},
       {"group", "import", "--id", "3$N", "-"},
       "one@b.test\ntwo@b.test\n",
       count("address_group_member WHERE group_id = 3$N"),
       "2",
       "0"},
      {"group remove",
       {object("4$N", "5", "old"), owner("4$N", "5")},
       {"group", "remove", "--as", "sales-admin", "--id", "4$N"},
       "",
       count("named_object WHERE id = 4$N"),
       "0",
       "1"},
      {"entity add", {}, {"entity", "add", "*@added$N.test"}, "", count("entity WHERE name = '*@added$N.test'"), "1", "0"},
      {"entity remove",
       {"INSERT INTO entity (type, name) VALUES (6, '*@removed$N.test')"},
       {"entity", "remove", "*@removed$N.test"},
       "",
       count("entity WHERE name = '*@removed$N.test'"),
       "0",
       "1"},
      {"admin add", {}, {"admin", "add", "added$N"}, "", count("administrator WHERE name = 'added$N'"), "1", "0"},
      {"admin remove",
       {"INSERT INTO administrator (name) VALUES ('removed$N')"},
       {"admin", "remove", "removed$N"},
       "",
       count("administrator WHERE name = 'removed$N'"),
       "0",
       "1"},
      {"admin assign",
       {"INSERT INTO administrator (id, name) VALUES (1$N, 'assigned$N')"},
       {"admin", "assign", "assigned$N", "*@example.org", "*@example.test"},
       "",
       count("administrator_entity WHERE administrator_id = 1$N"),
       "2",
       "0"},
      {"admin unassign",
       {"INSERT INTO administrator (id, name) VALUES (2$N, 'unassigned$N')",
        "INSERT INTO administrator_entity (administrator_id, entity_id) SELECT 2$N, id FROM entity WHERE name IN "
        "('*@example.org', '*@example.test')"},
       {"admin", "unassign", "unassigned$N", "*@example.org", "*@example.test"},
       "",
       count("administrator_entity WHERE administrator_id = 2$N"),
       "0",
       "2"},
      {"servers add",
       {},
       {"servers", "add", "1$N", "192.0.2.1", "15505"},
       "",
       count("component WHERE type = 'P' AND scanner_id = 1$N"),
       "1",
       "0"},
      {"servers remove",
       {"INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (2$N, 'P', '192.0.2.1', 15505)"},
       {"servers", "remove", "2$N"},
       "",
       count("component WHERE type = 'P' AND scanner_id = 2$N"),
       "0",
       "1"},
  };
  return all;
}

std::string inSlot(std::string text, int slot) {
  constexpr int kFirst = 1000;  // so that numbers are as long as each other
  const std::string number = std::to_string(kFirst + slot);
  for (std::size_t at = text.find("$N"); at != std::string::npos; at = text.find("$N")) {
    text.replace(at, 2, number);
  }
  return text;
}

Words inSlot(const Words& words, int slot) {
  Words result;
  for (const std::string& word : words) {
    result.push_back(inSlot(word, slot));
  }
  return result;
}

class Stress : public zarotest::SampleInstallation {
 protected:
  static int rounds() {
    const char* text = std::getenv("ZARO_STRESS_ROUNDS");
    return text != nullptr ? std::atoi(text) : 2;
  }
  static int slots() { return kWorkers * rounds(); }

  void prepare() const {
    std::vector<std::string> statements;
    for (const Writer& writer : writers()) {
      for (int slot = 0; slot < slots(); ++slot) {
        for (const std::string& statement : writer.prepared) {
          statements.push_back(inSlot(statement, slot));
        }
      }
    }
    session()->runTogether(statements);
  }
};

TEST_P(Stress, whatIsAcknowledgedIsStoredAndNothingElse) {
  prepare();
  std::vector<std::vector<ProgramResult>> results(writers().size(), std::vector<ProgramResult>(slots()));
  std::vector<std::thread> threads;
  for (std::size_t at = 0; at < writers().size(); ++at) {
    for (int worker = 0; worker < kWorkers; ++worker) {
      threads.emplace_back([this, at, worker, &results] {
        const Writer& writer = writers()[at];
        for (int slot = worker; slot < slots(); slot += kWorkers) {
          results[at][static_cast<std::size_t>(slot)] = run(inSlot(writer.command, slot), inSlot(writer.input, slot));
        }
      });
    }
  }
  // The settings and the rule order have one place each, and the password has its file.
  std::vector<std::vector<std::string>> acknowledgedTimeOuts(kWorkers);
  std::vector<std::set<std::string>> acknowledgedOrders(kWorkers);
  for (int worker = 0; worker < kWorkers; ++worker) {
    threads.emplace_back([this, worker, &acknowledgedTimeOuts] {
      for (int round = 0; round < rounds(); ++round) {
        const std::string value = std::to_string(20 + worker * 100 + round);
        if (run({"settings", "set", "policy_client.recv_timeout_secs=" + value}).status == 0) {
          acknowledgedTimeOuts[static_cast<std::size_t>(worker)].push_back(value);
        }
      }
    });
    threads.emplace_back([this, worker, &acknowledgedOrders] {
      for (int round = 0; round < rounds(); ++round) {
        Words command = {"rules", "set-order", "1", "2", "3", "4", "5", "6"};
        std::rotate(command.begin() + 2, command.begin() + 2 + (worker + kWorkers * round) % 6, command.end());
        if (run(command).status == 0) {
          std::string order;
          for (std::size_t at = 2; at < command.size(); ++at) {
            order += command[at];
          }
          acknowledgedOrders[static_cast<std::size_t>(worker)].insert(order);
        }
      }
    });
    threads.emplace_back([this] {
      for (int round = 0; round < rounds(); ++round) {
        const ProgramResult result = run({"rules", "set-order", "--off"});
        EXPECT_TRUE(result.status == 0 || result.status == 75) << result.status << result.err;
      }
    });
    threads.emplace_back([this] {
      for (int round = 0; round < rounds(); ++round) {
        const ProgramResult result = run({"password"}, initInput().empty() ? "unused\n" : initInput());
        // The password is the one that was stored before, so what is not acknowledged is no loss either.
        EXPECT_TRUE(result.status == 0 || result.status == 75) << result.status << result.err;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  const auto database = session();
  for (std::size_t at = 0; at < writers().size(); ++at) {
    const Writer& writer = writers()[at];
    for (int slot = 0; slot < slots(); ++slot) {
      const ProgramResult& result = results[at][static_cast<std::size_t>(slot)];
      EXPECT_TRUE(result.status == 0 || result.status == 75) << writer.label << ": " << result.status << result.err;
      EXPECT_EQ(database->value(inSlot(writer.query, slot)), result.status == 0 ? writer.done : writer.undone)
          << writer.label << " " << slot << " answered " << result.status << ": " << result.err;
    }
  }
  std::set<std::string> orders;
  std::set<std::string> timeOuts;
  for (int worker = 0; worker < kWorkers; ++worker) {
    const auto& own = acknowledgedOrders[static_cast<std::size_t>(worker)];
    orders.insert(own.begin(), own.end());
    const auto& values = acknowledgedTimeOuts[static_cast<std::size_t>(worker)];
    if (!values.empty()) {
      timeOuts.insert(values.back());
    }
  }
  std::string order;
  for (const auto& row : database->rows("SELECT filter_id FROM manual_rule_order ORDER BY rule_order")) {
    order += row[0].value_or("?");
  }
  EXPECT_EQ(orders.count(order), 1u) << order;
  EXPECT_THAT(value("SELECT value FROM global_setting WHERE section = 'email-scan' AND name = 'manualRuleOrder'"),
              testing::AnyOf("on", "off"));
  const std::string stored =
      value("SELECT value FROM global_setting WHERE section = 'policy_client' AND name = 'recv_timeout_secs'");
  EXPECT_EQ(timeOuts.count(stored), 1u) << stored;
}

ZARO_ON_EVERY_DATABASE(Stress);

}  // namespace

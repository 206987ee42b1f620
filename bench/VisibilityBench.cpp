// How the list of named objects that an administrator sees grows with the objects and entities there are.
//
// Each size runs in a process of its own, because the library and the log are configured once per process. The steps of
// the list are timed one by one. PostgreSQL takes part when scripts/with-postgres says where it is.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "EntityUtils.h"
#include "RdbmsInterface.h"
#include "ZaroNamedObj.h"
#include "support/TestInstallation.h"

namespace {

using ZARO::RdbmsInterface;
using zarotest::Dialect;

constexpr auto kType = static_cast<ZaroNamedObj::NaObjType>(1);

struct Size {
  unsigned int objects;
  unsigned int entities;
};
constexpr Size kSizes[] = {{100, 10}, {1000, 100}, {10000, 1000}};

// Of ten entities six are the administrator's own groups, one is a pattern within its pattern, three are foreign.
enum class Owner { Own, Child, Foreign };

Owner ownerKind(unsigned int entity) {
  const unsigned int digit = entity % 10;
  return digit < 6 ? Owner::Own : digit == 6 ? Owner::Child : Owner::Foreign;
}

// Writes `count` rows in statements of a bounded length.
void insertRows(zaroruntime::SqlSession& session, const std::string& start, unsigned int count,
                const std::function<std::string(unsigned int)>& row) {
  constexpr unsigned int kRowsAtOnce = 500;
  for (unsigned int first = 0; first < count; first += kRowsAtOnce) {
    std::string statement = start;
    for (unsigned int i = first; i < count && i < first + kRowsAtOnce; ++i) {
      statement += (i == first ? "(" : ",(") + row(i) + ")";
    }
    session.run(statement);
  }
}

// Administrator 1 with the pattern "*@*.example.test", number 1; number 2 contains it; entity i below is number i + 3.
void fill(const zarotest::TestInstallation& home, const Size& size) {
  const auto session = home.session();
  session->run("INSERT INTO administrator (name, is_root) VALUES ('a', 0)");
  session->run("INSERT INTO entity (name, type) VALUES ('*@*.example.test', 6), ('*@*', 6)");
  insertRows(*session, "INSERT INTO entity (name, type) VALUES ", size.entities, [](unsigned int i) {
    const std::string number = std::to_string(i);
    return ownerKind(i) == Owner::Child ? "'*@d" + number + ".example.test',6" : "'group" + number + "',0";
  });
  session->run("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (1, 1)");
  for (unsigned int i = 0; i < size.entities; ++i) {
    if (ownerKind(i) == Owner::Own) {
      session->run("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (1, " +
                   std::to_string(i + 3) + ")");
    }
  }
  insertRows(*session, "INSERT INTO named_object (type, name, content) VALUES ", size.objects,
             [](unsigned int i) { return "1,'object" + std::to_string(i * 7919 % 100003) + "',''"; });
  insertRows(*session, "INSERT INTO named_object_owner (object_id, entity_id, object_type) VALUES ", size.objects,
             [&](unsigned int i) { return std::to_string(i + 1) + "," + std::to_string(i % size.entities + 3) + ",1"; });
}

// The trace lines that the two passes over relatives have to write: the walk over the children begins anew at every
// object that it takes from the candidates.
double traceLines(const Size& size) {
  const double children = size.entities / 10;
  double lines = 0;
  double others = 0;
  for (unsigned int i = 0; i < size.objects; ++i) {
    switch (ownerKind(i % size.entities)) {
      case Owner::Own:
        break;
      case Owner::Child:
        lines += (others + 1) * (1 + children) + 1;
        break;
      case Owner::Foreign:
        ++others;
        break;
    }
  }
  return lines + others * (1 + children) + others * 2;  // one parent
}

double seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
  }
}

void measure(const char* database, const Size& size) {
  require(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr), "Init failed");
  RdbmsInterface db;
  std::vector<GroupEntity> entities;
  require(EntityUtils::getEntity(db, 1, entities) == 0, "no entities");
  double read = 1e9;
  double direct = 1e9;
  double related = 1e9;
  for (int i = 0; i < 3; ++i) {
    ZaroNamedObj::_candidates candidates;
    std::vector<SummaryNamedObject> out;
    read = std::min(
        read, seconds([&] { require(ZaroNamedObj::_getNamedObjIds(db, candidates, kType, nullptr), "no objects"); }));
    direct = std::min(direct, seconds([&] { ZaroNamedObj::_addDirRefNamedObjIds(entities, candidates, out); }));
    related = std::min(related, seconds([&] {
                         require(ZaroNamedObj::_addRelatedWildcardIds(db, entities, candidates, out), "no relatives");
                       }));
    require(out.size() == size.objects / 10 * 7, "another number of objects than there are to be seen");
  }
  std::vector<SummaryNamedObject> out;
  const double whole = seconds([&] { require(ZaroNamedObj::getIds(db, 1, kType, out), "no list"); });
  const double lines = traceLines(size);
  std::printf("| %s | %u | %u | %.2f | %.2f | %.0f | %.2f | %.2f | %.1f | %.1f |\n", database, size.objects,
              size.entities, read / size.objects * 1e6, direct / size.objects * 1e6, lines, related * 1e3,
              related / lines * 1e9, (whole - read - direct - related) / static_cast<double>(out.size()) * 1e6,
              whole * 1e3);
}

// Runs `work` in a process of its own that logs to a file, down to `level`.
void inOwnProcess(const std::string& log, const char* level, const std::function<void()>& work) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    setenv("ZARO_LOG", log.c_str(), 1);
    setenv("ZARO_LOG_LEVEL", level, 1);
    work();
    std::fflush(nullptr);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  require(status == 0, "a measurement failed");
}

void measureAll(const char* database, Dialect dialect) {
  for (const Size& size : kSizes) {
    const zarotest::TestInstallation home(dialect);
    fill(home, size);
    inOwnProcess(home.directory().path("log"), "2", [&] { measure(database, size); });
    if (size.objects == 1000) {
      inOwnProcess(home.directory().path("log"), "4",
                   [&] { measure((std::string(database) + ", trace on").c_str(), size); });
    }
  }
}

}  // namespace

int main() {
  std::puts(
      "| database | objects | entities | read, us per object | direct, us per object | trace lines | related, ms | "
      "ns per line | in use, us per object seen | whole, ms |");
  std::puts("|---|---|---|---|---|---|---|---|---|---|");
  measureAll("SQLite", Dialect::SQLite);
  if (zarotest::postgresqlServer()) {
    measureAll("PostgreSQL", Dialect::PostgreSQL);
  }
}

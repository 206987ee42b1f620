// The database behind KxDbConnect and KxDataAccess.
#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KxDataAccess.h"
#include "KxDbConnect.h"

namespace scripted {

using Value = std::optional<std::string>;
constexpr std::nullopt_t kNull = std::nullopt;  // SQL NULL
using Row = std::vector<Value>;

struct ResultSet {
  std::vector<std::string> columns;
  std::vector<Row> rows;
};

// What the database answers to one statement.
class Reply {
 public:
  // Success without result columns.
  Reply() = default;
  // One result set.
  Reply(std::vector<std::string> columns, std::vector<Row> rows);

  // The statement fails: executing it throws `text`.
  static Reply failure(std::string text);

  // A further result set.
  Reply& andThen(std::vector<std::string> columns, std::vector<Row> rows);
  // The `number`-th fetch of a row (1 is the first) throws `text`.
  Reply& failingAtFetch(int number, std::string text);
  // What fetching a row answers when there is none left; 1 at first.
  Reply& endingRowsWith(int code);
  // What going to the next result set answers when there is none left; 1 at first.
  Reply& endingResultsWith(int code);

  const std::optional<std::string>& failureText() const { return m_failure; }
  const std::vector<ResultSet>& resultSets() const { return m_resultSets; }
  const std::pair<int, std::string>& failingFetch() const { return m_failingFetch; }
  int rowsEnd() const { return m_rowsEnd; }
  int resultsEnd() const { return m_resultsEnd; }

 private:
  std::optional<std::string> m_failure;
  std::vector<ResultSet> m_resultSets;
  std::pair<int, std::string> m_failingFetch{0, {}};
  int m_rowsEnd = 1;
  int m_resultsEnd = 1;
};

// One statement as it reached the database.
struct Execution {
  int connection;  // number of the KxDbConnect
  std::string statement;
  KxDbConnect::SQL_TYPE kind;
};

// Replies are looked up by the statement's text, then by its file, then from the handler. A statement that none of them
// knows is a failure of the running test; the transaction statements succeed from the start.
//
// A column's text is valid until the next fetch or execute and is then freed, so that late use shows in a sanitizer.
// A column that the result has not, or that is read without a row, is NULL. Executing on a connection that is not
// connected throws "not connected".
//
// Safe from any thread once the replies are set; a handler runs on the thread that executes.
class Database {
 public:
  using Handler = std::function<std::optional<Reply>(const std::string& statement)>;

  Database();

  // Answers a statement text. Given again for the same text, the replies are used in turn; the last one stays.
  void reply(const std::string& statement, Reply reply);
  // The same for every statement that was rendered by the default text of a file, whatever its parameters.
  void replyToFile(const std::string& file, Reply reply);
  // Asked for a reply to every other statement; no value for a statement that it does not know.
  void answerWith(Handler handler);

  // What was executed, in order: everything, or the texts only.
  std::vector<Execution> executions() const;
  std::vector<std::string> statements() const;

  // Connections that are open now, apart from those of a pool, and those that a pool has lent.
  int openConnections() const;
  int lentConnections() const;

  // KxDataAccess::reinit answers this; 0 at first.
  void setReinitResult(int result);
  // What the pool held before its first `init`: connect time-out (s), retry time-out (s), reconnect trials.
  std::array<int, 3> poolTuning() const;
  // Whether it held no connection and no text then.
  bool poolWasEmpty() const;

  // KxDbConnect::getError writes `text` and answers `result`.
  void setDiagnostics(int result, const std::string& text);

  // Back to the start, numbers included. Connections and pools that still exist stay valid and counted.
  void reset();

  // For the stand-ins.
  int numberConnection();
  void countOpen(int change);
  void countLent(int change);
  std::size_t addPool(const KxDataAccess* pool, const std::array<int, 3>& tuning, bool empty);
  Reply execute(const Execution& execution);
  int reinitResult() const;
  std::pair<int, std::string> diagnostics() const;

 private:
  struct Replies {
    std::deque<Reply> queue;
    Reply next();
  };

  std::optional<Reply> _scriptedReply(const std::string& statement);

  mutable std::mutex m_mutex;
  std::map<std::string, Replies> m_byStatement;
  std::map<std::string, Replies> m_byFile;
  Handler m_handler;
  std::vector<Execution> m_executions;
  int m_connectionsNumbered = 0;
  int m_openConnections = 0;
  int m_lentConnections = 0;
  std::size_t m_poolsNumbered = 0;
  std::array<int, 3> m_poolTuning{};
  bool m_poolWasEmpty = false;
  int m_reinitResult = 0;
  std::pair<int, std::string> m_diagnostics;
  std::vector<const KxDataAccess*> m_pools;  // the library keeps the last one only; here all stay reachable
};

}  // namespace scripted

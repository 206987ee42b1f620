// What several statements read of one moment.
#pragma once

#include "store/Database.h"

// One moment of the database, for as long as this lives. It waits for no writer and keeps none waiting (with SQLite, writers wait
// for it unless the database has a write-ahead log). `db` must not be in a transaction. Throws DatabaseError.
class ReadTransaction {
 public:
  explicit ReadTransaction(StoreConnection& db) : m_db(db) {
    db.run(db.dialect() == zaroruntime::Dialect::PostgreSQL ? "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY"
                                                            : "BEGIN");
  }
  ~ReadTransaction() {
    try {
      m_db.run("ROLLBACK");
    } catch (const DatabaseError&) {
      // The connection is rolled back when it is given back.
    }
  }
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;

 private:
  StoreConnection& m_db;
};

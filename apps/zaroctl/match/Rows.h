// How the answers of match are printed.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "console/Output.h"
#include "patterns/Decisions.h"
#include "patterns/PatternTrees.h"

// Rows as they come; in one table at the end where all of them are at hand for a reader at a terminal.
class Rows {
 public:
  Rows(Output& out, std::vector<Output::Column> columns, bool together)
      : m_out(out), m_columns(std::move(columns)), m_together(together && out.isTable()), m_rows(Json::array()) {}

  void add(Json row) {
    if (m_together) {
      m_rows.push_back(std::move(row));
    } else {
      m_out.next(m_columns, row);
    }
  }
  void finish() {
    if (m_together) {
      m_out.rows(m_columns, m_rows);
    }
  }

 private:
  Output& m_out;
  std::vector<Output::Column> m_columns;
  bool m_together;
  Json m_rows;
};

// Puts the properties of a decision into a row; `prefix` tells two of them in one row apart.
void describe(const Decision& decision, const PatternTrees& trees, const std::string& prefix, Json& row);

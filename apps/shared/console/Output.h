// Results on standard output, in the form that suits the reader: aligned tables for people, tab-separated lines for
// pipes, one JSON document with --json, and the values of one key with --query.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "console/Terminal.h"

using Json = nlohmann::ordered_json;

class Output {
 public:
  enum class Form { Table, Lines, Document, Values };

  // What becomes of cells that are too wide for the terminal.
  enum class Width { Cut, Whole };

  struct Column {
    const char* key;    // in the row objects
    const char* title;  // heading of the table
    Width width = Width::Cut;
  };

  explicit Output(Form form) : m_form(form) {}
  // Tables for a terminal.
  explicit Output(const Terminal& terminal) : m_form(Form::Table), m_terminal(terminal) {}
  // The values of one key, as they are or as diagnostics show them. Printing throws UsageError for a key that a result
  // does not have.
  enum class Escaping { None, Printable };
  static Output valuesOf(std::string key, Escaping escaping);

  // A command prints its result by one of these, once; one whose results come one after the other, by `next`.

  // A result that is one value, which stands alone outside JSON.
  void value(const char* key, const Json& object);
  // A result that is one thing with several properties: a line for each, its name before its value.
  void record(const Json& object);
  // The same, but JSON is `document`.
  void record(const Json& object, const Json& document);
  // A list of alike objects, one line each. Lines have the columns in the order given and no heading. JSON also has the
  // keys that are no columns.
  void rows(const std::vector<Column>& columns, const Json& rows);
  // The same, but JSON is `document`, which has more to say than the rows.
  void rows(const std::vector<Column>& columns, const Json& rows, const Json& document);

  // A result that is bytes, such as a stored text. They stand as they are in every form.
  void raw(const std::string& bytes);

  // One of many results, printed at once: a line with the columns given, or JSON on one line. `isTable` tells a command
  // that has them all at hand that `rows` would suit its reader better.
  void next(const std::vector<Column>& columns, const Json& row);
  // Text for people, between results; nothing where results are taken apart by their keys.
  void remark(const std::string& text);
  bool isTable() const { return m_form == Form::Table; }
  // Whether results are taken apart by their keys: all of them in JSON, one with --query.
  bool isByKey() const { return m_form == Form::Document || m_form == Form::Values; }

  // Sends everything on its way; throws RuntimeError when standard output does not take it.
  void finish();

 private:
  void _write(const std::string& text);
  void _writeJson(const Json& document, int indent);
  void _writeValue(const Json& object);
  std::string _tableText(const std::vector<Column>& columns, const Json& rows) const;

  Form m_form;
  Terminal m_terminal;
  std::string m_key;  // whose values are printed
  Escaping m_escaping = Escaping::None;
};

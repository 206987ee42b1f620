// Results on standard output, in the form that suits the reader: aligned tables for people, tab-separated lines for
// pipes, one JSON document with --json.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Json = nlohmann::ordered_json;

class Output {
 public:
  enum class Form { Table, Lines, Document };

  struct Column {
    const char* key;    // in the row objects
    const char* title;  // heading of the table
  };

  explicit Output(Form form) : m_form(form) {}

  // A command prints its result by one of these, once; one whose results come one after the other, by `next`.

  // A result that is one value, which stands alone outside JSON.
  void value(const char* key, const Json& object);
  // A result that is one thing with several properties: a line for each, its name before its value.
  void record(const Json& object);
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
  // Text for people, between results; nothing with --json.
  void remark(const std::string& text);
  bool isTable() const { return m_form == Form::Table; }
  bool isDocument() const { return m_form == Form::Document; }

  // Sends everything on its way; throws RuntimeError when standard output does not take it.
  void finish();

 private:
  void _write(const std::string& text);
  void _writeJson(const Json& document, int indent);

  Form m_form;
};

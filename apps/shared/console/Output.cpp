#include "console/Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ZaroRuntime/PrintableText.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/DisplayWidth.h"
#include "console/Text.h"
#include "console/UsageError.h"

namespace {

constexpr int kIndent = 2;    // of a JSON document
constexpr int kOneLine = -1;  // for a document without line ends

std::string cellText(const Json& cell) {
  if (cell.is_null() || (cell.is_array() && cell.empty())) {
    return "-";
  }
  if (cell.is_array()) {
    std::string list;
    for (const Json& element : cell) {
      list.append(list.empty() ? "" : ", ").append(cellText(element));
    }
    return list;
  }
  if (cell.is_boolean()) {
    return cell.get<bool>() ? "yes" : "no";
  }
  return cell.is_string() ? zaroruntime::printableText(cell.get<std::string>()) : cell.dump();
}

// A document without the control characters that JSON lets stand: U+007F to U+009F, which a terminal may obey.
std::string withoutControls(const std::string& document) {
  std::string text;
  text.reserve(document.size());
  for (std::size_t at = 0; at < document.size(); ++at) {
    const auto byte = static_cast<unsigned char>(document[at]);
    const auto next = static_cast<unsigned char>(at + 1 < document.size() ? document[at + 1] : 0);
    const bool twoBytes = byte == 0xc2 && next >= 0x80 && next < 0xa0;
    if (byte != 0x7f && !twoBytes) {
      text += document[at];
      continue;
    }
    char escape[7];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned int>(twoBytes ? next : byte));
    text += escape;
    at += twoBytes ? 1 : 0;
  }
  return text;
}

// Names need not be UTF-8; what is not becomes a replacement character.
std::string jsonText(const Json& document, int indent) {
  return withoutControls(document.dump(indent, ' ', false, Json::error_handler_t::replace));
}

// The text alone, with nothing escaped; of what is not there, nothing.
std::string valueText(const Json& value) {
  if (value.is_null()) {
    return "";
  }
  if (value.is_array() &&
      !std::any_of(value.begin(), value.end(), [](const Json& part) { return part.is_structured(); })) {
    std::string list;
    for (const Json& element : value) {
      list.append(list.empty() ? "" : ", ").append(valueText(element));
    }
    return list;
  }
  return value.is_string()       ? value.get<std::string>()
         : value.is_structured() ? jsonText(value, kOneLine)
                                 : cellText(value);
}

using Cells = std::vector<std::string>;

Cells cellsOf(const std::vector<Output::Column>& columns, const Json& row) {
  Cells cells;
  for (const Output::Column& column : columns) {
    cells.push_back(cellText(row.at(column.key)));
  }
  return cells;
}

std::vector<Cells> linesOf(const std::vector<Output::Column>& columns, const Json& rows) {
  std::vector<Cells> lines;
  for (const Json& row : rows) {
    lines.push_back(cellsOf(columns, row));
  }
  return lines;
}

// Aligned text for a terminal.
class Table {
 public:
  // Of things whose properties stand below each other.
  explicit Table(std::vector<Cells> lines) : m_lines(std::move(lines)) { _measure(); }
  // With headings.
  Table(const std::vector<Output::Column>& columns, std::vector<Cells> lines) : m_lines(std::move(lines)) {
    Cells headings;
    for (const Output::Column& column : columns) {
      headings.emplace_back(column.title);
      m_isWhole.push_back(column.width == Output::Width::Whole);
    }
    m_lines.insert(m_lines.begin(), std::move(headings));
    _measure();
  }

  // Makes the widest columns narrower, until the lines fit, or no column may be narrower still.
  void fit(std::size_t terminal) {
    std::size_t all = (m_widths.size() - 1) * kGap.size();
    for (std::size_t i = 0; i < m_widths.size(); ++i) {
      all += _isWhole(i) ? std::min(m_widths[i], kNarrowest) : m_widths[i];
    }
    for (; all > terminal; --all) {
      const std::size_t widest = _widestToCut();
      if (widest == m_widths.size()) {
        return;
      }
      --m_widths[widest];
    }
  }

  std::string text(bool boldHeadings) const {
    std::string text;
    for (std::size_t at = 0; at < m_lines.size(); ++at) {
      const bool isBold = boldHeadings && at == 0 && !m_isWhole.empty();
      text.append(isBold ? kBold : "").append(_lineText(m_lines[at])).append(isBold ? kPlain : "").append(1, '\n');
    }
    return text;
  }

 private:
  static constexpr std::string_view kGap = "  ";
  static constexpr std::size_t kNarrowest = 12;  // to which a column is cut
  static constexpr const char* kBold = "\x1b[1m";
  static constexpr const char* kPlain = "\x1b[0m";

  void _measure() {
    for (const Cells& line : m_lines) {
      m_widths.resize(std::max(m_widths.size(), line.size()));
      for (std::size_t i = 0; i < line.size(); ++i) {
        m_widths[i] = std::max(m_widths[i], displayWidth(line[i]));
      }
    }
  }

  bool _isWhole(std::size_t column) const { return column < m_isWhole.size() && m_isWhole[column]; }

  std::size_t _widestToCut() const {
    std::size_t widest = m_widths.size();
    for (std::size_t i = 0; i < m_widths.size(); ++i) {
      if (!_isWhole(i) && m_widths[i] > kNarrowest && (widest == m_widths.size() || m_widths[i] > m_widths[widest])) {
        widest = i;
      }
    }
    return widest;
  }

  std::string _lineText(const Cells& line) const {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      const std::string cell = cutToWidth(line[i], m_widths[i]);
      text += cell;
      if (i + 1 < line.size()) {
        text.append(m_widths[i] - displayWidth(cell), ' ').append(kGap);
      }
    }
    return text;
  }

  std::vector<Cells> m_lines;
  std::vector<bool> m_isWhole;  // by column; empty without headings
  std::vector<std::size_t> m_widths;
};

std::string tabbedText(const std::vector<Cells>& lines) {
  std::string text;
  for (const Cells& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      text.append(i == 0 ? "" : "\t").append(line[i]);
    }
    text += '\n';
  }
  return text;
}

}  // namespace

Output Output::valuesOf(std::string key, Escaping escaping) {
  Output output(Form::Values);
  output.m_key = std::move(key);
  output.m_escaping = escaping;
  return output;
}

void Output::value(const char* key, const Json& object) {
  switch (m_form) {
    case Form::Document:
      _writeJson(object, kIndent);
      break;
    case Form::Values:
      _writeValue(object);
      break;
    case Form::Table:
    case Form::Lines:
      _write(cellText(object.at(key)) + '\n');
      break;
  }
}

void Output::record(const Json& object) {
  record(object, object);
}

void Output::record(const Json& object, const Json& document) {
  std::vector<Cells> lines;
  for (const auto& property : object.items()) {
    lines.push_back({property.key(), cellText(property.value())});
  }
  switch (m_form) {
    case Form::Document:
      _writeJson(document, kIndent);
      break;
    case Form::Values:
      _writeValue(object.contains(m_key) ? object : document);
      break;
    case Form::Table:
      // Nothing is cut: the user asked for this one thing.
      _write(Table(std::move(lines)).text(false));
      break;
    case Form::Lines:
      _write(tabbedText(lines));
      break;
  }
}

void Output::rows(const std::vector<Column>& columns, const Json& rows) {
  this->rows(columns, rows, rows);
}

void Output::rows(const std::vector<Column>& columns, const Json& rows, const Json& document) {
  switch (m_form) {
    case Form::Document:
      _writeJson(document, kIndent);
      break;
    case Form::Values:
      if (document.is_object() && document.contains(m_key)) {
        _writeValue(document);
        break;
      }
      for (const Json& row : rows) {
        _writeValue(row);
      }
      break;
    case Form::Table:
      _write(_tableText(columns, rows));
      break;
    case Form::Lines:
      _write(tabbedText(linesOf(columns, rows)));
      break;
  }
}

void Output::raw(const std::string& bytes) {
  _write(bytes);
}

void Output::next(const std::vector<Column>& columns, const Json& row) {
  switch (m_form) {
    case Form::Document:
      _writeJson(row, kOneLine);
      break;
    case Form::Values:
      _writeValue(row);
      break;
    case Form::Table:
    case Form::Lines:
      _write(tabbedText({cellsOf(columns, row)}));
      break;
  }
}

void Output::remark(const std::string& text) {
  if (!isByKey()) {
    _write(zaroruntime::printableText(text) + '\n');
  }
}

void Output::finish() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw zaroruntime::RuntimeError(std::string("cannot write to standard output: ") + std::strerror(errno),
                                    zaroruntime::FailureKind::File);
  }
}

void Output::_write(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void Output::_writeJson(const Json& document, int indent) {
  _write(jsonText(document, indent) + '\n');
}

void Output::_writeValue(const Json& object) {
  const auto found = object.find(m_key);
  if (found == object.end()) {
    std::string keys;
    for (const auto& property : object.items()) {
      keys.append(keys.empty() ? "" : ", ").append(property.key());
    }
    throw UsageError("--query: the result has no key " + ::quoted(m_key) + "; it has " + keys);
  }
  const std::string text = valueText(*found);
  _write((m_escaping == Escaping::Printable ? zaroruntime::printableText(text) : text) + '\n');
}

std::string Output::_tableText(const std::vector<Column>& columns, const Json& rows) const {
  if (rows.empty()) {
    return "";
  }
  Table table(columns, linesOf(columns, rows));
  if (m_terminal.columns != 0) {
    table.fit(m_terminal.columns);
  }
  return table.text(m_terminal.isBoldShown);
}

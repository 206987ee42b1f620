#include "console/Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZaroRuntime/PrintableText.h"
#include "ZaroRuntime/RuntimeError.h"

namespace {

constexpr const char* kTableGap = "  ";
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

// Columns that a text takes on a terminal, counting every character as one.
std::size_t shownWidth(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }));
}

using Cells = std::vector<std::string>;

Cells cellsOf(const std::vector<Output::Column>& columns, const Json& row) {
  Cells cells;
  for (const Output::Column& column : columns) {
    cells.push_back(cellText(row.at(column.key)));
  }
  return cells;
}

std::string tableText(const std::vector<Cells>& lines) {
  std::vector<std::size_t> widths;
  for (const Cells& line : lines) {
    widths.resize(std::max(widths.size(), line.size()));
    for (std::size_t i = 0; i < line.size(); ++i) {
      widths[i] = std::max(widths[i], shownWidth(line[i]));
    }
  }
  std::string text;
  for (const Cells& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += line[i];
      if (i + 1 < line.size()) {
        text.append(widths[i] - shownWidth(line[i]), ' ').append(kTableGap);
      }
    }
    text += '\n';
  }
  return text;
}

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

}  // namespace

void Output::value(const char* key, const Json& object) {
  if (m_form == Form::Document) {
    _writeJson(object, kIndent);
  } else {
    _write(cellText(object.at(key)) + '\n');
  }
}

void Output::record(const Json& object) {
  if (m_form == Form::Document) {
    _writeJson(object, kIndent);
    return;
  }
  std::vector<Cells> lines;
  for (const auto& property : object.items()) {
    lines.push_back({property.key(), cellText(property.value())});
  }
  _write(m_form == Form::Table ? tableText(lines) : tabbedText(lines));
}

void Output::rows(const std::vector<Column>& columns, const Json& rows) {
  this->rows(columns, rows, rows);
}

void Output::rows(const std::vector<Column>& columns, const Json& rows, const Json& document) {
  if (m_form == Form::Document) {
    _writeJson(document, kIndent);
    return;
  }
  std::vector<Cells> lines;
  if (m_form == Form::Table && !rows.empty()) {
    Cells headings;
    for (const Column& column : columns) {
      headings.emplace_back(column.title);
    }
    lines.push_back(std::move(headings));
  }
  for (const Json& row : rows) {
    lines.push_back(cellsOf(columns, row));
  }
  _write(m_form == Form::Table ? tableText(lines) : tabbedText(lines));
}

void Output::raw(const std::string& bytes) {
  _write(bytes);
}

void Output::next(const std::vector<Column>& columns, const Json& row) {
  if (m_form == Form::Document) {
    _writeJson(row, kOneLine);
    return;
  }
  _write(tabbedText({cellsOf(columns, row)}));
}

void Output::remark(const std::string& text) {
  if (m_form != Form::Document) {
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
  // Names need not be UTF-8; what is not becomes a replacement character.
  _write(withoutControls(document.dump(indent, ' ', false, Json::error_handler_t::replace)) + '\n');
}

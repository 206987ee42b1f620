// blob read [FILE], blob write [KEY=VALUE...]
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Blob.h"
#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Input.h"
#include "console/Text.h"
#include "console/UsageError.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

constexpr const char* kTrimmed = "\r\n\t ";

void addFields(Json& rows, int record, const Blob::Fields& fields) {
  for (const auto& [key, value] : fields) {
    rows.push_back({{"record", record}, {"key", key}, {"value", value}});
  }
}

bool onlyBlanks(const char* text) {
  return text[std::strspn(text, kTrimmed)] == '\0';
}

ExitCode readRecords(Output& out, const std::string& file) {
  const std::string text = readInput(file);
  Json rows = Json::array();
  const char* cursor = text.c_str();
  for (int record = 1; !onlyBlanks(cursor); ++record) {
    const char* before = cursor;
    Blob::Fields fields;
    Blob::readBlob(cursor, fields);
    addFields(rows, record, fields);
    if (cursor == before) {
      diagnose("record " + std::to_string(record) + " is unfinished: no empty line ends it");
      break;
    }
  }
  if (text.find('\0') != std::string::npos) {
    diagnose(inputName(file) + ": a NUL ends the text; nothing behind it was read");
  }
  out.rows({{"record", "RECORD"}, {"key", "KEY"}, {"value", "VALUE"}}, rows);
  return rows.empty() ? ExitCode::NotFound : ExitCode::Found;
}

// Why the format does not bring a field back as it is; empty when it does.
std::string refusal(const std::string& key, const std::string& value) {
  const std::string inNeither("\n\0", 2);
  if (key.find_first_of(inNeither) != std::string::npos || value.find_first_of(inNeither) != std::string::npos) {
    return "line feeds and NUL cannot be stored";
  }
  if (key.find('=') != std::string::npos) {
    return "a key cannot hold \"=\"";
  }
  if (!key.empty() && std::string(kTrimmed).find(key.front()) != std::string::npos) {
    return "a key cannot begin with a blank, a TAB or a CR";
  }
  if (!value.empty() && std::string(kTrimmed).find(value.back()) != std::string::npos) {
    return "a value cannot end with a blank, a TAB or a CR";
  }
  return "";
}

void addField(Blob::Fields& fields, const std::string& key, const std::string& value) {
  const std::string reason = refusal(key, value);
  if (!reason.empty()) {
    throw RuntimeError("key " + quoted(key) + ": " + reason, FailureKind::Data);
  }
  if (!fields.emplace(key, value).second) {
    throw RuntimeError("key " + quoted(key) + " is there twice", FailureKind::Data);
  }
}

std::string recordOf(const std::vector<std::string>& assignments) {
  Blob::Fields fields;
  for (const std::string& assignment : assignments) {
    const std::size_t sign = assignment.find('=');
    if (sign == std::string::npos) {
      throw UsageError(quoted(assignment) + " is no KEY=VALUE");
    }
    addField(fields, assignment.substr(0, sign), assignment.substr(sign + 1));
  }
  std::string text;
  Blob::writeBlob(text, fields);
  return text;
}

// The records of lines as `blob read` prints them: record, key and value, TABs between.
std::string recordsOf(const std::string& lines, const std::string& name) {
  std::string text;
  std::string record;
  Blob::Fields fields;
  int number = 0;
  for (std::size_t begin = 0; begin < lines.size();) {
    const std::size_t end = std::min(lines.find('\n', begin), lines.size());
    const std::string line = lines.substr(begin, end - begin);
    begin = end + 1;
    ++number;
    const std::size_t first = line.find('\t');
    const std::size_t second = first == std::string::npos ? first : line.find('\t', first + 1);
    if (second == std::string::npos) {
      throw RuntimeError(name + ": line " + std::to_string(number) + " is not record, key and value with TABs between",
                         FailureKind::Data);
    }
    if (!fields.empty() && line.substr(0, first) != record) {
      Blob::writeBlob(text, fields);
      fields.clear();
    }
    record = line.substr(0, first);
    try {
      addField(fields, unescaped(line.substr(first + 1, second - first - 1)), unescaped(line.substr(second + 1)));
    } catch (const RuntimeError& failure) {
      throw RuntimeError(name + ": line " + std::to_string(number) + ": " + failure.what(), failure.kind());
    }
  }
  if (!fields.empty()) {
    Blob::writeBlob(text, fields);
  }
  return text;
}

ExitCode writeRecords(Output& out, const std::vector<std::string>& assignments, const std::string& file) {
  out.raw(assignments.empty() ? recordsOf(readInput(file), inputName(file)) : recordOf(assignments));
  return ExitCode::Found;
}

}  // namespace

void addBlobRead(CommandTree& tree) {
  const auto file = std::make_shared<std::string>();
  CLI::App* command = tree.add("blob read", "Show the fields of stored records",
                               {"zaroctl blob read stored.txt", "zaroctl blob read --json < stored.txt"},
                               [file](Output& out) { return readRecords(out, *file); });
  command->add_option("FILE", *file, "Where the records are; else standard input");
}

void addBlobWrite(CommandTree& tree) {
  const auto assignments = std::make_shared<std::vector<std::string>>();
  const auto file = std::make_shared<std::string>();
  CLI::App* command = tree.add(
      "blob write", "Write fields as a stored record",
      {"zaroctl blob write name=gateway port=5060 > stored.txt", "zaroctl blob read stored.txt | zaroctl blob write"},
      [assignments, file](Output& out) { return writeRecords(out, *assignments, *file); });
  auto* fields = command->add_option("KEY=VALUE", *assignments, "The fields of one record");
  command->add_option("--file", *file, "Lines as `blob read` prints them; else standard input")
      ->type_name("FILE")
      ->excludes(fields);
}

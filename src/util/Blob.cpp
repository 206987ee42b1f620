#include "Blob.h"

#include <cstring>

#include "TextConversions.h"

namespace {

constexpr char kAssign = '=';
constexpr char kLineFeed = '\n';
constexpr char kCarriageReturn = '\r';
constexpr char kLineEnd[] = "\r\n";
constexpr char kSkippedBeforeRecord[] = "\r\n\t ";

// The line from `begin` to its LF, without the line end and trimmed.
std::string trimmedLine(const char* begin, const char* lineFeed) {
  const char* end = lineFeed[-1] == kCarriageReturn ? lineFeed - 1 : lineFeed;
  std::string line(begin, end);
  trim(line);
  return line;
}

void storeField(const std::string& line, Blob::Fields& fields) {
  const std::size_t assign = line.find(kAssign);
  if (assign == std::string::npos) {
    fields[line] = line;  // stored records hold such lines, and their readers look for the text under its own name
    return;
  }
  fields[line.substr(0, assign)] = line.substr(assign + 1);
}

// Binds a variable by way of a wider type that is bound already.
template <typename Wide, typename Variable>
bool bindAs(Blob::Fields& fields, const char* key, Variable& variable, bool intoFields) {
  // A variable to be filled may never have been set, and a bool of no value must not be looked at.
  Wide wide = intoFields ? static_cast<Wide>(variable) : Wide();
  const bool bound = Blob::bindBlobField(fields, key, wide, intoFields);
  if (bound && !intoFields) {
    variable = static_cast<Variable>(wide);
  }
  return bound;
}

// The same by way of text.
template <typename Number>
bool bindAsText(Blob::Fields& fields, const char* key, Number& variable, bool intoFields,
                Number (*read)(const std::string&)) {
  std::string text = intoFields ? toString(variable) : std::string();
  const bool bound = Blob::bindBlobField(fields, key, text, intoFields);
  if (bound && !intoFields) {
    variable = read(text);
  }
  return bound;
}

}  // namespace

void Blob::writeBlob(std::string& text, const Fields& fields) {
  for (const auto& [key, value] : fields) {
    text.append(key).append(1, kAssign).append(value).append(kLineEnd);
  }
  text.append(kLineEnd);
}

bool Blob::readBlob(const char*& cursor, Fields& fields) {
  const char* next = cursor + std::strspn(cursor, kSkippedBeforeRecord);
  while (const char* lineFeed = std::strchr(next, kLineFeed)) {
    const char* begin = next;
    next = lineFeed + 1;
    const std::string line = begin != lineFeed ? trimmedLine(begin, lineFeed) : std::string();
    if (line.empty()) {
      cursor = next;
      return true;
    }
    storeField(line, fields);
  }
  return true;
}

bool Blob::bindBlobField(Fields& fields, const char* key, std::string& variable, bool intoFields) {
  if (intoFields) {
    fields[key] = variable;
    return true;
  }
  const auto field = fields.find(key);
  if (field == fields.end()) {
    return false;
  }
  variable = field->second;
  return true;
}

bool Blob::bindBlobField(Fields& fields, const char* key, unsigned int& variable, bool intoFields) {
  return bindAsText(fields, key, variable, intoFields, toUInt);
}

bool Blob::bindBlobField(Fields& fields, const char* key, int& variable, bool intoFields) {
  return bindAsText(fields, key, variable, intoFields, toInt);
}

bool Blob::bindBlobField(Fields& fields, const char* key, bool& variable, bool intoFields) {
  return bindAs<unsigned int>(fields, key, variable, intoFields);
}

bool Blob::bindBlobField(Fields& fields, const char* key, unsigned short& variable, bool intoFields) {
  return bindAs<unsigned int>(fields, key, variable, intoFields);
}

bool Blob::bindBlobField(Fields& fields, const char* key, short& variable, bool intoFields) {
  return bindAs<int>(fields, key, variable, intoFields);
}

// A flat record of named fields as text: a line `key=value` for each field in the order of the keys, CR LF after each,
// and an empty line at the end.
//
// Nothing is quoted or escaped. What comes back is what was written as long as a key holds no "=", LF or NUL and begins
// with none of CR, TAB and blank, and a value holds no LF or NUL and ends with none of CR, TAB and blank.
#pragma once

#include <map>
#include <string>

#include "ZaroPolicyExport.h"

class ZARO_POLICY_EXPORT Blob {
 public:
  using Fields = std::map<std::string, std::string>;

  // Appends a record to `text`.
  static void writeBlob(std::string& text, const Fields& fields);

  // Reads a record; line ends and blanks before it are skipped.
  //   cursor   in a NUL-terminated text; moved behind the record's empty line. When the text ends before that, it stays
  //            where it was, so that the caller can come back with more text, although the fields of whole lines have
  //            been read; a last line without LF is not
  //   fields   not cleared; a field that is there already is replaced, as is one that the record repeats
  // A line without "=" is both key and value. Always true: no line is refused.
  static bool readBlob(const char*& cursor, Fields& fields);

  // Copies a variable into the field `key` (`intoFields`), or the field into the variable. One routine per record type
  // thus serves both directions. False, and the variable untouched, when there is no such field to copy from.
  // A text that is no number reads as `toInt` and `toUInt` say, and the short types get the low 16 bits of that; a bool
  // is written as 0 or 1 and true for every other number than 0.
  static bool bindBlobField(Fields& fields, const char* key, std::string& variable, bool intoFields);
  static bool bindBlobField(Fields& fields, const char* key, unsigned int& variable, bool intoFields);
  static bool bindBlobField(Fields& fields, const char* key, int& variable, bool intoFields);
  static bool bindBlobField(Fields& fields, const char* key, bool& variable, bool intoFields);
  static bool bindBlobField(Fields& fields, const char* key, unsigned short& variable, bool intoFields);
  static bool bindBlobField(Fields& fields, const char* key, short& variable, bool intoFields);
};

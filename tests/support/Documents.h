// The manuals and files of the source tree, for tests that compare them with tables of the code.
#pragma once

#include <string>
#include <vector>

namespace zarotest {

// Throws std::runtime_error when the file cannot be read or, below, has no such part.
std::string sourceFile(const std::string& path);
// Names of the files in a folder of the source tree, in order.
std::vector<std::string> sourceFolder(const std::string& path);

using TableRow = std::vector<std::string>;  // cells, without blanks around
// The rows of the table whose heading is `| one | two |`, of a document.
std::vector<TableRow> tableOf(const std::string& document, const std::string& heading);

// What stands between single backticks in a text, in order.
std::vector<std::string> codeWords(const std::string& text);

}  // namespace zarotest

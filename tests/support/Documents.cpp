#include "Documents.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace zarotest {

namespace {

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// "| one | two |"
TableRow cellsOf(const std::string& line) {
  TableRow cells;
  for (std::size_t begin = 1, end = 0; (end = line.find('|', begin)) != std::string::npos; begin = end + 1) {
    cells.push_back(trimmed(line.substr(begin, end - begin)));
  }
  return cells;
}

}  // namespace

std::string sourceFile(const std::string& path) {
  std::ifstream file(std::string(ZARO_SOURCE_DIR "/") + path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) {
    throw std::runtime_error(path + " cannot be read");
  }
  return text;
}

std::vector<std::string> sourceFolder(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(std::string(ZARO_SOURCE_DIR "/") + path)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<TableRow> tableOf(const std::string& document, const std::string& heading) {
  std::istringstream lines(sourceFile(document));
  std::string line;
  while (line != heading) {
    if (!std::getline(lines, line)) {
      throw std::runtime_error(document + " has no table " + heading);
    }
  }
  std::getline(lines, line);  // the rule below the heading
  std::vector<TableRow> rows;
  while (std::getline(lines, line) && !line.empty() && line[0] == '|') {
    rows.push_back(cellsOf(line));
  }
  return rows;
}

std::vector<std::string> codeWords(const std::string& text) {
  std::vector<std::string> words;
  for (std::size_t begin = 0; (begin = text.find('`', begin)) != std::string::npos;) {
    const std::size_t end = text.find('`', begin + 1);
    if (end == std::string::npos) {
      break;
    }
    words.push_back(text.substr(begin + 1, end - begin - 1));
    begin = end + 1;
  }
  return words;
}

}  // namespace zarotest

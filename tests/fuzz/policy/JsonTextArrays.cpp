// Arrays of texts: any bytes are read to their end, and what the JSON library writes comes as it was.
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "policy/JsonTextArray.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input = textOf(data, size);
  std::size_t length = 0;
  eachTextIn(input, [&](std::string_view text) { length += text.size(); });
  FUZZ_CHECK(length <= size);

  std::vector<std::string> texts;
  std::istringstream lines(input);
  for (std::string line; std::getline(lines, line);) {
    texts.push_back(line);
  }
  std::string array;
  try {
    array = nlohmann::json(texts).dump();
  } catch (const nlohmann::json::exception&) {
    return 0;  // no UTF-8
  }
  std::vector<std::string> read;
  FUZZ_CHECK(texts.empty() || eachTextIn(array, [&](std::string_view text) { read.emplace_back(text); }));
  FUZZ_CHECK(read == texts);
  return 0;
}

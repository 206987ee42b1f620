// JSON that another program wrote.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

// A text that is no JSON, or nested too deeply.
class JsonTextError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// No document or snapshot of ours nests arrays and objects deeper.
constexpr std::size_t kDeepestJson = 8;

// Throws JsonTextError.
nlohmann::ordered_json parsedJson(std::string_view text);

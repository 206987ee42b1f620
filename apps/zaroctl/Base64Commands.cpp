// base64 encode [FILE], base64 decode [FILE]
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>

#include "CommandTree.h"
#include "Commands.h"
#include "Input.h"
#include "Text.h"
#include "ZaroMimeUtils.h"
#include "ZaroRuntime/RuntimeError.h"

using zaroruntime::RuntimeError;

namespace {

struct Free {
  void operator()(char* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<char, Free>;

int codecLength(const std::string& input, const std::string& file) {
  if (input.size() >= INT_MAX) {
    throw RuntimeError(inputName(file) + ": too long for the codec: " + std::to_string(input.size()) + " bytes");
  }
  return static_cast<int>(input.size());
}

ExitCode encode(Output& out, const std::string& file) {
  std::string bytes = readInput(file);
  if (bytes.empty()) {
    return ExitCode::Found;
  }
  const Buffer text(CBase64Utils().Encode(bytes.data(), codecLength(bytes, file)));
  if (text == nullptr) {
    throw RuntimeError(inputName(file) +
                       ": too long for the codec, or for the memory: " + std::to_string(bytes.size()) + " bytes");
  }
  out.raw(text.get());
  return ExitCode::Found;
}

// Where the gateway's reading differs from what somebody who looks at the text expects.
void explainLength(const std::string& text, int reported) {
  switch (reported % 3) {
    case 1:
      diagnose("the last group is incomplete: the gateway counts one byte less than the text holds");
      break;
    case 2:
      diagnose("the last group is incomplete: the gateway counts one byte more than the text holds, a zero");
      break;
    default:
      break;
  }
  const std::size_t padding = text.find('=');
  if (padding != std::string::npos && text.find_first_not_of("=\r\n", padding) != std::string::npos) {
    diagnose("the text behind the first \"=\" was not read");
  }
}

ExitCode decode(Output& out, const std::string& file, bool asIs) {
  std::string text = readInput(file);
  if (!asIs) {
    text.erase(text.find_last_not_of("\r\n") + 1);
  }
  int length = codecLength(text, file);
  CBase64Utils codec;
  const Buffer bytes(codec.Decode(text.data(), &length));
  if (bytes == nullptr) {
    throw RuntimeError(inputName(file) + ": too long for the memory: " + std::to_string(text.size()) + " bytes");
  }
  out.raw(std::string(bytes.get(), static_cast<std::size_t>(length)));
  explainLength(text, length);
  if (codec.hasError()) {
    diagnose(inputName(file) + ": characters that are not Base64 were skipped");
    return ExitCode::Failure;
  }
  return ExitCode::Found;
}

}  // namespace

void addBase64Encode(CommandTree& tree) {
  const auto file = std::make_shared<std::string>();
  CLI::App* command = tree.add("base64 encode", "Encode bytes as the gateway stores them",
                               {"zaroctl base64 encode picture.png > stored.txt", "printf ABC | zaroctl base64 encode"},
                               [file](Output& out) { return encode(out, *file); });
  command->add_option("FILE", *file, "Where the bytes are; else standard input");
}

void addBase64Decode(CommandTree& tree) {
  const auto file = std::make_shared<std::string>();
  const auto asIs = std::make_shared<bool>(false);
  CLI::App* command = tree.add("base64 decode", "Decode a text as the gateway reads it",
                               {"zaroctl base64 decode stored.txt > picture.png", "echo QUJD | zaroctl base64 decode"},
                               [file, asIs](Output& out) { return decode(out, *file, *asIs); });
  command->add_option("FILE", *file, "Where the text is; else standard input");
  command->add_flag("--as-is", *asIs, "Also read a line end at the end, which the gateway takes for a character");
}

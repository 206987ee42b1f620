// base64 encode [FILE], base64 decode [FILE]
#include <climits>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>

#include "ZaroMimeUtils.h"
#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Input.h"
#include "console/Text.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

constexpr char kPadding = '=';

struct Free {
  void operator()(char* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<char, Free>;

int codecLength(const std::string& input, const std::string& file) {
  if (input.size() >= INT_MAX) {
    throw RuntimeError(inputName(file) + ": too long for the codec: " + std::to_string(input.size()) + " bytes",
                       FailureKind::Data);
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
    throw RuntimeError(
        inputName(file) + ": too long for the codec, or for the memory: " + std::to_string(bytes.size()) + " bytes",
        FailureKind::Data);
  }
  out.raw(text.get());
  return ExitCode::Found;
}

// What the gateway makes of a text, character by character.
struct Reading {
  std::size_t taken = 0;        // characters that counted, of the alphabet or not
  std::size_t at = 0;           // behind the last of them
  bool foreignLast = false;     // the last of them is not Base64
  bool skippedPadding = false;  // "=" did not end the text
  bool endedByPadding = false;
};

bool isBase64(char character) {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
         (character >= '0' && character <= '9') || character == '+' || character == '/';
}

Reading readingOf(const std::string& text) {
  const auto character = [&](std::size_t at) { return at < text.size() ? text[at] : '\0'; };
  Reading reading;
  std::size_t limit = text.size();  // one less for each character skipped
  while (reading.taken < limit) {
    if (character(reading.at) == kPadding) {
      reading.endedByPadding = true;
      break;
    }
    bool last = false;
    while (!last && !isBase64(character(reading.at))) {
      reading.skippedPadding = reading.skippedPadding || character(reading.at) == kPadding;
      ++reading.at;
      --limit;
      last = reading.taken + 1 >= limit;
    }
    reading.foreignLast = !isBase64(character(reading.at));
    reading.skippedPadding = reading.skippedPadding || character(reading.at) == kPadding;
    ++reading.at;
    ++reading.taken;
  }
  return reading;
}

// By the characters of the last group; none stands for four.
struct LastGroup {
  const char* counted;
  const char* spoilt;
};
constexpr LastGroup kLastGroups[] = {
    {nullptr, "the last three bytes are"},
    {"three bytes for its one character, which holds none", "the last three bytes are"},
    {"two bytes for its two characters, which hold one", "the last two bytes are"},
    {"one byte for its three characters, which hold two", "the last byte is"},
};

// Where the gateway's reading differs from what a reader of the text expects.
void explainReading(const std::string& text) {
  const Reading reading = readingOf(text);
  const LastGroup& group = kLastGroups[reading.taken % std::size(kLastGroups)];
  if (reading.foreignLast) {
    diagnose(std::string("the text ends in what is not Base64, and the gateway takes a character of that: ") +
             group.spoilt + " not what was encoded");
  } else if (group.counted != nullptr) {
    diagnose(std::string("the last group is incomplete: the gateway counts ") + group.counted);
  }
  if (reading.skippedPadding) {
    diagnose("\"=\" directly behind a character that is skipped is skipped too, and does not end the text");
  }
  if (reading.endedByPadding && text.find_first_not_of("=\r\n", reading.at) != std::string::npos) {
    diagnose("the text behind the \"=\" that ends it was not read");
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
    throw RuntimeError(inputName(file) + ": too long for the memory: " + std::to_string(text.size()) + " bytes",
                       FailureKind::Data);
  }
  out.raw(std::string(bytes.get(), static_cast<std::size_t>(length)));
  explainReading(text);
  if (codec.hasError()) {
    diagnose(inputName(file) + ": characters that are not Base64 were skipped");
    return ExitCode::Data;
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

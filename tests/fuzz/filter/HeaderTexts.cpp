// Header fields of messages, and the texts that the filter puts into them and into replies.
#include "milter/HeaderText.h"

#include <algorithm>
#include <string>

#include "FuzzInput.h"
#include "PlainBase64.h"

namespace {

bool isPrintable(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char letter) { return letter >= ' ' && letter <= '~'; });
}

// The text of encoded words, each on a line of its own.
std::string decodedWords(const std::string& words) {
  const std::string begin = "=?UTF-8?B?";
  const std::string end = "?=";
  std::string text;
  for (std::size_t at = 0; at < words.size();) {
    const std::size_t lineEnd = std::min(words.find('\n', at), words.size());
    const std::string word = words.substr(at, lineEnd - at);
    FUZZ_CHECK(word.size() <= 75 && isPrintable(word));
    FUZZ_CHECK(word.compare(0, begin.size(), begin) == 0 && word.size() > begin.size() + end.size());
    FUZZ_CHECK(word.substr(word.size() - end.size()) == end);
    text += plainBase64Decoded(word.substr(begin.size(), word.size() - begin.size() - end.size()));
    FUZZ_CHECK(lineEnd == words.size() || words[lineEnd + 1] == ' ');
    at = std::min(lineEnd + 2, words.size());
  }
  return text;
}

void checkHeaderText(const std::string& text) {
  const std::string value = asHeaderText(text);
  FUZZ_CHECK(isPrintable(text) ? value == text : decodedWords(value) == text);
}

void checkReply(const std::string& text) {
  const std::string reply = asReplyText(text);
  FUZZ_CHECK(isPrintable(reply) && reply.size() == std::min<std::size_t>(text.size(), 400));
}

void checkSubject(const std::string& tag, const std::string& subject) {
  const std::string tagged = taggedSubject(tag, subject);
  FUZZ_CHECK(taggedSubject(tag, tagged) == tagged);
  if (isPrintable(tag) && isPrintable(subject)) {
    const std::string seen = tag.substr(std::min(tag.find_first_not_of(' '), tag.size()));
    FUZZ_CHECK(isPrintable(tagged) && tagged.find(seen) != std::string::npos);
  }
}

}  // namespace

// A tag, a line end, and a text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input = textOf(data, size);
  const std::size_t lineEnd = std::min(input.find('\n'), input.size());
  const std::string tag = input.substr(0, lineEnd);
  const std::string text = input.substr(std::min(lineEnd + 1, input.size()));
  if (const auto address = addressOfFrom(text)) {
    FUZZ_CHECK(address->find('@') != std::string::npos && address->size() <= text.size());
  }
  checkHeaderText(text);
  checkReply(text);
  checkSubject(tag, text);
  return 0;
}

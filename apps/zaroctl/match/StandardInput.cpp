#include "match/StandardInput.h"

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>

#include "console/LineReader.h"
#include "console/Text.h"

namespace {

// Addresses that were read and wait to be answered together.
class Waiting {
 public:
  explicit Waiting(Question& question) : m_question(question) {}

  void add(AskedAddress address) {
    constexpr std::size_t kTogether = 512;
    m_addresses.push_back(std::move(address));
    if (m_addresses.size() == kTogether) {
      answer();
    }
  }
  void answer() {
    m_all = m_question.answer(m_addresses) && m_all;
    m_addresses.clear();
  }
  bool allFound() const { return m_all; }

 private:
  Question& m_question;
  Addresses m_addresses;
  bool m_all = true;
};

}  // namespace

bool askAboutStandardInput(Question& question, const AskedForm& form) {
  Waiting waiting(question);
  bool readable = true;
  // A program that writes the addresses one by one gets each answer before the next.
  LineReader lines(STDIN_FILENO, "standard input", [&waiting] {
    waiting.answer();
    std::fflush(stdout);
  });
  std::string line;
  for (bool more = true; more;) {
    try {
      more = lines.next(line);
      if (more) {
        waiting.add(form.of(line));
      }
    } catch (const BadLine& bad) {
      diagnose(bad.what());
      waiting.add({});
      readable = false;
    }
  }
  waiting.answer();
  question.finish();
  return waiting.allFound() && readable;
}

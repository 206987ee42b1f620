// The lexical analysis of SQL: segments cover the text, and a script's statements are single ones.
#include "sql/SqlText.h"

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  std::size_t end = 0;
  for (const auto& segment : zaroruntime::scanSql(text)) {
    FUZZ_CHECK(segment.begin == end);
    FUZZ_CHECK(segment.end > segment.begin);
    end = segment.end;
  }
  FUZZ_CHECK(end == text.size());
  zaroruntime::transactionVerb(text);

  const bool one = zaroruntime::whyNotOneStatement(text).empty();
  try {
    const auto statements = zaroruntime::splitScript(text);
    // What may be executed is one statement at most.
    FUZZ_CHECK(!one || statements.size() <= 1);
    for (const auto& statement : statements) {
      FUZZ_CHECK(!statement.text.empty() && statement.line >= 1);
    }
  } catch (const zaroruntime::RuntimeError&) {
    FUZZ_CHECK(!one);
  }
  return 0;
}

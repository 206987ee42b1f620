// The statement files of the installation, as KxSqlLoader reads them.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace scripted {

struct LoadedStatement {
  std::string directory;               // of the loader
  std::string file;                    // as named by the library
  int bufferSize;                      // bytes
  std::vector<std::string> arguments;  // as they went into the text
  std::string text;                    // the whole statement, also when it did not fit
};

// Every file of the library is there from the start, with a text that shows its name and its parameters, each in
// brackets: "ui_RemoveNamedObj.sql [12] [3]". Safe from any thread, as far as loading goes.
class Statements {
 public:
  Statements();

  // Sets a file's text. It takes the conversions %s, %d, %u and %%.
  void setText(const std::string& file, const std::string& text);
  // Takes a file away: loading it throws "no statement file NAME".
  void remove(const std::string& file);
  // What happens when a text does not fit its buffer: loading throws "NAME does not fit into N bytes" with the buffer
  // full (at first), or the buffer holds the beginning.
  void truncateWhatDoesNotFit();

  // Every statement loaded so far, in order.
  std::vector<LoadedStatement> loaded() const;
  // The last of them; an empty record if there is none.
  LoadedStatement last() const;

  // Back to the start.
  void reset();

  // For the stand-in.
  std::optional<std::string> textOf(const std::string& file) const;
  bool truncates() const;
  void add(LoadedStatement statement);

 private:
  mutable std::mutex m_mutex;
  std::map<std::string, std::string> m_texts;
  std::vector<LoadedStatement> m_loaded;
  bool m_truncates = false;
};

}  // namespace scripted

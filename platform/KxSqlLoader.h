// Reads named statement files of the installation.
#pragma once

class KxSqlLoader {
 public:
  explicit KxSqlLoader(const char* sqlDirectory);
  ~KxSqlLoader();

  KxSqlLoader(const KxSqlLoader&) = delete;
  KxSqlLoader& operator=(const KxSqlLoader&) = delete;

  // Formats the file's text with the further arguments into `buffer` (at most `size` bytes, terminated).
  // Throws `const char*` when the file cannot be read or formatted, or an argument text is null.
  void loadSQL(char* buffer, int size, const char* fileName, ...);

 private:
  struct Impl;
  Impl* m_impl;
};

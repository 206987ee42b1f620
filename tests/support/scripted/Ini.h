// The ini files behind ZARO::ConfigFileOnDisk, and the stored passwords behind NewDecryptStr.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace scripted {

// What one path leads to.
struct IniFile {
  bool opened = false;
  std::map<std::pair<std::string, std::string>, std::string> values;  // by section and key
};

// No file exists at first. For one thread.
class Ini {
 public:
  // A file that opens, with what has been set in it so far.
  void open(const std::string& path);
  // Sets a value; the file need not open.
  void set(const std::string& path, const std::string& section, const std::string& key, const std::string& value);
  // A reader that finds no key leaves this in the caller's value; without it the value stays as it was.
  void leaveWhenMissing(const std::string& text);

  void reset();

  // For the stand-in.
  const IniFile& file(const std::string& path) const;
  const std::optional<std::string>& leftWhenMissing() const { return m_leftWhenMissing; }

 private:
  std::map<std::string, IniFile> m_files;
  std::optional<std::string> m_leftWhenMissing;
};

// No text decrypts at first. For one thread.
class Passwords {
 public:
  // Makes a stored text decrypt to `clear`, which may be as long as a caller's buffer can take.
  void decrypt(const std::string& stored, const std::string& clear);
  // Makes a text that does not decrypt come out spoilt, with failure reported all the same.
  void spoilWhatFails();

  void reset();

  // For the stand-in.
  const std::string* clearTextOf(const std::string& stored) const;
  bool spoils() const { return m_spoils; }

 private:
  std::map<std::string, std::string> m_clearTexts;
  bool m_spoils = false;
};

}  // namespace scripted

// Locales in which "i" and "I" are not one letter's two cases: one with characters of several bytes, in which each case
// of the other stays as it is, and one with characters of one byte, in which it becomes another byte.
#pragma once

#include <string>

namespace zarotest {

class TurkishLocales {
 public:
  static constexpr const char* kNames[] = {"tr_TR.UTF-8", "tr_TR.ISO-8859-9"};

  // Makes them in a directory of its own, which LOCPATH names while the object lives. Throws std::runtime_error when
  // they cannot be made.
  TurkishLocales();
  ~TurkishLocales();
  TurkishLocales(const TurkishLocales&) = delete;
  TurkishLocales& operator=(const TurkishLocales&) = delete;

 private:
  std::string m_directory;
};

// Gives the process the LC_CTYPE of a locale. Throws std::runtime_error when there is no such locale.
void setCtype(const char* locale);

}  // namespace zarotest

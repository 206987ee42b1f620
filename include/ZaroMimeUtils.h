// Base64 as the gateway stores it: the usual alphabet, "=" padding, lines of 76 characters. It deviates from RFC 4648,
// and what is stored depends on it:
//
// 1. Of two bytes left at the end, the first is written as 0xFF when the second is 128 or above.
// 2. The length that `Decode` reports after an incomplete group is off: three bytes too many for one character, one too
//    many for two, one too few for three. The bytes themselves are all in the buffer.
// 3. `Decode` takes the last of the characters it may consider for one of the alphabet, even when it is not: a line end
//    at the end of a text spoils the group it falls into, or adds up to three bytes. Cut line ends off the end first.
// 4. "=" directly behind a character that `Decode` skips, such as a line end, is skipped as well and sets the error
//    flag. Keep padding on the line of its group.
//
// The error flag belongs to the object: one object decodes on one thread at a time. Nothing is logged or thrown.
#pragma once

#include "ZaroPolicyExport.h"

class ZARO_POLICY_EXPORT CBase64Utils {
 public:
  CBase64Utils() = default;

  // Text of `length` bytes: NUL-terminated, with CR LF after every 57 bytes of input, the last ones included. Release
  // it with `free`. Null for a length below 1, when the text is too long for an `int` to tell its size, and when there
  // is no memory.
  char* Encode(char* data, int length);

  // Bytes of a text up to the first "=" (but see 4) or the end, and a NUL behind the three bytes of the last group.
  // Release them with `free`. Characters outside the alphabet are skipped; any of them but CR and LF sets the error
  // flag.
  //   text     NUL-terminated: one character beyond those to consider may be read
  //   length   characters to consider, at most those before the NUL; receives the number of bytes
  // Null, and `length` untouched, when the length is no size and when there is no memory.
  char* Decode(char* text, int* length);

  // Whether any `Decode` of this object has met a character that does not belong in Base64.
  bool hasError() const { return m_error != 0; }

 private:
  int m_error = 0;
};

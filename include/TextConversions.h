// Numbers as text and back, and the trimming of stored text. All of them are the same in every locale, none logs, and
// any thread may call them at any time.
#pragma once

#include <string>

#include "ZaroPolicyExport.h"

// Decimal, without padding, grouping or a plus sign.
ZARO_POLICY_EXPORT std::string toString(long value);
ZARO_POLICY_EXPORT std::string toString(int value);
ZARO_POLICY_EXPORT std::string toString(unsigned int value);

// Reads the decimal number at the start of a text: white space before it is skipped, a sign is accepted, whatever
// follows is ignored. Text that does not begin with a number, or one that 32 bits cannot hold, is not an error: it
// reads as -1 for a signed field and as 0 for an unsigned one, which is what callers test for. An unsigned number may
// carry a minus sign and wraps: "-1" reads as 4294967295.
ZARO_POLICY_EXPORT int toInt(const std::string& text);
ZARO_POLICY_EXPORT unsigned int toUInt(const std::string& text);

// Removes CR, LF, TAB and blank from both ends: each in its turn, in that order, first at the end. Stored text is
// compared after this, so a mixed run goes only as far as the order allows; "a\r\n" becomes "a\r".
ZARO_POLICY_EXPORT void trim(std::string& text);

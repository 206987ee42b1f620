// Tests of a settings text.
#pragma once

// True for a decimal TCP port, 1 to 65535.
bool isValidPort(const char* text);
// True for a text of decimal digits.
bool isNum(const char* text);

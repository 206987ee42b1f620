// Stored passwords.
#pragma once

// Decrypts a stored text in place (the clear text is never longer). Non-zero on success; otherwise the text is
// unchanged.
int NewDecryptStr(char* text);

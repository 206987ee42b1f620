// What a program sets in its environment, from which the library and the platform take it.
#pragma once

#include <string>

// The installation, where the command line names one: `home` is null otherwise. Throws UsageError for an empty name.
// The platform's settings that the user has made stay.
void setInstallation(const std::string* home);

// Sets a variable that is not set.
void setDefault(const char* variable, const char* value);

// What the writer of a line that is no good pattern meant, as far as patterns can say it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Patterns to write instead of the line, each on a line of its own: they have no mistakes, and together they match
// nothing that was not meant. None when no pattern says for certain what was meant; never one that matches every
// address. A "*" in the line is read as any characters, "@DOMAIN" and "DOMAIN" as every address of the domain,
// ".DOMAIN" as its sub-domains.
std::vector<std::string> patternsMeantBy(std::string_view line);

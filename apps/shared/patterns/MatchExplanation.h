// A decision in words.
#pragma once

#include <string>

#include "KxMatchExplanation.h"

// What became of a candidate; other candidates are named by their numbers, from 1.
std::string fateText(const KxMatchCandidate& candidate);
// How the result code comes about.
std::string codeText(const KxMatchExplanation& explanation);
// One word for programs: "decided", "lighter", ...
const char* fateWord(KxMatchCandidate::Fate fate);
const char* tierWord(KxMatchExplanation::Tier tier);

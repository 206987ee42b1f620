// Addresses that come one a line, and their answers.
#pragma once

#include "match/Question.h"

// Asks about every line of standard input, many at a time, and finishes the question. Each answer is written before the
// next line is waited for. Returns whether every line was read and every address found.
bool askAboutStandardInput(Question& question, const AskedForm& form);

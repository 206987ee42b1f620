// Addresses that come one a line, and their answers.
#pragma once

#include "match/Question.h"

// Asks about every address of standard input, many at a time, and finishes the question. Each answer is written before
// the next address is waited for. Returns whether each address was read and found.
bool askAboutStandardInput(Question& question);

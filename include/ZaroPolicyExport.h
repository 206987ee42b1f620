// Visibility of the library's classes and functions.
#pragma once

// Everything in libZaroPolicy is hidden unless its declaration says otherwise.
#define ZARO_POLICY_EXPORT __attribute__((visibility("default")))

#pragma once
#include <cstdio>

// Opens a file for "input" or "output"; on failure reports
// "CALLER: cannot open 'NAME' for input" (or "Cannot open ..." without a caller)
// through the warning handler and returns null.
std::FILE* kel_open(const char* name, bool for_output, const char* caller = nullptr);

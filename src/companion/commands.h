// The commands of kelvane-digits.
#pragma once

#include <string>
#include <vector>

#include "companion/arguments.h"

namespace kelvane::companion {

// The whole program: parses, runs, and reports failures on standard error. Returns the exit status.
int run(const std::vector<std::string>& args);

// One command each; results on standard output. Throw km_exception and UsageError.
Status info(const Arguments& arguments);
Status print(const Arguments& arguments);
Status find(const Arguments& arguments);
Status compare(const Arguments& arguments);
Status convert(const Arguments& arguments);
Status hash(const Arguments& arguments);
Status stats(const Arguments& arguments);

// To standard output. A failed write (a full disk) is thrown as "Error writing to file.".
void put(const std::string& text);
void put(const char* text, u64 count);
void flush_output();

} // namespace kelvane::companion

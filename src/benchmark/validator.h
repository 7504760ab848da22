// "Benchmark Validator": asks for a validation file and says what it is worth.
#pragma once

#include <string>

namespace kelvane {

void benchmark_validator();

// The answer for one file: its contents and one of "valid", "altered", "too old", "too new", "cannot be
// read", "not a validation file". For a valid file also what the stored references say of its digits.
void validate_file(const std::wstring& path);

} // namespace kelvane

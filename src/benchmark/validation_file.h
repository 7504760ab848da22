// The validation file of a benchmark: what was computed on what, how fast and how it compared, as text that
// people can read, with a checksum that shows whether it was edited.
//
//   Kelvane Benchmark Validation File
//   Version 0.6.1 Validation
//   ... the paragraphs ...
//   Checksum:  32 hexadecimal digits
//
// Printable ASCII and newlines only. The checksum covers every byte before its line, and nothing follows it:
// a file is valid when it is, byte for byte, what the program writes behind its own text. It is no signature.
// Who has this source can compute the checksum of any text.
#pragma once

#include <string>
#include <vector>

#include "benchmark/clock_check.h"
#include "benchmark/pi_benchmark.h"
#include "control/driver.h"
#include "shell/system_info.h"
#include "shell/types.h"

namespace kelvane {

// The last 50 digits of a result.
std::string last_digits(const FinishResult& result);
// "CLOCK_MONOTONIC 12.345 seconds, CLOCK_REALTIME 12.345 seconds: they agree"
std::string clocks_text(const ClockCheck& clocks);
// How that ends when they do not.
inline constexpr char CLOCKS_DISAGREE[] = ": they DISAGREE";

struct ValidationInput {
  const ComputeSettings& settings;
  const RunRecord& record;
  const ClockCheck& clocks; // stopped
  BenchmarkVerdict verdict;
  const std::vector<SystemFact>& system;
};
// The whole file, checksum included.
std::string validation_text(const ValidationInput& input);

// "Pi - 25000000 - 20261121-030405 - Validation.txt" in the output folder, with " (2)" and so on before
// ".txt" when there is one already.
std::wstring validation_path(const ComputeSettings& settings, std::time_t start, FileSystem& files);

// The text as a polynomial over the integers modulo 2^61 - 1, seven bytes a coefficient, its length the last
// one, at two fixed points, as 32 hexadecimal digits. An edit that was not made for it is missed with a
// chance of about (n / 2^61)^2, n being the number of coefficients.
std::string text_checksum(const std::string& text);
// The text with its checksum line.
std::string with_checksum(const std::string& text);

inline constexpr u64 LONGEST_VALIDATION_FILE = 65536; // bytes; written are about 2200
enum class FileVerdict { VALID, ALTERED, TOO_OLD, TOO_NEW, NO_VALIDATION_FILE };
// Judges the text of a file, of which no more than LONGEST_VALIDATION_FILE + 1 bytes need to be there. Any
// bytes will do.
FileVerdict examine(const std::string& text);

// The value behind a label at the beginning of a line, up to the end of the line; empty when there is none.
std::string value_of(const std::string& text, const std::string& label);

} // namespace kelvane

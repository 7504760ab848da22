// The end of a computation on the screen, and its report file.
#pragma once

#include <string>
#include <vector>

#include "control/driver.h"
#include "shell/system_info.h"

namespace kelvane {

// "Constant :  " ... "Mode   :    ", the system information, and the empty line behind it.
void print_header(const ComputeSettings& settings);
// Start and end, computation and total time, utilisation and efficiency.
void print_timings(const RunRecord& record);
// "Last Digits:  " and the kept tail: groups of 10, five to a line, each line with its last position.
void print_last_digits(const ComputeSettings& settings, const FinishResult& result);

// The lines of the tail, each ended by a newline.
std::string last_digit_lines(const std::string& tail, u64 start);

// The paragraphs of the report file, which a benchmark's validation file shares: the system; constant,
// formula, digits and settings; times, total and by phase; residue, counts and last digits. Whole lines.
std::string system_lines(const std::vector<SystemFact>& facts);
std::string settings_lines(const ComputeSettings& settings, const RunRecord& record);
std::string time_lines(const RunRecord& record);
std::string digit_lines(const FinishResult& result);
// Stands before the residue in digit_lines, with nothing else in its line.
inline constexpr char RESIDUE_LABEL[] = "Decimal digits as an integer, modulo 2^61 - 1:  ";

// Writes the report beside the digit files ("Pi - 20261121-030405.txt") and tells where. A report that can
// not be written is told and does not harm the result.
void write_report(const ComputeSettings& settings, const RunRecord& record);

} // namespace kelvane

// The end of every computation: from the binary result to written and verified digits.
//
//   hexadecimal digits, when asked for, straight from the binary words
//   conversion to radix 10^19, repeated until its own checks pass
//   decimal digits: counted, the last ones kept, written
//   verification: the residue of the digits against that of the binary result
//
// A result is not lost because a file cannot be written: at a terminal the user is asked and may
// free space or name another folder; otherwise the remaining steps are finished first and the
// failure is thrown at the end.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "digits/radix.h"
#include "digits/writer.h"
#include "multiply/table/km_MULv3.h"
#include "shell/exception.h"
#include "shell/heap.h"
#include "shell/types.h"

namespace kelvane {

struct FinishInput {
  // The number: integer + fraction / 2^(64 fraction_words), the fraction's words least significant first.
  u64 integer = 0;
  u64 integer_words = 1; // words at or above the radix point; more than one: "Number is out of range."
  const u64* fraction = nullptr;
  u64 fraction_words = 0;

  u64 decimal_digits = 0;     // after the point
  u64 hexadecimal_digits = 0; // 0: none
  bool write_digits = true;   // false: convert and verify only
  DigitViewer::OutputSettings output;
};

struct FinishResult {
  bool digits_written = false;     // the decimal digits are in their file
  u64 digit_counts[10] = {};       // of the digits 0..9 among the decimal digits after the point
  std::string tail_digits;         // the last decimal digits, from tail_start to the end
  u64 tail_start = 0;              // a multiple of 50
  u64 decimal_hash = 0;            // of all decimal digits, integer part included, modulo 2^61 - 1
  std::vector<std::wstring> files; // full paths, in the order of writing
  double hexadecimal_seconds = 0, convert_seconds = 0, write_seconds = 0, verify_seconds = 0;
};

// What the caller takes part in. All may be left empty.
struct FinishHooks {
  std::function<void(const char* event)> record; // the phases as they begin
  // Asked when a digit file could not be written: true to try again, after changing the folder in
  // `output` if wanted. Left empty: the user is asked when standard input is a terminal.
  std::function<bool(const km_exception& failure, DigitViewer::OutputSettings& output)> retry;
  FileSystem* files = nullptr;     // null: the system's
  CBRv2::Faults* faults = nullptr; // tests only
};

// Bytes of the one block that finish_and_output takes from its heap with allocate_aligned.
u64 finish_memory_bytes(u64 decimal_digits, u64 hexadecimal_digits, u64 fraction_words, u64 threads,
                        bool reduced_memory = false);

// Throws "Base Conversion Failed: Checksum Mismatch" when the digits do not have the residue of the
// binary result, and the writers' errors.
void finish_and_output(const km_MULv3::Context& context, Heap& heap, const FinishInput& input,
                       FinishResult& result, const FinishHooks& hooks = {});

// Where the kept tail of D digits starts: 0 below 101 digits, else the multiple of 50 that leaves 51 to 100.
constexpr u64 tail_start(u64 D) {
  return D < 101 ? 0 : (D - 51) / 50 * 50;
}

} // namespace kelvane

// The settings of one computation and the rules that they obey.
//
// Every setter validates: it returns null and recomputes what follows from the change, or returns an error
// text and leaves the settings as they were.
#pragma once

#include <memory>
#include <string>

#include "shell/types.h"

namespace kelvane {

class kcr_Constant;
struct MemoryQuery;

struct ComputeSettings {
  static constexpr u32 RAM_ONLY = 0;
  static constexpr u32 SWAP_MODE = 1;
  static constexpr u64 ONE_FILE = ~u64{0}; // digits_per_file: all digits in one compressed file
  static constexpr u64 MAX_THREADS = 256;
  static constexpr u64 LEAST_DIGITS_TO_COMPRESS = u64{1} << 20;
  static constexpr u64 LEAST_DIGITS_PER_FILE = 1'000'000;

  std::unique_ptr<kcr_Constant> constant; // null until the registry's select_constant has been called
  u32 constant_index = 3;                 // registry number; 3 is Pi
  s32 algorithm = 0;                      // index into the constant's algorithms
  u32 mode = RAM_ONLY;
  u64 decimal_digits = 50'000'000;     // after the point
  u64 hexadecimal_digits = 41'524'102; // 0: disabled
  u64 digits_per_file = 0;             // 0: text; ONE_FILE; else compressed files of so many digits
  bool write_digits = true;            // false: compute, convert and verify only (benchmarks)
  u64 threads;                         // 1 to MAX_THREADS; the logical processors unless changed
  u64 precision_words = 2'595'258;     // working precision
  std::wstring output_path;            // directory of the digit files; empty: the working directory
  u64 min_io_global = u64{1} << 20;    // bytes; swap mode only
  u64 min_io_unit = u64{1} << 20;      // bytes; swap mode only

  // Bytes, as of the last update().
  u64 memory_needed = 0;
  u64 memory_minimum = 0;
  u64 disk_needed = 0;

  ComputeSettings();
  ~ComputeSettings();
  ComputeSettings(ComputeSettings&&) noexcept;
  ComputeSettings& operator=(ComputeSettings&&) noexcept;

  // Also sets the hexadecimal digits to as many as the decimal digits are worth, whatever was chosen before,
  // and has the constant prepare for the new precision.
  const char* set_decimal_digits(u64 digits);
  // 0 disables. More digits than the decimal count is worth raise the precision.
  const char* set_hexadecimal_digits(u64 digits);
  const char* set_algorithm(u64 index);
  const char* set_threads(u64 count);
  const char* set_mode(u64 value);
  const char* set_digits_per_file(u64 digits);
  const char* set_output_path(const std::wstring& path);
  // Whether the chosen directory still takes files: null or the error text.
  const char* check_output_path() const;

  MemoryQuery memory_query() const; // what the memory need depends on
  // Recomputes the memory and disk figures.
  void update();

  bool compression_offered() const; // enough digits of both kinds
  u64 output_bytes() const;         // size of the digit files together

  // Hexadecimal digits that `digits` decimal digits are worth: floor(digits * log 10 / log 16) + 1.
  static u64 hexadecimal_worth(u64 digits);
  // Words of working precision for a number of hexadecimal digits: 16 a word, and two.
  static u64 words_for(u64 hexadecimal) { return hexadecimal / 16 + 2; }

private:
  void change_digits(u64 decimal, u64 hexadecimal);
};

} // namespace kelvane

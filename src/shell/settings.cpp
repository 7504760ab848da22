// Validation and derived figures. See settings.h.

#include "shell/settings.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <unistd.h>

#include "control/constant.h"
#include "shell/exception.h"
#include "shell/thread.h"

namespace kelvane {

namespace {

constexpr u64 LEAST_DIGITS = 100;
constexpr u64 MOST_DIGITS = 90'000'000'000'050; // of a constant that is not known yet
constexpr u64 LEAST_WORDS = 5;
constexpr u64 LEAST_DIGITS_FOR_SWAP = 1'000'000;
constexpr u64 LEAST_DIGITS_TO_KEEP_SWAP = 10'000'000; // of a digit count changed in swap mode

constexpr u64 IMPOSSIBLE = ~u64{0}; // bytes; fits no address space, so that the computation cannot be started

constexpr const char* DIGITS_OUT_OF_RANGE = "# of digits is out of range";

// Whether a file can be created in the directory; the empty path is the working directory.
bool can_write_to(const std::wstring& path) {
  std::string name = path.empty() ? "." : path_to_narrow(path);
  name += "/Kelvane write test XXXXXX";
  const int file = mkstemp(name.data());
  if (file < 0) return false;
  close(file);
  unlink(name.c_str());
  return true;
}

} // namespace

ComputeSettings::ComputeSettings() : threads(std::clamp(logical_processors(), u64{1}, MAX_THREADS)) {}
ComputeSettings::~ComputeSettings() = default;
ComputeSettings::ComputeSettings(ComputeSettings&&) noexcept = default;
ComputeSettings& ComputeSettings::operator=(ComputeSettings&&) noexcept = default;

u64 ComputeSettings::hexadecimal_worth(u64 digits) {
  return static_cast<u64>(std::floor(static_cast<double>(digits) * 0.8304820237218407)) + 1;
}

// Takes over both digit counts, which are in range.
void ComputeSettings::change_digits(u64 decimal, u64 hexadecimal) {
  decimal_digits = decimal;
  hexadecimal_digits = hexadecimal;
  precision_words = words_for(std::max(hexadecimal_worth(decimal), hexadecimal));
  if (!compression_offered()) digits_per_file = 0;
  if (constant) constant->prepare(precision_words);
  update();
}

const char* ComputeSettings::set_decimal_digits(u64 digits) {
  const u64 most = constant ? constant->get_max_digits() : MOST_DIGITS;
  const u64 hexadecimal = hexadecimal_worth(digits);
  if (digits < LEAST_DIGITS || digits > most || words_for(hexadecimal) < LEAST_WORDS)
    return DIGITS_OUT_OF_RANGE;
  if (digits < LEAST_DIGITS_TO_KEEP_SWAP) mode = RAM_ONLY;
  change_digits(digits, hexadecimal);
  return nullptr;
}

const char* ComputeSettings::set_hexadecimal_digits(u64 digits) {
  const u64 most = hexadecimal_worth(constant ? constant->get_max_digits() : MOST_DIGITS);
  if (digits != 0 && (words_for(digits) < LEAST_WORDS || digits > most)) return DIGITS_OUT_OF_RANGE;
  change_digits(decimal_digits, digits);
  return nullptr;
}

const char* ComputeSettings::set_algorithm(u64 index) {
  if (!constant || index >= constant->algorithm_count) return "Invalid Algorithm";
  algorithm = static_cast<s32>(index);
  if (constant->get_memory_S(algorithm, {}, nullptr) == 0) mode = RAM_ONLY;
  update();
  return nullptr;
}

const char* ComputeSettings::set_threads(u64 count) {
  if (count < 1 || count > MAX_THREADS) return "# of threads is out of range";
  threads = count;
  update();
  return nullptr;
}

const char* ComputeSettings::set_mode(u64 value) {
  if (value > SWAP_MODE) return "Invalid Mode";
  if (value == SWAP_MODE) {
    if (decimal_digits < LEAST_DIGITS_FOR_SWAP) return "Too few digits for swap mode.";
    return "Swap mode is not built yet.";
  }
  mode = static_cast<u32>(value);
  update();
  return nullptr;
}

bool ComputeSettings::compression_offered() const {
  return decimal_digits >= LEAST_DIGITS_TO_COMPRESS &&
         (hexadecimal_digits == 0 || hexadecimal_digits >= LEAST_DIGITS_TO_COMPRESS);
}

const char* ComputeSettings::set_digits_per_file(u64 digits) {
  if (digits != 0) {
    if (!compression_offered()) return "Too few digits to compress.";
    if (digits < LEAST_DIGITS_PER_FILE) return "Too few digits per file.";
  }
  digits_per_file = digits;
  return nullptr;
}

const char* ComputeSettings::check_output_path() const {
  return can_write_to(output_path) ? nullptr : "Unable to write to path.";
}

const char* ComputeSettings::set_output_path(const std::wstring& path) {
  if (!can_write_to(path)) return "Unable to write to path.";
  output_path = path;
  return nullptr;
}

MemoryQuery ComputeSettings::memory_query() const {
  return {precision_words, decimal_digits, hexadecimal_digits, threads};
}

void ComputeSettings::update() {
  memory_needed = memory_minimum = disk_needed = 0;
  if (!constant) return;
  const MemoryQuery query = memory_query();
  if (constant->get_memory_B(algorithm, query, nullptr) == 0) return;
  MemoryFigure figure;
  try {
    constant->get_memory_B(algorithm, query, &figure);
    memory_needed = memory_minimum = figure.total();
  } catch (const km_exception&) {
    memory_needed = memory_minimum = IMPOSSIBLE; // a product longer than any algorithm takes
  }
}

u64 ComputeSettings::output_bytes() const {
  if (digits_per_file == 0) return decimal_digits + hexadecimal_digits;
  // 19 decimal digits make a word of 8 bytes, two hexadecimal digits a byte.
  return hexadecimal_digits / 2 + (decimal_digits * 8 / 19 & ~u64{7});
}

} // namespace kelvane

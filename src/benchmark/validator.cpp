// See validator.h.

#include "benchmark/validator.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "benchmark/reference_results.h"
#include "benchmark/validation_file.h"
#include "control/report.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/file.h"

namespace kelvane {

namespace {

constexpr char DIGITS_LABEL[] = "Decimal Digits:      ";

// The beginning of the file, one byte more than a validation file can have. Throws when it cannot be had.
std::string read_beginning(const std::wstring& path) {
  // A pipe or a device might never end.
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path_to_narrow(path), error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    throw km_exception(std::filesystem::is_directory(status) ? EISDIR : EINVAL, "Not a file.",
                       "Unable to open file.", path);
  const File file(posix_files(), path, OpenMode::READ);
  std::string text(LONGEST_VALIDATION_FILE + 1, '\0');
  text.resize(file.read(0, text.data(), text.size()));
  return text;
}

u64 number(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), ','), text.end());
  u64 value = 0;
  for (const char c : text) value = value * 10 + static_cast<u64>(c - '0');
  return value;
}

// A file that says "match" is also asked for its residue: the file may come from another build of the
// program, whose references this one does not know or contradicts.
void judge_digits(const std::string& text) {
  const ReferenceResult* const reference = reference_result(number(value_of(text, DIGITS_LABEL)));
  const std::string residue = value_of(text, RESIDUE_LABEL);
  if (reference == nullptr) {
    Console::print_colored("No result of this size is stored to compare its digits with.\n", 'Y');
  } else if (std::to_string(reference->hash) == residue) {
    Console::print_colored("Its digits are those of the stored reference.\n", 'G');
  } else {
    Console::print_colored("Its digits are NOT those of the stored reference: the benchmark failed.\n", 'R');
  }
}

void print_verdict(FileVerdict verdict) {
  switch (verdict) {
  case FileVerdict::VALID:
    return Console::print_colored("This validation file is valid: it is as the benchmark wrote it.\n", 'G');
  case FileVerdict::ALTERED:
    return Console::print_colored("This validation file has been altered.\n", 'R');
  case FileVerdict::TOO_OLD:
    return Console::print_colored("This validation file version is too old.\n", 'R');
  case FileVerdict::TOO_NEW:
    return Console::print_colored("This validation file version is too new.\n", 'R');
  case FileVerdict::NO_VALIDATION_FILE:
    return Console::print_colored("This is not a validation file.\n", 'R');
  }
}

} // namespace

void validate_file(const std::wstring& path) {
  std::string text;
  try {
    text = read_beginning(path);
  } catch (const km_exception& e) {
    print_exception(e);
    Console::print_colored("This validation file cannot be read.\n", 'R');
    return;
  }
  const FileVerdict verdict = examine(text);
  if (verdict == FileVerdict::VALID) {
    Console::print(text);
    Console::print("\n");
  }
  print_verdict(verdict);
  if (verdict != FileVerdict::VALID) return;
  judge_digits(text);
  if (text.find(CLOCKS_DISAGREE) != std::string::npos)
    Console::print_colored("The clocks disagreed during this run: its times cannot be trusted.\n", 'R');
}

void benchmark_validator() {
  Console::print_colored("Benchmark Validator", 'P');
  Console::print("\n\n");
  Console::print("Enter the path of a validation file.\n\n");
  Console::print("Path: ");
  wchar_t path[4096];
  Console::read_line(path, std::size(path));
  Console::print("\n");
  validate_file(path);
}

} // namespace kelvane

// See pi_benchmark.h.

#include "benchmark/pi_benchmark.h"

#include "benchmark/validation_file.h"
#include "control/constant.h"
#include "control/driver.h"
#include "control/registry.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane {

namespace {

void require(const char* error) {
  if (error != nullptr) fatal(error);
}

// Said before the run, which may take hours: the screen would be all that is left of it.
void warn_of_unwritable_folder(const ComputeSettings& settings) {
  if (settings.check_output_path() == nullptr) return;
  Console::print_colored("Warning: The validation file cannot be written to the working directory.\n", 'Y');
  Console::print_colored("The result will only be shown on the screen.\n\n", 'Y');
  Console::wait_for_enter();
  Console::print("\n");
}

void print_verdict(BenchmarkVerdict verdict, const FinishResult& result, const ReferenceResult* reference) {
  static constexpr char COLORS[] = {'G', 'R', 'Y'};
  Console::println_labeled("Benchmark Result:   ", verdict_text(verdict), COLORS[static_cast<int>(verdict)]);
  if (verdict != BenchmarkVerdict::MISMATCH) return;
  Console::println_labeled("    Residue:               ", result.decimal_hash, 'R');
  Console::println_labeled("    Reference residue:     ", reference->hash, 'G');
  Console::println_labeled("    Last digits:           ", last_digits(result).c_str(), 'R');
  Console::println_labeled("    Reference last digits: ", reference->last_digits, 'G');
}

void print_clocks(const ClockCheck& clocks) {
  const bool agree = clocks.agree();
  Console::println_labeled("Clocks:             ", clocks_text(clocks).c_str(), agree ? 'G' : 'R');
  if (!agree) Console::print_colored("The times of this run cannot be trusted.\n", 'R');
}

void write_validation_file(const std::wstring& path, const std::string& text, FileSystem& files) {
  try {
    replace_whole_file(path, text, files);
    Console::print("Validation File:    ");
    Console::set_color_green(true);
    Console::print(full_path(path) + L"\n");
    Console::set_color_white();
  } catch (const km_exception& e) {
    Console::print("\n");
    print_exception(e);
    Console::print_colored("The validation file could not be written. This is its text:\n\n", 'R');
    Console::print(text);
    Console::print("\n");
  }
}

} // namespace

ComputeSettings benchmark_settings(u64 digits, u64 threads) {
  ComputeSettings settings;
  select_constant(settings, CONSTANT_PI, 0);
  require(settings.set_threads(threads));
  require(settings.set_decimal_digits(digits));
  require(settings.set_hexadecimal_digits(0));
  settings.write_digits = false;
  return settings;
}

BenchmarkVerdict compare_with_reference(const FinishResult& result, const ReferenceResult* reference) {
  if (reference == nullptr) return BenchmarkVerdict::NO_REFERENCE;
  const bool same = result.decimal_hash == reference->hash && last_digits(result) == reference->last_digits;
  return same ? BenchmarkVerdict::MATCH : BenchmarkVerdict::MISMATCH;
}

const char* verdict_text(BenchmarkVerdict verdict) {
  switch (verdict) {
  case BenchmarkVerdict::MATCH:
    return "Match: the digits are those of the stored reference.";
  case BenchmarkVerdict::MISMATCH:
    return "MISMATCH: the digits are not those of the stored reference.";
  case BenchmarkVerdict::NO_REFERENCE:
    break;
  }
  return "No reference: no result of this size is stored to compare with.";
}

void run_benchmark(u64 digits, u64 threads, const BenchmarkSources& sources) {
  ComputeSettings settings = benchmark_settings(digits, threads);
  warn_of_unwritable_folder(settings);

  RunRecord record;
  ClockCheck clocks(sources.clocks);
  run_computation(settings, {}, record);
  clocks.stop();

  const ReferenceResult* const reference = sources.reference(digits);
  const BenchmarkVerdict verdict = compare_with_reference(record.result, reference);
  const std::vector<SystemFact> system = system_facts(sources.system);
  print_facts(system);
  Console::print("\n");
  print_verdict(verdict, record.result, reference);
  print_clocks(clocks);
  FileSystem& files = sources.files != nullptr ? *sources.files : posix_files();
  write_validation_file(validation_path(settings, record.times.start, files),
                        validation_text({settings, record, clocks, verdict, system}), files);
}

} // namespace kelvane

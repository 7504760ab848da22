// See benchmark_menu.h.

#include "benchmark/benchmark_menu.h"

#include <string>

#include "benchmark/pi_benchmark.h"
#include "benchmark/reference_results.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/settings.h"
#include "shell/system_info.h"
#include "shell/thread.h"

namespace kelvane {

namespace {

constexpr const char* LIST_HEADER = "Option      Decimal Digits          Approx. Memory Needed\n\n";
constexpr u64 NUMBER_COLUMNS = 3, DIGITS_COLUMNS = 23; // of the standard sizes
constexpr u64 SHORT_COLUMNS = 8, FULL_COLUMNS = 15;    // of the powers of two
constexpr const char* BEFORE_MEMORY = "          ";

u64 choose_threads(const BenchmarkMachine& machine) {
  if (machine.processors <= 1) return 1;
  Console::print("Select a Benchmark Type:\n\n");
  Console::print("  0     ");
  Console::print_colored("Single-Threaded\n", 'G');
  Console::print("  1     ");
  Console::print_colored("Multi-Threaded\n\n", 'G');
  const u64 type = Console::scan_u64_range(L"option: ", 0, 1);
  Console::print("\n");
  return type == 0 ? 1 : machine.processors;
}

// The columns of digits and memory, bright when the memory is there, and what the size lacks.
void print_size(const BenchmarkMachine& machine, u64 digits, u64 threads, const std::string& columns) {
  const u64 memory = machine.memory_needed(digits, threads);
  const bool fits = machine.available_memory == 0 || memory <= machine.available_memory;
  Console::print_colored(columns, fits ? 'G' : 'g');
  Console::print(BEFORE_MEMORY);
  Console::print_colored(Console::format_bytes(memory), fits ? 'Y' : 'y');
  if (reference_result(digits) == nullptr) Console::print("   (no reference result)");
  Console::print("\n");
}

u64 choose_power(const BenchmarkMachine& machine, u64 threads) {
  Console::print(LIST_HEADER);
  const u64 last = last_power_size();
  for (u64 k = FIRST_POWER_SIZE; k <= last; k++) {
    const u64 digits = u64{1} << k;
    Console::print_commas(k, NUMBER_COLUMNS);
    std::string short_form = std::to_string(digits >> 20) + "M";
    short_form.insert(0, SHORT_COLUMNS - short_form.size(), ' ');
    print_size(machine, digits, threads, short_form + Console::format_commas(digits, FULL_COLUMNS));
  }
  Console::print("\n");
  const u64 k = Console::scan_u64_range(L"option: ", FIRST_POWER_SIZE, last);
  Console::print("\n");
  return u64{1} << k;
}

u64 choose_digits(const BenchmarkMachine& machine, u64 threads) {
  Console::print(LIST_HEADER);
  u64 count = 0;
  for (; BENCHMARK_SIZES[count] != 0; count++) {
    Console::print_commas(count + 1, NUMBER_COLUMNS);
    const u64 digits = BENCHMARK_SIZES[count];
    print_size(machine, digits, threads, Console::format_commas(digits, DIGITS_COLUMNS));
  }
  Console::print("\n");
  Console::print("  0     ");
  Console::print_colored("I prefer SuperPi sizes... (1M, 2M, 4M...)\n\n", 'T');
  const u64 option = Console::scan_u64_range(L"option: ", 0, count);
  Console::print("\n");
  return option == 0 ? choose_power(machine, threads) : BENCHMARK_SIZES[option - 1];
}

} // namespace

BenchmarkMachine this_benchmark_machine() {
  return {logical_processors(), available_memory(),
          [](u64 digits, u64 threads) { return benchmark_settings(digits, threads).memory_needed; }};
}

BenchmarkChoice choose_benchmark(const BenchmarkMachine& machine) {
  Console::print_colored("Benchmark Pi:", 'P');
  Console::print("\n\n");
  const u64 threads = choose_threads(machine);
  if (threads > ComputeSettings::MAX_THREADS) fatal("# of threads is out of range");
  Console::print("Select a Benchmark Size:\n\n");
  if (machine.available_memory != 0) {
    Console::print("Available Memory:   ");
    Console::print_colored(Console::format_bytes(machine.available_memory), 'Y');
    Console::print("\n\n");
  }
  return {choose_digits(machine, threads), threads};
}

void benchmark_menu() {
  const BenchmarkChoice choice = choose_benchmark(this_benchmark_machine());
  run_benchmark(choice.digits, choice.threads);
}

} // namespace kelvane

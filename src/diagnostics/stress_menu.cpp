// See stress_menu.h.

#include "diagnostics/stress_menu.h"

#include <limits>

#include "diagnostics/stress_run.h"
#include "shell/console.h"
#include "shell/settings.h"
#include "shell/system_info.h"
#include "shell/thread.h"

namespace kelvane {

namespace {

// 31/32 of the memory that can be had without swapping.
u64 default_memory() {
  const u64 available = available_memory();
  return (available != 0 ? available : physical_memory()) / 32 * 31;
}

bool any_enabled(const StressSettings& settings) {
  bool any = false;
  for (const bool enabled : settings.enabled) any = any || enabled;
  return any;
}

void print_option(const char* number, const char* text) {
  Console::print_colored(number, 'T');
  Console::print(text);
}

void print_tests(const StressSettings& settings) {
  Console::print("   #  Algorithm to Test               Primary Components      Enable Test?\n");
  for (u64 i = 0; i < STRESS_TESTS; i++) {
    const char number[] = {' ', ' ', ' ', static_cast<char>('4' + i), ' ', ' ', 0};
    print_option(number, stress_test(i).menu_text);
    Console::print(stress_test(i).components);
    Console::print_colored(settings.enabled[i] ? "Enabled\n" : "Disabled\n", settings.enabled[i] ? 'G' : 'R');
  }
}

void print_menu(const StressSettings& settings) {
  Console::print_colored("\nComponent Stress Tester\n\n", 'Y');
  Console::print("Enter # to change option:\n\n");
  print_option("   1  ", "Memory:  ");
  Console::print_colored(Console::format_bytes(settings.memory), 'G');
  Console::print("\n");
  print_option("   2  ", "Threads:    ");
  Console::print_colored(Console::format_commas(settings.threads), 'G');
  Console::print("\n");
  print_option("   3  ", "Time per Test:  ");
  Console::print_colored(Console::format_commas(settings.seconds), 'G');
  Console::print(" seconds\n\n");
  print_tests(settings);
  print_option("   8  ", "Enable All\n");
  print_option("   9  ", "Disable All\n");
  if (any_enabled(settings)) {
    Console::print_colored("   0  Start Stress-Testing!\n\n", 'Y');
  } else {
    Console::print_colored("      You must select at least one test.\n\n", 'R');
  }
}

void ask_memory(StressSettings& settings) {
  Console::print("Enter a memory limit: (e.g. 768MB, 2.5GB, etc...)");
  u64 bytes = 0;
  while (bytes == 0) {
    Console::print("\nbytes = ");
    bytes = Console::scan_bytes();
  }
  settings.memory = bytes;
}

void warn_of_little_memory(u64 memory) {
  const u64 available = available_memory();
  if (available == 0 || memory <= available) return;
  Console::print_colored("Warning: There is insufficient available physical memory.\n\n", 'R');
  Console::wait_for_enter();
  Console::print("\n\n");
}

} // namespace

void stress_test_menu() {
  StressSettings settings;
  settings.memory = default_memory();
  settings.threads = std::min(logical_processors(), ComputeSettings::MAX_THREADS);
  for (;;) {
    print_menu(settings);
    const u64 option = Console::scan_u64(L"option: ");
    if (option == 0 && any_enabled(settings)) break;
    if (option == 1) ask_memory(settings);
    if (option == 2)
      settings.threads = Console::scan_u64_range(L"Threads = ", 1, ComputeSettings::MAX_THREADS);
    if (option == 3)
      settings.seconds = Console::scan_u64_range(L"Time (seconds) = ", 1, std::numeric_limits<u64>::max());
    if (option >= 4 && option < 4 + STRESS_TESTS)
      settings.enabled[option - 4] = !settings.enabled[option - 4];
    if (option == 8 || option == 9) {
      for (bool& enabled : settings.enabled) enabled = option == 8;
    }
  }
  Console::print("\n");
  warn_of_little_memory(settings.memory);
  StressCounters counters;
  run_stress_test(settings, {}, counters);
}

} // namespace kelvane

// The banner and the main menu. See main_menu.h.

#include "shell/main_menu.h"

#include <cstring>

#include "benchmark/benchmark_menu.h"
#include "benchmark/validator.h"
#include "diagnostics/stress_menu.h"
#include "shell/about.h"
#include "shell/advanced_options.h"
#include "shell/console.h"
#include "shell/not_built.h"
#include "shell/settings_menu.h"
#include "shell/version.h"

namespace kelvane {

namespace {

void print_banner() {
  constexpr size_t VERSION_COLUMNS = 32;
  std::string version = VERSION;
  if (version.size() < VERSION_COLUMNS) version.resize(VERSION_COLUMNS, ' ');
  Console::set_color_green(false);
  Console::print("Kelvane v");
  Console::print(version);
  Console::print(LICENSE_NOTE);
  Console::print("\n");
  Console::set_color_teal(false);
  Console::print(CREDITS);
  Console::print("\n\n");
  Console::set_color_white();
  Console::print("Distribute Freely - Please Report any Bugs");
  Console::print("\n\n");
  Console::print("Version: ");
  Console::set_color_green(true);
  Console::print(BUILD_TAG);
  Console::print("\n");
  Console::set_color_purple(false);
  Console::set_color_white();
  Console::print("\n\n");
}

struct Entry {
  char color;
  const char* text;
  void (*action)();
  bool ends_group;
};

const Entry ENTRIES[] = {
    {'T', "  0         Benchmark Pi  (all in ram)\n", benchmark_menu, false},
    {'T', "  1         Component Stress Tester\n", stress_test_menu, false},
    {'T', "  2         Run I/O Performance Analysis\n",
     [] { print_not_built("The I/O performance analysis"); }, true},
    {'Y',
     "  3         Custom Compute a Constant\n"
     "                -   Compute other constants (e, Golden Ratio, etc...)\n"
     "                -   Choose your own settings (use disk for large computations)\n",
     custom_compute_menu, true},
    {'G', "  4         Benchmark Validator\n", benchmark_validator, false},
    {'G', "  5         Advanced Options\n", advanced_options_menu, true},
    {'t', "  6         About\n", print_about, false},
    {'t', "  7         A Word of Warning...\n", print_warning, true},
};

} // namespace

void main_menu() {
  print_banner();
  for (const Entry& entry : ENTRIES) {
    Console::set_color(entry.color);
    Console::print(entry.text);
    if (entry.ends_group) Console::print("\n");
  }
  Console::set_color_white();
  Console::print("\n");
  Console::print("Enter your choice:\n");
  const u64 choice = Console::scan_u64_range(L"option: ", 0, std::size(ENTRIES) - 1);
  Console::print("\n");
  ENTRIES[choice].action();
}

} // namespace kelvane

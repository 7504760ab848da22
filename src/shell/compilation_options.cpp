// See compilation_options.h. The labels carry their own tabulators and blanks.

#include "shell/compilation_options.h"

#include <initializer_list>

#include "shell/console.h"
#include "shell/heap.h"
#include "shell/series_tuning.h"
#include "shell/version.h"

namespace kelvane {

namespace {

struct Switch {
  const char* label;
  bool enabled;
};

void print_switches(std::initializer_list<Switch> switches) {
  for (const Switch& s : switches) {
    Console::println_labeled(s.label, s.enabled ? "Enabled" : "Disabled", s.enabled ? 'G' : 'R');
  }
}

void print_group(const char* title, std::initializer_list<Switch> switches) {
  Console::print(title);
  print_switches(switches);
  Console::print("\n");
}

void print_build(const BuildIdentity& build, bool with_compiler_version) {
  Console::println_labeled("Build Version:      ", build.version.c_str(), 'G');
  Console::println_labeled("Target Machine:     ", build.target.c_str(), 'G');
  Console::println_labeled("Compiler:           ", build.compiler.c_str(), 'G');
  if (with_compiler_version)
    Console::println_labeled("Version:            ", build.compiler_version.c_str(), 'G');
  Console::println_labeled("Compilation Date:   ", build.date.c_str(), 'G');
  Console::print("\n");
}

void print_series_tuning(const SeriesTuning& series) {
  Console::print(series.name);
  Console::print(":\n");
  for (u32 i = 0; i < series.count; i++) {
    const SeriesTuning::Line& line = series.lines[i];
    if (line.unit == nullptr) {
      Console::set_color_white();
      Console::print(line.label);
      Console::set_color_green(true);
      Console::print_general(line.value);
      Console::set_color_white();
      Console::print("\n");
    } else {
      Console::println_labeled(line.label, line.value, line.unit, 'G');
    }
  }
  Console::print("\n");
}

} // namespace

BuildIdentity this_build() {
#if defined(__clang__)
  const char* const compiler = "Clang";
#else
  const char* const compiler = "GCC";
#endif
  return {VERSION, BUILD_TAG, compiler, __VERSION__, __DATE__ " " __TIME__};
}

void compilation_options_screen() {
  Console::set_color_green(true);
  Console::print("Like any other program, Kelvane is highly configurable at compile-time.\n");
  Console::print("Below is a partial list of compilation options used for this binary.\n\n");
  Console::set_color_white();
  Console::wait_for_enter();
  Console::print("\n");
  print_feature_controls();
  print_top_level(this_build());
  print_objects_library();
  print_modules_library(this_build());
}

void print_feature_controls() {
  Console::print_title("Global Feature Controls\n\n");
  print_group("Assertions:\n", {{"    Array Overrun Detection        \t", true},
                                {"    Parameter Assertions           \t", false},
                                {"    Result Assertions              \t", true},
                                {"    Alignment Assertions           \t", false}});
  print_group("Developer:\n", {{"    Developer Toolbox              \t", false},
                               {"    Crash Debugging                \t", false},
                               {"    Catch Exceptions               \t", true},
                               {"    Allocation Heap Failure Dumps  \t", false},
                               {"    Swap File Safety Buffer        \t", true},
                               {"    Print All The Things!!!        \t", false},
                               {"    Show Memory Breakdowns         \t", false},
                               {"    Allow Checkpoint Hashfails     \t", false},
                               {"    Force Low VST Threshold        \t", false}});
  // The last three name kernels that other builds would have to be made for: this one has them all.
  print_group("Toggleable Features*:\n", {{"    Integrity Check                \t", false},
                                          {"    Pi - Reduced Memory Mode       \t", false},
                                          {"    Euler-Mascheroni Constant      \t", true},
                                          {"    EulerGamma Parameter Override  \t", false},
                                          {"    Legacy x86                     \t", false},
                                          {"    x64 AVX2 + FMA3                \t", true},
                                          {"    x64 AVX-512                    \t", true},
                                          {"    x64 AVX-512 IFMA               \t", true}});
  Console::print("*Includes experimental, incomplete, and deprecated features.\n\n");
}

void print_top_level(const BuildIdentity& build) {
  Console::print_title("Kelvane Top Level\n\n");
  print_build(build, true);
  Console::println_labeled("Compilation Mode:\t", "Single Module", 'G');
  Console::println_labeled("Modules Library:\t", "Statically Linked", 'G');
  Console::print("\n");
  print_switches({{"InvSqrt Caching:           \t", true},
                  {"InvSqrt Purturb:           \t", true},
                  {"Reciprocal Purturb:        \t", true}});
  Console::print("\n");
  u64 count = 0;
  for (const SeriesTuning* series = series_tuning(&count); count > 0; series++, count--)
    print_series_tuning(*series);
}

void print_modules_library(const BuildIdentity& build) {
  Console::print_title("Modules Library\n\n");
  print_build(build, false);
  Console::println_labeled("Pointer Size:  \t", s64{8 * sizeof(void*)}, "bits", 'G');
  Console::println_labeled("Index Size:    \t", s64{8 * sizeof(u64)}, "bits", 'G');
  Console::println_labeled("Data Alignment:\t", s64{Layout::ALIGNMENT}, "bytes", 'G');
  Console::print("\n");
  Console::println_labeled("Console IO:    \t", "POSIX", 'G');
  Console::println_labeled("Time:      \t", "POSIX", 'G');
  Console::println_labeled("File IO:   \t", "Default", 'R');
  Console::println_labeled("Threads:   \t", "POSIX", 'G');
  Console::println_labeled("RaidFile:  \t", "POSIX", 'G');
  Console::print("\n");
}

} // namespace kelvane

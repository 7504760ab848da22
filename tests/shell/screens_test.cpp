// The screens of the advanced options, and the system information.

#include <gtest/gtest.h>

#include "multiply/simd/isa.h"
#include "series/log_formula/listing.h"
#include "shell/advanced_options.h"
#include "shell/compilation_options.h"
#include "shell/cpu_features.h"
#include "shell/system_info.h"
#include "support/golden.h"

namespace kelvane {
namespace {

TEST(Screens, AdvancedOptions) {
  CpuFeatures features; // every other line "Yes"
  features.AMD = features.OS_64bit = features.MMX = features.ABM = features.BMI1 = features.ADX =
      features.SSE2 = features.SSSE3 = features.SSE41 = features.AES = features.XOP = features.FMA4 = true;
  expect_screen("hardware_features.txt", [&] { print_hardware_features(features); });
  expect_screen("log_formulas.txt", log_formula_screen, "1\n2147483648\n10\n");
}

TEST(Screens, CompilationOptions) {
  const BuildIdentity build = {"1.2.3", "machine - system", "GCC", "12.2.0", "Jan  1 2001 00:00:00"};
  expect_screen("compilation_options.txt", [&] {
    simd::force_isa(simd::Isa::sse3);
    print_feature_controls();
    print_top_level(build);
    print_objects_library();
    print_modules_library(build);
  });

  // The screen as a whole, for this build.
  const Captured screen = capture([] { advanced_options_menu(); }, "3\n2\n\n");
  EXPECT_EQ(screen.status, 0);
  EXPECT_EQ(screen.output.find("Advanced Options\n\n  0         Log(n) Formula Generator\n"
                               "  1         Hardware Features\n  2         Compilation Options\n\n"
                               "option: option: \n\n"
                               "Like any other program, Kelvane is highly configurable at compile-time.\n"
                               "Below is a partial list of compilation options used for this binary.\n\n"
                               "Press ENTER to continue . . .\n"),
            0u)
      << screen.output;
  size_t at = 0;
  for (const char* title :
       {"Global Feature Controls", "Kelvane Top Level", "Objects Library", "Modules Library"}) {
    const size_t next = screen.output.find(std::string(64, '=') + "\n" + title + "\n\n", at);
    ASSERT_NE(next, std::string::npos) << title;
    at = next + 1;
  }
  const BuildIdentity mine = this_build();
  for (const std::string& fact :
       {mine.version, mine.target, mine.compiler, mine.compiler_version, mine.date}) {
    EXPECT_FALSE(fact.empty());
    EXPECT_NE(screen.output.find("  " + fact + "\n"), std::string::npos) << fact;
  }
}

// Every fact that cannot be had is said to be unknown; the others are not touched by it.
TEST(Screens, SystemInformation) {
  const SystemSource known = {[] { return std::string("Some Processor @ 3.00GHz"); }, [] { return u64{48}; },
                              [] { return u64{68719476736}; }, [] { return u64{2999999999}; }};
  const std::string lines[] = {"Version:          0.6.5 Build 9444b (fix 2) (x64 SSE3 - Linux ~ Meridian)\n",
                               "Processor(s):     Some Processor @ 3.00GHz\n", "Logical Cores:    48\n",
                               "Physical Memory:  64.0 GiB\n",
                               "CPU Frequency:    2,999,999,999 Hz  (frequency may be inaccurate)\n"};
  const char* const labels[] = {
      "", "Processor(s):     ", "Logical Cores:    ", "Physical Memory:  ", "CPU Frequency:    "};
  for (int failing = 0; failing < 5; failing++) { // 0: none
    SystemSource source = known;
    if (failing == 1) source.processor = [] { return std::string(); };
    if (failing == 2) source.cores = [] { return u64{0}; };
    if (failing == 3) source.memory = [] { return u64{0}; };
    if (failing == 4) source.frequency = [] { return u64{0}; };
    std::string expected;
    for (int i = 0; i < 5; i++) {
      expected += i == failing && i != 0 ? std::string(labels[i]) + "Unable to Detect\n" : lines[i];
    }
    EXPECT_EQ(capture([&] { print_system_info(source); }).output, expected) << failing;
  }
}

} // namespace
} // namespace kelvane

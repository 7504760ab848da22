// See advanced_options.h.

#include "shell/advanced_options.h"

#include "series/log_formula/listing.h"
#include "shell/compilation_options.h"
#include "shell/console.h"
#include "shell/cpu_features.h"

namespace kelvane {

namespace {

struct AdvancedOption {
  const char* name;
  void (*handler)();
  bool highlight;
};

const AdvancedOption OPTIONS[] = {
    {"Log(n) Formula Generator", log_formula_screen, false},
    {"Hardware Features", [] { print_hardware_features(); }, false},
    {"Compilation Options", compilation_options_screen, false},
};

struct FeatureLine {
  const char* label; // "  * " marks what this build uses
  bool CpuFeatures::*feature;
};

void print_features(const CpuFeatures& features, const char* title,
                    std::initializer_list<FeatureLine> lines) {
  Console::print(title);
  for (const FeatureLine& line : lines) {
    Console::print(line.label);
    Console::print_yes_no(features.*line.feature);
  }
  Console::print("\n");
}

} // namespace

void advanced_options_menu() {
  Console::print("Advanced Options\n\n");
  u64 index = 0;
  for (const AdvancedOption& option : OPTIONS) {
    Console::set_color(option.highlight ? 'R' : 'T');
    Console::print_commas(index++, 3);
    Console::print("         ");
    Console::print(option.name);
    Console::print("\n");
  }
  Console::print("\n");
  Console::set_color_white();
  const u64 choice = Console::scan_u64_range(L"option: ", 0, std::size(OPTIONS) - 1);
  Console::print("\n\n");
  OPTIONS[choice].handler();
}

void print_hardware_features() {
  CpuFeatures features;
  detect_cpu_features(features);
  print_hardware_features(features);
}

void print_hardware_features(const CpuFeatures& features) {
  using F = CpuFeatures;
  print_features(features, "CPU Vendor:\n",
                 {{"    AMD         = ", &F::AMD}, {"    Intel       = ", &F::Intel}});
  print_features(features, "OS Features:\n",
                 {{"  * 64-bit      = ", &F::OS_64bit}, {"  * AVX + XSAVE = ", &F::OS_AVX}});
  print_features(features, "Hardware Features:\n",
                 {{"    MMX         = ", &F::MMX},
                  {"  * x64         = ", &F::x64},
                  {"  * ABM         = ", &F::ABM},
                  {"    RDRAND      = ", &F::RDRAND},
                  {"    BMI1        = ", &F::BMI1},
                  {"  * BMI2        = ", &F::BMI2},
                  {"    ADX         = ", &F::ADX}});
  print_features(features, "SIMD: 128-bit\n",
                 {{"  * SSE         = ", &F::SSE},
                  {"  * SSE2        = ", &F::SSE2},
                  {"  * SSE3        = ", &F::SSE3},
                  {"  * SSSE3       = ", &F::SSSE3},
                  {"    SSE4a       = ", &F::SSE4a},
                  {"  * SSE4.1      = ", &F::SSE41},
                  {"    SSE4.2      = ", &F::SSE42},
                  {"    AES-NI      = ", &F::AES}});
  print_features(features, "SIMD: 256-bit\n",
                 {{"  * AVX         = ", &F::AVX},
                  {"  * XOP         = ", &F::XOP},
                  {"  * FMA3        = ", &F::FMA3},
                  {"  * FMA4        = ", &F::FMA4},
                  {"  * AVX2        = ", &F::AVX2}});
}

} // namespace kelvane

// The screen "Compilation Options": how this binary was built and tuned, in four reports.
#pragma once

#include <string>

namespace kelvane {

// What identifies a build.
struct BuildIdentity {
  std::string version; // of the program
  std::string target;  // machine and operating system
  std::string compiler;
  std::string compiler_version;
  std::string date;
};
BuildIdentity this_build();

// The screen: an introduction, a wait for ENTER, the reports.
void compilation_options_screen();

void print_feature_controls(); // "Global Feature Controls"
void print_top_level(
    const BuildIdentity& build); // "Kelvane Top Level": the switches, the tuning of the series
void print_objects_library();    // "Objects Library": kernels, thresholds, algorithm tables
void print_modules_library(const BuildIdentity& build); // "Modules Library": the platform

} // namespace kelvane

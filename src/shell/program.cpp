// Start-up and the outermost handler. See program.h.

#include "shell/program.h"

#include <cwchar>
#include <exception>
#include <unistd.h>

#include "shell/console.h"
#include "shell/cpu_features.h"
#include "shell/exception.h"
#include "shell/main_menu.h"

namespace kelvane {

namespace {

constexpr char CHECKPOINT_FILE[] = "Kelvane Checkpoint File.txt";

void check_processor() {
  Console::print("\nChecking processor/OS features...\n\n");
  Console::print("Required Features:\n");
  Console::print_colored("    x64, SSE, SSE2, SSE3", 'T');
  Console::print("\n\n");

  CpuFeatures features;
  detect_cpu_features(features);
  if (!cpu_meets_build_requirements(features)) {
    Console::set_color_red(true);
    Console::print("\nWarning:\n\n");
    Console::print("This computer does not have all the processor or operating system\n");
    Console::print("features that are necessary to run this binary.\n\n");
    Console::print("Proceeding may cause the program to crash.\n\n");
    Console::set_color_white();
    Console::wait_for_enter();
    Console::print("\n\n");
  }
  Console::print("\n\n");
}

// Whether an unfinished computation was resumed, so that the menu is not shown.
bool resume_from_checkpoint() {
  if (access(CHECKPOINT_FILE, F_OK) != 0) return false;
  Console::print_colored(
      "An unfinished computation has been found. Resuming is not built yet; its file is kept.", 'Y');
  Console::print("\n\n");
  Console::wait_for_enter();
  Console::print("\n\n");
  return false;
}

} // namespace

void run_program() {
  Console::set_locale();
  Console::install_signal_handlers();
  // The first output fixes standard output to wide characters.
  std::fputws(L"\n", stdout);
  try {
    check_processor();
    if (!resume_from_checkpoint()) main_menu();
  } catch (const km_exception& e) {
    print_exception(e);
  } catch (const std::exception& e) {
    Console::set_color_red(true);
    Console::print("Uncaught std exception: ");
    Console::print(e.what());
    Console::print("\n");
    Console::set_color_white();
  }
  Console::set_color_default();
}

} // namespace kelvane

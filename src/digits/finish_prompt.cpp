// See finish_prompt.h.

#include "digits/finish_prompt.h"

#include <unistd.h>

#include "shell/console.h"

namespace kelvane {

bool ask_to_retry(const km_exception& failure, DigitViewer::OutputSettings& output) {
  if (isatty(STDIN_FILENO) == 0) return false;
  print_exception(failure);
  Console::print("The digits could not be written. They are still in memory.\n\n");
  Console::print("  0     Give up\n");
  Console::print("  1     Try again\n");
  Console::print("  2     Write to another folder\n\n");
  const u64 choice = Console::scan_u64_range(L"option: ", 0, 2);
  if (choice == 2) {
    Console::print("Path: ");
    wchar_t path[4096];
    Console::read_line(path, sizeof path / sizeof path[0]);
    output.folder = path;
  }
  Console::print("\n");
  return choice != 0;
}

} // namespace kelvane

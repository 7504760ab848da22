#include "shell/console.h"
#include "shell/program.h"

int main() {
  kelvane::run_program();
  kelvane::Console::print("\n\n");
  return 0;
}

// One computation of Pi by any of the four algorithms, also the two with reduced memory that the menu does
// not offer.
//
//   pi_run DIGITS ALGORITHM [THREADS]
//
// Digit file and report go to the working directory; the last line tells bytes of working memory a digit.
#include <cstdio>
#include <cstdlib>

#include "control/driver.h"
#include "control/registry.h"
#include "shell/settings.h"

int main(int argc, char** argv) {
  using namespace kelvane;
  if (argc < 3) {
    std::fprintf(stderr, "usage: pi_run DIGITS ALGORITHM [THREADS]\n");
    return 1;
  }
  ComputeSettings settings;
  select_constant(settings, CONSTANT_PI, 0);
  settings.algorithm = std::atoi(argv[2]);
  if (argc > 3) settings.set_threads(std::strtoull(argv[3], nullptr, 10));
  settings.set_decimal_digits(std::strtoull(argv[1], nullptr, 10));
  settings.set_hexadecimal_digits(0);
  settings.update();
  RunRecord record;
  run_computation(settings, {}, record);
  std::printf("\n%.3f bytes a digit shown, %.3f reserved, %.3f of the heap used, %.3f planned\n",
              static_cast<double>(settings.memory_needed) / static_cast<double>(settings.decimal_digits),
              static_cast<double>(record.working_bytes + record.table_bytes) /
                  static_cast<double>(settings.decimal_digits),
              static_cast<double>(record.peak_bytes) / static_cast<double>(settings.decimal_digits),
              static_cast<double>(record.planned_bytes) / static_cast<double>(settings.decimal_digits));
  return 0;
}

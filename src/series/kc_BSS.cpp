#include "series/kc_BSS.h"

#include <cmath>

#include "shell/exception.h"

namespace kelvane {

double log_factorial(double x) {
  return x <= 1 ? 0.0 : (x + 0.5) * (std::log(x) - 1) + 1.4189385332046727;
}

u64 kc_BSS::PrecisionAtIndex(u64) const {
  throw km_exception(0, "kc_BSS::PrecisionAtIndex() is required to use ASR.");
}

} // namespace kelvane

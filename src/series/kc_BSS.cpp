#include "series/kc_BSS.h"

#include <cmath>

#include "series/common_factors.h"
#include "shell/exception.h"

namespace kelvane {

double log_factorial(double x) {
  return x <= 1 ? 0.0 : (x + 0.5) * (std::log(x) - 1) + 1.4189385332046727;
}

double kc_BSS::range_nats(u64 a, u64 b, u64 level) const {
  const double nats = log_size(b) - log_size(a);
  return level == 0 ? nats : nats - common_factors()->removed(b - a, level);
}

u64 kc_BSS::divided_level(u64 a, u64 b) const {
  const CommonFactors* const factors = common_factors();
  return factors == nullptr ? 0 : factors->level(b - a);
}

u64 kc_BSS::PrecisionAtIndex(u64) const {
  throw km_exception(0, "kc_BSS::PrecisionAtIndex() is required to use ASR.");
}

} // namespace kelvane

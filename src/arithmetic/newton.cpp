#include "arithmetic/newton.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "arithmetic/kob_cdi_GFP.h"
#include "arithmetic/words/add.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane::newton {

double product_cost(u64 n) {
  const double x = static_cast<double>(n);
  return x * std::log2(x + 2);
}

void Meter::begin(u64 p, const char* label) const {
  if (progress_ == nullptr) return;
  const u64 digits = static_cast<u64>(static_cast<double>(p) * 19.265919722494797);
  progress_->set_label(("Iterating: " + Console::format_commas(digits) + label).c_str());
}

void insufficient_space(u64 allocated, u64 needed, const char* name, const char* what) {
  Console::print_u64(allocated);
  Console::print("  ");
  Console::print_u64(needed);
  Console::print("\n");
  fatal((std::string(name) + ": Insufficient Allocated Space - " + what).c_str());
}

namespace {

void print_figures(s64 found, s64 limit, const std::string& message) {
  Console::print_s64(found);
  Console::print("  ");
  Console::print_s64(limit);
  Console::print("\n" + message);
}

} // namespace

Deviation deviation_from_one(const kob_cdi_GFP& y, kob_cdi_GFP& e, u64 q, u64 top, const char* name) {
  const std::string failure = std::string(name) + ": ";
  const s64 limit = 2 - static_cast<s64>(q);
  const bool over = y.mag() == 1 && y.T[y.L - 1] == 1;
  if (y.is_zero() || y.exp > 0 || !(over || y.mag() == 0)) {
    Console::print(failure + "Convergence Failure\n");
    Console::print("top = ");
    Console::print_u64(top);
    Console::print("\n");
    return Deviation::failed;
  }

  // e below the unit, in units of y's last word: y - 1, or 1 - y = ~y + 1 on y's own words.
  const u64 n = over ? y.L - 1 : y.L;
  u64 leading = 0; // words below the unit that agree with 1
  const u64 agreeing = over ? 0 : ~u64{0};
  while (leading < n && y.T[n - 1 - leading] == agreeing) leading++;
  if (over && leading == n) return Deviation::none;
  if (-static_cast<s64>(leading) > limit) {
    print_figures(-static_cast<s64>(leading), limit,
                  failure + (over ? "Over" : "Under") + "-Estimate -> Convergence Failure\n");
    return Deviation::failed;
  }

  // The significant words lie below the agreeing ones; one agreeing word is kept, as 1 - y may carry into it.
  const u64 end = leading == 0 ? n : n - leading + 1;
  const u64 kept = std::min(end, e.AL);
  const u64 from = end - kept;
  const s64 exponent = y.exp + static_cast<s64>(from);
  if (over) {
    std::copy_n(y.T + from, kept, e.buffer);
  } else {
    words::complement(e.buffer, y.T + from, kept);
    words::add_word(e.buffer, kept, 1);
  }
  e.set_value(kept, exponent, 1);
  return e.is_zero() ? Deviation::none : over ? Deviation::over : Deviation::under;
}

int correct(const km_MULv3::Context& context, kob_cdi_GFP& T, const kob_cdi_GFP& x, kob_cdi_GFP& e,
            Deviation d, u64 p, bool halve, void* product_work, const Meter& meter) {
  if (d == Deviation::failed) return CONVERGENCE_FAILURE;
  if (d == Deviation::none) {
    T.set_truncated(x, p);
    return 0;
  }
  const u64 q = lower_level(p);
  meter.begin(p, d == Deviation::over ? " - O1M - " : " - U1M - ");
  set_product(context, e, x, q, e, q + 1, q + 1, product_work);
  if (halve) {
    words::shift_right(e.T, e.T, e.L, 1);
    e.set_value(e.L, e.exp, 1);
  }
  meter.end(product_cost(2 * q));
  if (d == Deviation::over)
    T.set_sub_magnitude(x, e, p);
  else
    T.set_add_magnitude(x, e, p);
  return 0;
}

void check_space(const kob_cdi_GFP& T, u64 p, u64 PL, const char* name) {
  if (T.AL < p + 3) insufficient_space(T.AL, p + 2, name, "AL"); // p + 2 is what is printed
  if (temporary_words(p) > PL) insufficient_space(PL, temporary_words(p), name, "PL");
}

} // namespace kelvane::newton

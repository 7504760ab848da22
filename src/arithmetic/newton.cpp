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

Deviation deviation_from_one(u64* w, u64 m, u64 unit, kob_cdi_GFP& e, u64 q, u64 top, const char* name) {
  const std::string failure = std::string(name) + ": ";
  const u64 one = 1;
  const bool under = subtract_modulo(w, m, &one, 1, unit);
  const u64 n = magnitude_length(w, m, under);
  if (n == 0) return Deviation::none;
  if (n > unit) { // |1 - y| >= 1
    Console::print(failure + "Convergence Failure\n");
    Console::print("top = ");
    Console::print_u64(top);
    Console::print("\n");
    return Deviation::failed;
  }
  const s64 limit = 2 - static_cast<s64>(q), mag = static_cast<s64>(n) - static_cast<s64>(unit);
  if (mag > limit) {
    print_figures(mag, limit, failure + (under ? "Under" : "Over") + "-Estimate -> Convergence Failure\n");
    return Deviation::failed;
  }
  const u64 kept = std::min(n, q + 3);
  copy_magnitude(e.buffer, w + (n - kept), kept, under);
  e.set_value(kept, mag - static_cast<s64>(kept), 1);
  return under ? Deviation::under : Deviation::over;
}

int correct(StepProducts& products, kob_cdi_GFP& T, const kob_cdi_GFP& x, const kob_cdi_GFP& e, Deviation d,
            u64 p, bool halve, const Meter& meter) {
  if (d == Deviation::failed) return CONVERGENCE_FAILURE;
  if (d == Deviation::none) {
    T.set_truncated(x, p);
    return 0;
  }
  const u64 q = lower_level(p);
  meter.begin(p, d == Deviation::over ? " - O1M - " : " - U1M - ");
  kob_cdi_GFP c; // x e, where it was formed
  c.attach(products.whole({e.T, e.L}), x.L + e.L);
  c.set_value(x.L + e.L, x.exp + e.exp, 1);
  c.trim(q + 1);
  if (halve) words::shift_right(c.T, c.T, c.L, 1);
  meter.end(product_cost(p));
  if (d == Deviation::over)
    T.set_sub_magnitude(x, c, p);
  else
    T.set_add_magnitude(x, c, p);
  return 0;
}

void attach_estimate(kob_cdi_GFP& x, const kob_cdi_GFP& T, u64 p) {
  const u64 q = lower_level(p);
  x.attach(T.buffer + (p - q), q + 3);
}

void check_space(const kob_cdi_GFP& T, u64 p, u64 PL, const char* name) {
  if (T.AL < p + 3) insufficient_space(T.AL, p + 2, name, "AL"); // p + 2 is what is printed
  if (temporary_words(p) > PL) insufficient_space(PL, temporary_words(p), name, "PL");
}

} // namespace kelvane::newton

#include "series/common_factors.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "series/kc_BSS.h"

namespace kelvane {

namespace {

// psi(x), the sum of ln p over all powers of primes up to x, is below PSI x. (Rosser and Schoenfeld,
// Approximate formulas for some functions of prime numbers, 1962, whose bounds the others here are, too.)
constexpr double PSI = 1.03883;

constexpr u64 MAX_FORMS = 16;

} // namespace

// e(q) is at most the events of one side, W (m/q + 1), and the sum of ln p / q over powers of primes q <= x
// is below ln x.
double CommonFactors::log_at_most(double terms) const {
  const double x = static_cast<double>(reach) * terms;
  return static_cast<double>(events_) * (terms * std::log(x) + PSI * x);
}

u64 CommonFactors::level(u64 terms) const {
  return terms < 2 * block ? 0 : std::bit_floor(terms / block);
}

// Blocks have floor(terms / level) terms or one more. The bound is taken at a real length below that, so that
// the sizes of what is left grow with every term and the right half of a range never is the smaller one.
double CommonFactors::removed(u64 terms, u64 level) const {
  if (level == 0) return 0;
  const double shortest = static_cast<double>(terms) / static_cast<double>(level) - 1;
  return shortest < 2 ? 0 : static_cast<double>(level) * std::max(0.0, log_at_least(shortest));
}

HypergeometricFactors::HypergeometricFactors(std::vector<LinearForm> numerators,
                                             std::vector<LinearForm> denominators, bool plain, u64 exponents,
                                             std::vector<u64> excluded, u64 smallest, u64 reach_, u64 block_)
    : CommonFactors(smallest, reach_, block_, exponents), exponents_(static_cast<double>(exponents)),
      per_term_(PSI) {
  for (const u64 p : excluded) per_term_ += std::log(static_cast<double>(p)) / static_cast<double>(p - 1);
  const auto add = [&](const LinearForm& form, bool numerator) {
    Form f{form, numerator, std::vector<u64>(form.factor, form.factor)};
    const s64 u = static_cast<s64>(form.factor);
    for (u64 q = 0; q < form.factor; q++)
      for (u64 t = 0; t < form.factor; t++)
        if ((static_cast<s64>(t * q) - form.offset) % u == 0) {
          f.multiple[q] = t;
          break;
        }
    forms_.push_back(f);
  };
  // Events at the same index: see exponent_from().
  if (plain)
    for (const LinearForm& form : numerators) add(form, true);
  for (const LinearForm& form : denominators) add(form, false);
  if (!plain)
    for (const LinearForm& form : numerators) add(form, true);
}

// With m = b - a terms, windows of (m - 1) indices in two pieces around any k hold at least
// floor((m-1)/q) - 1 whole periods, each with `exponents` events of either side; the sum over q <= m - 1 of
// floor((m-1)/q) ln p is ln (m-1)!, that of ln p is psi. Of excluded primes floor(m/q) ln p, for all their
// powers at most m ln p / (p - 1), does not count.
double HypergeometricFactors::log_at_least(double terms) const {
  return exponents_ * (log_factorial(terms - 1) - per_term_ * terms);
}

// f falls at events of denominators only, and from period to period by the difference of both sides' events:
// its minimum is at the range's beginning or behind a denominator's event of the first period, or of the last
// one where f falls. Of events at one index those come first that must not be missed: in a plain series term
// k contains the numerator's events at k, in others it does not. The range's first index is `start` mod q.
u64 HypergeometricFactors::exponent_from(u64 q, u64 start, u64 terms, const Event* events, u64 count) const {
  struct Step {
    u64 at;
    s64 change, count;
  };
  Step steps[MAX_FORMS];
  u64 n = 0;
  const u64 periods = terms / q, rest = terms % q;
  s64 total = 0, drift = 0;
  for (u64 k = 0; k < count; k++) {
    const u64 at = (events[k].at + q - start) % q;
    const s64 weight = static_cast<s64>(events[k].form->form.exponent);
    const s64 times = static_cast<s64>(periods + (at < rest));
    const bool numerator = events[k].form->numerator;
    drift += numerator ? weight : -weight;
    if (!numerator) total += weight * times;
    if (times == 0) continue;
    u64 i = n++;
    for (; i > 0 && steps[i - 1].at > at; i--) steps[i] = steps[i - 1];
    steps[i] = {at, numerator ? weight : -weight, times};
  }
  s64 least = total, now = total;
  for (u64 i = 0; i < n; i++) {
    now += steps[i].change;
    if (steps[i].change < 0) least = std::min(least, now + std::min<s64>(0, drift) * (steps[i].count - 1));
  }
  return static_cast<u64>(std::max<s64>(0, least));
}

// Numerators' events are opening brackets and denominators' closing ones, e(q) being how many match: what
// enters a range behind never makes it less, so it is least where an event has just been left behind.
u64 HypergeometricFactors::exponent(u64 q, u64 terms) const {
  Event events[MAX_FORMS];
  u64 count = 0;
  for (const Form& f : forms_) {
    const u64 t = f.multiple[f.form.factor == 1 ? 0 : q % f.form.factor];
    if (t == f.form.factor) continue; // p divides the factor
    const s64 period = static_cast<s64>(q);
    const s64 at = (static_cast<s64>(t * q) - f.form.offset) / static_cast<s64>(f.form.factor) % period;
    events[count++] = {static_cast<u64>(at < 0 ? at + period : at), &f};
  }
  u64 least = count == 0 ? 0 : ~u64{0};
  for (u64 k = 0; k < count; k++)
    least = std::min(least, exponent_from(q, (events[k].at + 1) % q, terms, events, count));
  return least;
}

} // namespace kelvane

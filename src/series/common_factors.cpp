#include "series/common_factors.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "arithmetic/exact_division.h"
#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "series/kc_BSS.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

// psi(x), the sum of ln p over all powers of primes up to x, is below PSI x. (Rosser and Schoenfeld,
// Approximate formulas for some functions of prime numbers, 1962, whose bounds the others here are, too.)
constexpr double PSI = 1.03883;

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
    : CommonFactors(smallest, reach_, block_, exponents), plain_(plain),
      exponents_(static_cast<double>(exponents)), per_term_(PSI) {
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
  // Events at the same index: see exponent().
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
// k contains the numerator's events at k, in others it does not.
u64 HypergeometricFactors::exponent(u64 q, u64 a, u64 b) const {
  struct Event {
    s64 at, change, count;
  };
  Event events[16];
  u64 n = 0;
  const u64 m = b - a, periods = m / q, rest = m % q, start = (a + 1) % q;
  s64 total = 0, drift = 0;
  for (const Form& f : forms_) {
    const u64 t = f.multiple[f.form.factor == 1 ? 0 : q % f.form.factor];
    if (t == f.form.factor) continue; // p divides the factor
    s64 at = (static_cast<s64>(t * q) - f.form.offset) / static_cast<s64>(f.form.factor);
    at -= static_cast<s64>(start);
    while (at < 0) at += static_cast<s64>(q);
    while (at >= static_cast<s64>(q)) at -= static_cast<s64>(q);
    const s64 weight = static_cast<s64>(f.form.exponent);
    const s64 count = static_cast<s64>(periods + (static_cast<u64>(at) < rest));
    drift += f.numerator ? weight : -weight;
    if (!f.numerator) total += weight * count;
    if (count == 0) continue;
    u64 i = n++;
    for (; i > 0 && events[i - 1].at > at; i--) events[i] = events[i - 1];
    events[i] = {at, f.numerator ? weight : -weight, count};
  }
  s64 least = total, now = total;
  for (u64 i = 0; i < n; i++) {
    now += events[i].change;
    if (events[i].change < 0) least = std::min(least, now + std::min<s64>(0, drift) * (events[i].count - 1));
  }
  return static_cast<u64>(std::max<s64>(0, least));
}

namespace {

u64 words_of(double nats) {
  return static_cast<u64>(nats * WORDS_PER_NAT) + 2;
}

// Primes up to x: fewer than 1.25506 x / ln x.
u64 primes_at_most(u64 x) {
  const double r = static_cast<double>(std::max<u64>(x, 3));
  return static_cast<u64>(1.25506 * r / std::log(r)) + 2;
}

struct PrimePower {
  u64 prime, exponent;
};

// Work of making G: which odd numbers are composite, the powers, and five buffers of integers, each with room
// for G from factors packed into words, which may leave half of them empty.
struct FactorPlacement {
  u8* composite;
  PrimePower* powers;
  u64 *factors, *x, *y, *square;
  u64 bytes; // of products
  void* work;
  FactorPlacement(Layout& layout, u64 limit, u64 words, const km_MULv3::Context& context)
      : composite(layout.take<u8>(limit / 2 + 1)), powers(layout.take<PrimePower>(primes_at_most(limit))),
        factors(layout.take<u64>(2 * words + 4)), x(layout.take<u64>(2 * words + 4)),
        y(layout.take<u64>(2 * words + 4)), square(layout.take<u64>(2 * words + 4)),
        bytes(km_MULv3::memory_cost(2 * words + 8, context.threads)), work(layout.take_bytes(bytes)) {}
};

struct DividePlacement {
  u64* G;
  void* work;
  u64 bytes;
  DividePlacement(Layout& layout, u64 factor_words, u64 least_bytes)
      : G(layout.take<u64>(2 * factor_words + 4)),
        bytes(layout.measuring() ? least_bytes : layout.left() / Layout::ALIGNMENT * Layout::ALIGNMENT) {
    work = layout.take_bytes(bytes);
  }
};

// G has no more words than what it divides.
u64 factor_words(const CommonFactors& factors, u64 terms, u64 raw_words) {
  return std::min(raw_words, words_of(factors.log_at_most(static_cast<double>(terms))));
}

// The product of n words, in out, with scratch, both of n words; returns its length.
u64 product_of_words(const km_MULv3::Context& context, const u64* factors, u64 n, u64* out, u64* scratch,
                     void* work) {
  if (n <= 16) {
    out[0] = factors[0];
    u64 length = 1;
    for (u64 i = 1; i < n; i++) {
      const u64 carry = words::mul_word(out, out, length, factors[i]);
      if (carry != 0) out[length++] = carry;
    }
    return length;
  }
  const u64 half = n / 2;
  const u64 low = product_of_words(context, factors, half, scratch, out, work);
  const u64 high = product_of_words(context, factors + half, n - half, scratch + half, out + half, work);
  km_MULv3::multiply(context, out, scratch, low, scratch + half, high, work);
  return words::normalized_length(out, low + high);
}

// G of [a, b); returns its words. Its exponents' binary digits, highest first: square, and multiply by the
// primes that have the digit. Most of G is squares, and the products of primes are short.
u64 make_factor(const CommonFactors& factors, const km_MULv3::Context& context, u64 a, u64 b,
                const FactorPlacement& place, u64* G) {
  const u64 limit = factors.reach * (b - a);
  std::fill_n(place.composite, limit / 2 + 1, u8{0});
  u64 count = 0, all_exponents = 0;
  for (u64 p = 3; p <= limit; p += 2) {
    if (place.composite[p / 2] != 0) continue;
    if (p <= limit / p)
      for (u64 n = p * p; n <= limit; n += 2 * p) place.composite[n / 2] = 1;
    if (p < factors.smallest_prime) continue;
    u64 e = 0;
    for (u64 q = p;; q *= p) {
      e += factors.exponent(q, a, b);
      if (q > limit / p) break;
    }
    if (e != 0) place.powers[count++] = {p, e};
    all_exponents |= e;
  }

  G[0] = 1;
  u64 length = 1;
  for (u64 digit = static_cast<u64>(std::bit_width(all_exponents)); digit-- > 0;) {
    u64 n = 0, packed = 1;
    for (u64 i = 0; i < count; i++) {
      if ((place.powers[i].exponent >> digit & 1) == 0) continue;
      const u128 product = static_cast<u128>(packed) * place.powers[i].prime;
      if (product >> 64 != 0) {
        place.factors[n++] = packed;
        packed = place.powers[i].prime;
      } else {
        packed = static_cast<u64>(product);
      }
    }
    place.factors[n++] = packed;
    const u64 by = product_of_words(context, place.factors, n, place.x, place.y, place.work);
    km_MULv3::square(context, place.square, G, length, place.work);
    length = words::normalized_length(place.square, 2 * length);
    km_MULv3::multiply(context, G, place.square, length, place.x, by, place.work);
    length = words::normalized_length(G, length + by);
  }
  return length;
}

} // namespace

u64 divide_block_bytes(const CommonFactors& factors, u64 terms, u64 raw_words, u64 quotient_words,
                       const km_MULv3::Context& context) {
  const u64 words = factor_words(factors, terms, raw_words);
  Layout factor;
  FactorPlacement(factor, factors.reach * terms, words, context);
  Layout layout;
  DividePlacement(layout, words,
                  std::max(factor.used(), ExactDivision::work_bytes(words, quotient_words + 1, context)));
  return layout.used();
}

void divide_block(const CommonFactors& factors, const km_MULv3::Context& context, u64 a, u64 b,
                  kob_cdi_EFPh* integers, kob_cdi_EFPh* out, u64 count, void* work, u64 bytes) {
  u64 raw_words = 0;
  for (u64 i = 0; i < count; i++) raw_words = std::max(raw_words, integers[i].L);
  const u64 words = factor_words(factors, b - a, raw_words);
  Layout layout(work, bytes);
  const DividePlacement place(layout, words, 0);
  Layout factor(place.work, place.bytes);
  const u64 n = make_factor(factors, context, a, b,
                            FactorPlacement(factor, factors.reach * (b - a), words, context), place.G);

  u64 longest = 0;
  for (u64 i = 0; i < count; i++) {
    if (integers[i].L < n || integers[i].L - n + 1 > out[i].AL) fatal("Insufficient Allocated Space");
    longest = std::max(longest, integers[i].L - n + 1);
  }
  const ExactDivision division(context, place.G, n, longest, place.work, place.bytes);
  const u64 inverse = residue::inverse(residue::hash_words(place.G, n));
  for (u64 i = 0; i < count; i++) {
    kob_cdi_EFPh &x = integers[i], &y = out[i];
    division.divide(y.buffer, x.T, x.L);
    y.T = y.buffer;
    y.exp = x.exp;
    y.L = words::normalized_length(y.T, x.L - n + 1);
    y.hash = residue::mul(x.hash, inverse);
  }
}

} // namespace kelvane

// What the integers of blocks of terms have in common, known beforehand.
//
// P and Q of a range [a, b) are products of values of linear forms, and every term of R contains the
// numerators up to its index k and the denominators behind it. For a prime power q call an index an event of
// a form when q divides the form's value there. Then p divides the term k at least as often as there are,
// over all q = p^i,
//
//   f(k) = numerator events in (a, k] + denominator events in (k, b]
//
// (numerator events in (a, k) where a(k) does not contain p(k)), Q and P likewise for k = a and k = b. With
// e(q) = min f over k, the integer
//
//   G(a, b) = product over q of p^e(q)
//
// divides P, Q and R. Dividing all three by it changes neither R/Q nor P/Q, so that merges above go on as
// ever with shorter integers. Where there is no P and R is a sum of fractions over the factors of Q, a term
// lacks the events at its own index alone, and e(q) is the number of all events less the most at one index.
//
// Events have the period q, so e(q) has a closed form: nothing is factored, no factors are kept. Its least
// value over all ranges of so many terms is smaller by half the exponents w of p(k)'s forms on average, for
// every q, and gives one divisor for all blocks of a segment: about a tenth less than each block's own G, but
// nothing is left to do for a block but the quotients. A range of m terms loses about w (ln m - 2.5) nats a
// term. That costs about as much as one level of the recursion and shortens all levels above.
#pragma once

#include <vector>

#include "shell/types.h"

namespace kelvane {

class CommonFactors {
public:
  virtual ~CommonFactors() = default;

  // The least e(q) of all ranges of so many terms, for a power q of a prime from smallest_prime on. 0 for
  // q > reach terms.
  virtual u64 exponent(u64 q, u64 terms) const = 0;
  // Bounds of ln G for every block of `terms` terms (from block on), a lower one for the sizes of what is
  // left, an upper one for the buffers of G.
  virtual double log_at_least(double terms) const = 0;
  double log_at_most(double terms) const;

  const u64 smallest_prime, reach;
  const u64 block; // ranges of `block` to 2 block - 1 terms are divided

  // 2^d when a segment of so many terms is divided in its ranges d >= 1 halvings below the whole; 0: not at
  // all.
  u64 level(u64 terms) const;
  // ln of what is divided out of a range of so many terms at least, its ranges of that level being divided.
  double removed(u64 terms, u64 level) const;

protected:
  // events: of one side's forms at most, counted with their exponents, per period.
  CommonFactors(u64 smallest_prime_, u64 reach_, u64 block_, u64 events)
      : smallest_prime(smallest_prime_), reach(reach_), block(block_), events_(events) {}

private:
  const u64 events_;
};

// (factor k + offset)^exponent. offset > -2^31 and coprime to factor.
struct LinearForm {
  u64 factor;
  s64 offset;
  u64 exponent;
};

// Of series with P, Q, R whose p(k) and q(k) are products of linear forms and constants.
class HypergeometricFactors : public CommonFactors {
public:
  // plain: a(k) contains p(k). `exponents`: least sum of the exponents of the numerators, and of the
  // denominators, for every prime but those in `excluded`.
  HypergeometricFactors(std::vector<LinearForm> numerators, std::vector<LinearForm> denominators, bool plain,
                        u64 exponents, std::vector<u64> excluded, u64 smallest, u64 reach_, u64 block_);
  u64 exponent(u64 q, u64 terms) const override;
  double log_at_least(double terms) const override;

private:
  struct Form {
    LinearForm form;
    bool numerator;
    std::vector<u64> multiple; // t by q mod factor: factor divides t q - offset
  };
  struct Event {
    u64 at; // the form's first one, in [0, q)
    const Form* form;
  };
  u64 exponent_from(u64 q, u64 start, u64 terms, const Event* events, u64 count) const;
  std::vector<Form> forms_;
  double exponents_, per_term_;
};

} // namespace kelvane

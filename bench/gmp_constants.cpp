// The peer of whole-computation benchmarks of the fast constants, with GMP's integers on one thread.
//
//   gmp_constants e|sqrt2|golden DIGITS     prints the seconds of computation and of decimal conversion, and the last
//                                           five digits (truncated, not rounded)
//
// e by plain binary splitting of sum 1/k!; the roots by mpz_sqrt.
#include <gmp.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// P/Q = sum over a <= k < b of 1 / (a (a+1) .. k).
void split(mpz_t P, mpz_t Q, unsigned long a, unsigned long b) {
  if (b - a == 1) {
    mpz_set_ui(P, 1);
    mpz_set_ui(Q, a);
    return;
  }
  const unsigned long m = a + (b - a) / 2;
  mpz_t right_P, right_Q;
  mpz_inits(right_P, right_Q, nullptr);
  split(P, Q, a, m);
  split(right_P, right_Q, m, b);
  mpz_mul(P, P, right_Q);
  mpz_add(P, P, right_P);
  mpz_mul(Q, Q, right_Q);
  mpz_clears(right_P, right_Q, nullptr);
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: gmp_constants e|sqrt2|golden DIGITS\n");
    return 2;
  }
  const unsigned long digits = std::strtoul(argv[2], nullptr, 10), guard = 20;
  const double start = now();
  mpz_t x, power;
  mpz_inits(x, power, nullptr);
  mpz_ui_pow_ui(power, 10, digits + guard);
  if (std::strcmp(argv[1], "e") == 0) {
    unsigned long terms = 2;
    while (std::lgamma(static_cast<double>(terms) + 1) < static_cast<double>(digits + guard) * std::log(10.0))
      terms += terms / 1000 + 1;
    mpz_t Q;
    mpz_init(Q);
    split(x, Q, 1, terms);
    mpz_add(x, x, Q);
    mpz_mul(x, x, power);
    mpz_tdiv_q(x, x, Q);
    mpz_clear(Q);
  } else {
    const bool golden = std::strcmp(argv[1], "golden") == 0;
    mpz_mul(x, power, power);
    mpz_mul_ui(x, x, golden ? 5 : 2);
    mpz_sqrt(x, x);
    if (golden) {
      mpz_add(x, x, power);
      mpz_tdiv_q_2exp(x, x, 1);
    }
  }
  const double computed = now();
  std::vector<char> text(digits + 64);
  mpz_get_str(text.data(), 10, x);
  const double converted = now();
  std::printf("compute %.3f convert %.3f tail %.5s\n", computed - start, converted - computed,
              text.data() + 1 + digits - 5);
  mpz_clears(x, power, nullptr);
  return 0;
}

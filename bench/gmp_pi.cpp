// The peer of whole-computation benchmarks: Pi by the Chudnovsky series with GMP's integers.
//
//   gmp_pi DIGITS [FILE]     prints the seconds of series, division and root, of both, and of the decimal
//                            conversion, and the last five digits; writes "3.ddd..." to FILE when given
//
// Plain binary splitting over exact integers, one thread, no common factors removed:
//   Pi = 426880 sqrt(10005) Q / (13591409 Q - R)
#include <gmp.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Range {
  mpz_t P, Q, R;
  Range() { mpz_inits(P, Q, R, nullptr); }
  ~Range() { mpz_clears(P, Q, R, nullptr); }
  Range(const Range&) = delete;
  Range& operator=(const Range&) = delete;
};

// R carries the sign of its terms: term k is (-1)^k p(1)..p(k) (545140134 k + 13591409) / (q(1)..q(k)).
void split(Range& out, unsigned long a, unsigned long b, bool need_P) {
  if (b - a == 1) {
    mpz_set_ui(out.P, 2 * b - 1);
    mpz_mul_ui(out.P, out.P, 6 * b - 5);
    mpz_mul_ui(out.P, out.P, 6 * b - 1);
    mpz_set_ui(out.Q, b);
    mpz_mul_ui(out.Q, out.Q, b);
    mpz_mul_ui(out.Q, out.Q, b);
    mpz_mul_ui(out.Q, out.Q, 10939058860032000ul);
    mpz_mul_ui(out.R, out.P, 545140134ul * b + 13591409ul);
    if (b % 2 != 0) mpz_neg(out.R, out.R);
    return;
  }
  const unsigned long m = a + (b - a) / 2;
  Range right;
  split(out, a, m, true);
  split(right, m, b, need_P);
  mpz_mul(out.R, out.R, right.Q);
  mpz_addmul(out.R, out.P, right.R);
  mpz_mul(out.Q, out.Q, right.Q);
  if (need_P) mpz_mul(out.P, out.P, right.P);
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: gmp_pi DIGITS [FILE]\n");
    return 2;
  }
  const unsigned long digits = std::strtoul(argv[1], nullptr, 10);
  const unsigned long terms =
      static_cast<unsigned long>(static_cast<double>(digits) / 14.181647462725477) + 2;
  const double t0 = now();
  Range sum;
  split(sum, 0, terms, false);
  const double t1 = now();

  // Pi 10^d = 426880 Q sqrt(10005 10^(2d)) / (13591409 Q + R), with a few guard digits.
  mpz_t root, scale;
  mpz_inits(root, scale, nullptr);
  mpz_ui_pow_ui(scale, 10, 2 * (digits + 20));
  mpz_mul_ui(root, scale, 10005);
  mpz_sqrt(root, root);
  mpz_addmul_ui(sum.R, sum.Q, 13591409);
  mpz_mul(root, root, sum.Q);
  mpz_mul_ui(root, root, 426880);
  mpz_tdiv_q(root, root, sum.R);
  const double t2 = now();

  std::vector<char> text(digits + 64);
  mpz_get_str(text.data(), 10, root);
  const double t3 = now();
  std::printf("series %.3f division+root %.3f compute %.3f convert %.3f tail %.5s\n", t1 - t0, t2 - t1,
              t2 - t0, t3 - t2, text.data() + digits - 4);
  if (argc > 2) {
    std::FILE* file = std::fopen(argv[2], "w");
    if (file == nullptr) return 1;
    std::fprintf(file, "%c.%.*s", text[0], static_cast<int>(digits), text.data() + 1);
    std::fclose(file);
  }
  mpz_clears(root, scale, nullptr);
  return 0;
}

// The peer of compare_constants.py and compare_pi.py: one constant by Arb, its decimal digits, and the
// seconds of both.
//
//   flint_constants NAME DIGITS THREADS        NAME: pi, log2, zeta3, catalan, gamma
//
// Prints "compute S convert S tail DDDDD": the tail are the last five of DIGITS digits after the point,
// truncated.
#include <arb.h>
#include <flint/flint.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const slong digits = std::atol(argv[2]);
  flint_set_num_threads(std::atoi(argv[3]));
  const slong bits = static_cast<slong>(static_cast<double>(digits) * 3.3219280948873626) + 64;
  arb_t x;
  arb_init(x);
  const double start = seconds();
  if (std::strcmp(argv[1], "pi") == 0)
    arb_const_pi(x, bits);
  else if (std::strcmp(argv[1], "log2") == 0)
    arb_const_log2(x, bits);
  else if (std::strcmp(argv[1], "zeta3") == 0)
    arb_const_apery(x, bits);
  else if (std::strcmp(argv[1], "catalan") == 0)
    arb_const_catalan(x, bits);
  else if (std::strcmp(argv[1], "gamma") == 0)
    arb_const_euler(x, bits);
  else
    return 2;
  const double computed = seconds();
  // The digits are the last of floor(x 10^DIGITS).
  fmpz_t power, n;
  fmpz_init(power);
  fmpz_init(n);
  fmpz_ui_pow_ui(power, 10, static_cast<ulong>(digits));
  arb_mul_fmpz(x, x, power, bits + 64);
  arf_get_fmpz(n, arb_midref(x), ARF_RND_FLOOR);
  char* text = fmpz_get_str(nullptr, 10, n);
  const double converted = seconds();
  std::printf("compute %.3f convert %.3f tail %s\n", computed - start, converted - computed,
              text + std::strlen(text) - 5);
}

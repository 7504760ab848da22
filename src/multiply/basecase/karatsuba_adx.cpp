// Karatsuba's additions for products of up to MAX_FIXED_KARATSUBA words: the lengths are known, every chain
// is unrolled, and three terms are added at once, one carry through CF and one through OF.
#include <utility>

#include "multiply/basecase/karatsuba_steps.h"
#include "multiply/basecase/km_MULB.h"
#include "multiply/simd/always_inline.h"

namespace kelvane::km_MULB {

namespace {

// D[0, N) <- A + B or A - B, returns the carry or borrow.
#define KELVANE_CHAIN(OP)                                                                                    \
  asm volatile("xorl %k[t], %k[t]\n\t" /* CF = 0 */                                                          \
               ".set kelvane_at, 0\n\t"                                                                      \
               ".rept %c[n]\n\t"                                                                             \
               "movq kelvane_at(%[a]), %[t]\n\t" OP " kelvane_at(%[b]), %[t]\n\t"                            \
               "movq %[t], kelvane_at(%[d])\n\t"                                                             \
               ".set kelvane_at, kelvane_at+8\n\t"                                                           \
               ".endr\n\t"                                                                                   \
               "sbbq %[t], %[t]"                                                                             \
               : [t] "=&r"(t)                                                                                \
               : [d] "r"(D), [a] "r"(A), [b] "r"(B), [n] "i"(N)                                              \
               : "cc", "memory")
template <u32 N> KELVANE_INLINE u64 add(u64* D, const u64* A, const u64* B) {
  u64 t;
  KELVANE_CHAIN("adcq");
  return 0 - t;
}
template <u32 N> KELVANE_INLINE u64 subtract(u64* D, const u64* A, const u64* B) {
  u64 t;
  KELVANE_CHAIN("sbbq");
  return 0 - t;
}
#undef KELVANE_CHAIN

// D[0, N + MORE) <- S + X + Y + c for c = 0 or 1, X of N words only. Returns the carry, at most 2.
template <u32 N, u32 MORE>
KELVANE_INLINE u64 add_three(u64* D, const u64* S, const u64* X, const u64* Y, u64 c) {
  u64 t, zero;
  asm volatile("movl $0, %k[zero]\n\t"
               "addq $-1, %[c]\n\t" // CF = c, OF = 0
               ".set kelvane_at, 0\n\t"
               ".rept %c[n]\n\t"
               "movq kelvane_at(%[s]), %[t]\n\t"
               "adcxq kelvane_at(%[y]), %[t]\n\t"
               "adoxq kelvane_at(%[x]), %[t]\n\t"
               "movq %[t], kelvane_at(%[d])\n\t"
               ".set kelvane_at, kelvane_at+8\n\t"
               ".endr\n\t"
               ".rept %c[more]\n\t"
               "movq kelvane_at(%[s]), %[t]\n\t"
               "adcxq kelvane_at(%[y]), %[t]\n\t"
               "adoxq %[zero], %[t]\n\t"
               "movq %[t], kelvane_at(%[d])\n\t"
               ".set kelvane_at, kelvane_at+8\n\t"
               ".endr\n\t"
               "movl $0, %k[c]\n\t"
               "adcxq %[zero], %[c]\n\t"
               "adoxq %[zero], %[c]"
               : [c] "+&r"(c), [t] "=&r"(t), [zero] "=&r"(zero)
               : [d] "r"(D), [s] "r"(S), [x] "r"(X), [y] "r"(Y), [n] "i"(N), [more] "i"(MORE)
               : "cc", "memory");
  return c;
}

// The two steps of karatsuba.cpp for N words.
template <u32 N> bool difference(u64* D, const u64* A) {
  constexpr u32 K = N / 2, H = N - K;
  if constexpr (K < H) {
    if (A[K] != 0) {
      D[K] = A[K] - subtract<K>(D, A, A + H);
      return false;
    }
    D[K] = 0;
  }
  const bool negative = less(A, A + H, K);
  const u64* const larger = A + (H & (0 - static_cast<u64>(negative)));
  subtract<K>(D, larger, A + H - (larger - A));
  return negative;
}

template <u32 N> void add_middle(u64* out, u64* middle, bool minus) {
  constexpr u32 K = N / 2, H = N - K, HIGH = 2 * K - H;
  const u64 one = minus ? 1 : 0;
  for (u32 i = 0; i < 2 * H; i++) middle[i] ^= 0 - one;
  u64* const s = out + H;
  const u64 of_s = add<H>(s, s, out + 2 * H);
  const u64 high = add_three<HIGH, H - HIGH>(out + 2 * H, s, out + 3 * H, middle + H, 0);
  const u64 low = add_three<H, 0>(s, s, out, middle, one);
  const u64 from_low = add_small(out + 2 * H, H, low + of_s);
  add_small(out + 3 * H, HIGH, high + of_s + from_low - one);
}

constexpr u32 FIRST = Thresholds<u64>::multiply, COUNT = MAX_FIXED_KARATSUBA + 1 - FIRST;

struct Steps {
  bool (*difference)(u64* D, const u64* A);
  void (*add_middle)(u64* out, u64* middle, bool minus);
};
struct Table {
  Steps steps[COUNT];
};
template <u32... I> constexpr Table make_table(std::integer_sequence<u32, I...>) {
  return {{{difference<FIRST + I>, add_middle<FIRST + I>}...}};
}
constexpr Table TABLE = make_table(std::make_integer_sequence<u32, COUNT>());

} // namespace

bool difference_adx(u64* D, const u64* A, u64 n) {
  return TABLE.steps[n - FIRST].difference(D, A);
}
void add_middle_adx(u64* out, u64* middle, u64 n, bool minus) {
  TABLE.steps[n - FIRST].add_middle(out, middle, minus);
}

} // namespace kelvane::km_MULB

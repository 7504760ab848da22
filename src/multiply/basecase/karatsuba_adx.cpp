// Karatsuba's recursion for up to MAX_FIXED_KARATSUBA words: the lengths are known, every chain is unrolled,
// and three terms are added at once, one carry through CF and one through OF.
#include <utility>

#include "multiply/basecase/basecase.h"
#include "multiply/basecase/karatsuba_steps.h"
#include "multiply/basecase/km_MULB.h"
#include "multiply/basecase/rows_adx.h"
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

// D[0, N + MORE) <- S + X + Y + c for c = 0 or 1, X of N words only; Y's words inverted when NOT. Returns the
// carry, at most 2.
template <u32 N, u32 MORE, bool NOT = false>
KELVANE_INLINE u64 add_three(u64* D, const u64* S, const u64* X, const u64* Y, u64 c) {
  u64 t, zero;
  asm volatile("movl $0, %k[zero]\n\t"
               "addq $-1, %[c]\n\t" // CF = c, OF = 0
               ".set kelvane_at, 0\n\t"
               ".rept %c[n]\n\t"
               "movq kelvane_at(%[y]), %[t]\n\t"
               ".rept %c[inverted]\n\t"
               "notq %[t]\n\t"
               ".endr\n\t"
               "adcxq kelvane_at(%[s]), %[t]\n\t"
               "adoxq kelvane_at(%[x]), %[t]\n\t"
               "movq %[t], kelvane_at(%[d])\n\t"
               ".set kelvane_at, kelvane_at+8\n\t"
               ".endr\n\t"
               ".rept %c[more]\n\t"
               "movq kelvane_at(%[y]), %[t]\n\t"
               ".rept %c[inverted]\n\t"
               "notq %[t]\n\t"
               ".endr\n\t"
               "adcxq kelvane_at(%[s]), %[t]\n\t"
               "adoxq %[zero], %[t]\n\t"
               "movq %[t], kelvane_at(%[d])\n\t"
               ".set kelvane_at, kelvane_at+8\n\t"
               ".endr\n\t"
               "movl $0, %k[c]\n\t"
               "adcxq %[zero], %[c]\n\t"
               "adoxq %[zero], %[c]"
               : [c] "+&r"(c), [t] "=&r"(t), [zero] "=&r"(zero)
               : [d] "r"(D), [s] "r"(S), [x] "r"(X), [y] "r"(Y), [n] "i"(N), [more] "i"(MORE),
                 [inverted] "i"(NOT ? 1 : 0)
               : "cc", "memory");
  return c;
}

// The two steps of karatsuba.cpp for N words.
template <u32 N> KELVANE_INLINE bool difference(u64* D, const u64* A) {
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

// The middle of a level, with z1 or, when NOT, its words inverted in `middle`, and `one` 1 when z1 is
// subtracted. The words of out at h and 2h become S + z1 + L0 and S + z1 + H2 of karatsuba.cpp. Returns both
// carries.
struct MiddleCarries {
  u64 low, high;
};
template <u32 N, bool NOT> KELVANE_INLINE MiddleCarries add_in_memory(u64* out, const u64* middle, u64 one) {
  constexpr u32 K = N / 2, H = N - K, HIGH = 2 * K - H;
  u64* const s = out + H;
  const u64 of_s = add<H>(s, s, out + 2 * H);
  const u64 high = add_three<HIGH, H - HIGH, NOT>(out + 2 * H, s, out + 3 * H, middle + H, 0);
  const u64 low = add_three<H, 0, NOT>(s, s, out, middle, one);
  return {low + of_s, high + of_s};
}

// The same where S has room in the registers, h = 7 and 8: it need not wait for words just stored.
// clang-format off
#define KELVANE_SUM(I)                                                                                       \
  "movq 8*(%c[h]+" #I ")(%[o]), %[r" #I "]\n\tadcq 8*(2*%c[h]+" #I ")(%[o]), %[r" #I "]\n\t"
#define KELVANE_ADD_S(I) ".rept %c[inverted]\n\tnotq %[t]\n\t.endr\n\tadcxq %[r" #I "], %[t]\n\t"
#define KELVANE_HIGH(I)                                                                                      \
  "movq 8*(%c[h]+" #I ")(%[z1]), %[t]\n\t" KELVANE_ADD_S(I)                                                  \
  ".if " #I " < %c[upper]\n\tadoxq 8*(3*%c[h]+" #I ")(%[o]), %[t]\n\t"                                       \
  ".else\n\tadoxq %[zero], %[t]\n\t.endif\n\t"                                                               \
  "movq %[t], 8*(2*%c[h]+" #I ")(%[o])\n\t"
#define KELVANE_LOW(I)                                                                                       \
  "movq 8*" #I "(%[z1]), %[t]\n\t" KELVANE_ADD_S(I)                                                          \
  "adoxq 8*" #I "(%[o]), %[t]\n\t"                                                                           \
  "movq %[t], 8*(%c[h]+" #I ")(%[o])\n\t"
#define KELVANE_ALL7(USE) USE(0) USE(1) USE(2) USE(3) USE(4) USE(5) USE(6)
#define KELVANE_ALL8(USE) KELVANE_ALL7(USE) USE(7)
#define KELVANE_TAKE_CARRIES(C) "adcxq %[zero], %[" #C "]\n\tadoxq %[zero], %[" #C "]\n\t"
#define KELVANE_ADD_IN_REGISTERS(H)                                                                          \
  asm volatile("xorl %k[low], %k[low]\n\t"                                                                   \
               KELVANE_ALL##H(KELVANE_SUM)                                                                   \
               "adcq $0, %[low]\n\t"                                                                         \
               "movq %[low], %[high]\n\t"                                                                    \
               "xorl %k[zero], %k[zero]\n\t"                                                                 \
               KELVANE_ALL##H(KELVANE_HIGH) KELVANE_TAKE_CARRIES(high)                                       \
               "addq $-1, %[one]\n\t" /* CF = one, OF = 0 */                                                 \
               KELVANE_ALL##H(KELVANE_LOW) KELVANE_TAKE_CARRIES(low)                                         \
               : KELVANE_WORDS##H("=&r"), [low] "=&r"(c.low), [high] "=&r"(c.high), [t] "=&r"(t),            \
                 [zero] "=&r"(zero), [one] "+&rm"(one)                                                       \
               : [o] "r"(out), [z1] "r"(middle), [h] "i"(H), [upper] "i"(2 * (N / 2) - H),                   \
                 [inverted] "i"(NOT ? 1 : 0)                                                                 \
               : "cc", "memory")
// clang-format on
template <u32 N, bool NOT>
KELVANE_INLINE MiddleCarries add_in_registers(u64* out, const u64* middle, u64 one) {
  MiddleCarries c;
  u64 R[8], t, zero;
  if constexpr (N - N / 2 == 7)
    KELVANE_ADD_IN_REGISTERS(7);
  else
    KELVANE_ADD_IN_REGISTERS(8);
  return c;
}
#undef KELVANE_SUM
#undef KELVANE_ADD_S
#undef KELVANE_HIGH
#undef KELVANE_LOW
#undef KELVANE_ALL7
#undef KELVANE_ALL8
#undef KELVANE_TAKE_CARRIES
#undef KELVANE_ADD_IN_REGISTERS

template <u32 N, bool NOT> KELVANE_INLINE void add_to_middle(u64* out, const u64* middle, u64 one) {
  constexpr u32 K = N / 2, H = N - K;
  MiddleCarries c;
  if constexpr (H == 7 || H == 8)
    c = add_in_registers<N, NOT>(out, middle, one);
  else
    c = add_in_memory<N, NOT>(out, middle, one);
  const u64 from_low = add_small(out + 2 * H, H, c.low);
  add_small(out + 3 * H, 2 * K - H, c.high + from_low - one);
}
template <u32 N> KELVANE_INLINE void add_middle(u64* out, u64* middle, bool minus) {
  const u64 one = minus ? 1 : 0;
  for (u32 i = 0; i < 2 * (N - N / 2); i++) middle[i] ^= 0 - one;
  add_to_middle<N, false>(out, middle, one);
}

// The whole recursion of a square, of fixed lengths down to the schoolbook's: z1 is always subtracted, and no
// call has to find out what it is for.
template <u32 N> void square_of(u64* out, const u64* A, u64* scratch) {
  if constexpr (N < Thresholds<u64>::square) {
    ADX_SQUARES.of_length[N](out, A, N);
  } else {
    constexpr u32 K = N / 2, H = N - K;
    u64* const rest = scratch + 2 * H;
    difference<N>(out, A);
    square_of<H>(scratch, out, rest);
    square_of<H>(out, A, rest);
    square_of<K>(out + 2 * H, A + H, rest);
    add_to_middle<N, true>(out, scratch, 1);
  }
}

// The same of a product. The halves' products are schoolbook ones when either of them is.
template <u32 N> void product_of(u64* out, const u64* A, const u64* B, u64* scratch) {
  constexpr u32 K = N / 2, H = N - K;
  u64* const rest = scratch + 2 * H;
  const bool minus = difference<N>(out, A) == difference<N>(out + H, B);
  if constexpr (K < Thresholds<u64>::multiply) {
    ADX_PRODUCTS.of_length[H](scratch, out, H, out + H, H);
    ADX_PRODUCTS.of_length[H](out, A, H, B, H);
    ADX_PRODUCTS.of_length[K](out + 2 * H, A + H, K, B + H, K);
  } else {
    product_of<H>(scratch, out, out + H, rest);
    product_of<H>(out, A, B, rest);
    product_of<K>(out + 2 * H, A + H, B + H, rest);
  }
  add_middle<N>(out, scratch, minus);
}

constexpr u32 FIRST_PRODUCT = Thresholds<u64>::multiply, FIRST_SQUARE = Thresholds<u64>::square;
template <u32 FIRST> using Lengths = std::make_integer_sequence<u32, MAX_FIXED_KARATSUBA + 1 - FIRST>;

struct ProductTable {
  void (*of_length[MAX_FIXED_KARATSUBA + 1 - FIRST_PRODUCT])(u64* out, const u64* A, const u64* B,
                                                             u64* scratch);
};
struct SquareTable {
  void (*of_length[MAX_FIXED_KARATSUBA + 1 - FIRST_SQUARE])(u64* out, const u64* A, u64* scratch);
};
template <u32... I> constexpr ProductTable product_table(std::integer_sequence<u32, I...>) {
  return {{product_of<FIRST_PRODUCT + I>...}};
}
template <u32... I> constexpr SquareTable square_table(std::integer_sequence<u32, I...>) {
  return {{square_of<FIRST_SQUARE + I>...}};
}
constexpr ProductTable PRODUCTS = product_table(Lengths<FIRST_PRODUCT>());
constexpr SquareTable SQUARES = square_table(Lengths<FIRST_SQUARE>());

} // namespace

void multiply_karatsuba_adx(u64* out, const u64* A, const u64* B, u64 n, u64* scratch) {
  PRODUCTS.of_length[n - FIRST_PRODUCT](out, A, B, scratch);
}
void square_karatsuba_adx(u64* out, const u64* A, u64 n, u64* scratch) {
  SQUARES.of_length[n - FIRST_SQUARE](out, A, scratch);
}

} // namespace kelvane::km_MULB

// Schoolbook squares with mulx, adcx and adox: A^2 = 2 sum_{i<j} a_i a_j W^(i+j) + sum a_i^2 W^(2i). The
// triangle of the cross products is formed once, row by row in registers; then one pass doubles it and adds
// the squares.
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/rows_adx.h"

namespace kelvane::km_MULB {

namespace {

// The triangle's seven top words stay in registers for the last pass, the others go to memory: all of them
// where there are fewer.
constexpr u32 first_kept(u32 n) {
  return n < 4 ? 2 * n : 2 * n - 8;
}

// Row I of the triangle, N - 1 - I words at word 2 I + 1, and those below it. t[2 I + 1, N + I) are the words
// of the sum so far; the row completes two of them.
template <u32 N, u32 I> KELVANE_INLINE void register_rows(u64* out, const u64* A, u64* t) {
  constexpr u32 LENGTH = N - 1 - I, AT = 2 * I + 1;
  if constexpr (LENGTH > 0) {
    if constexpr (I == 0)
      first_register_row<LENGTH, 1>(t + AT, A, A[0]);
    else
      add_register_row<LENGTH, I + 1>(t + AT, A, A[I]);
    if constexpr (AT < first_kept(N)) store_word(out + AT, t[AT]);
    if constexpr (AT + 1 < first_kept(N)) store_word(out + AT + 1, t[AT + 1]);
    register_rows<N, I + 1>(out, A, t);
  }
}

// Longer rows go through memory, until the rest of the triangle is narrow enough.
template <u32 N, u32 I> KELVANE_INLINE void triangle(u64* out, const u64* A, u64* t) {
  constexpr u32 LENGTH = N - 1 - I, AT = 2 * I + 1;
  if constexpr (LENGTH > MAX_REGISTER_ROW) {
    if constexpr (I == 0)
      out[N] = row<LENGTH>(out + AT, A + 1, A[0], 0);
    else
      out[N + I] = add_row<LENGTH>(out + AT, A + I + 1, A[I], 0);
    triangle<N, I + 1>(out, A, t);
  } else {
    if constexpr (I > 0) {
      for (u32 k = 0; k < LENGTH; k++) t[AT + k] = load_word(out + AT + k);
    }
    register_rows<N, I>(out, A, t);
  }
}

// R[0, 2N) <- 2 T + sum a_i^2 W^(2i): doubling runs through OF, adding the squares through CF. T's words
// below first_kept(N) are in R, the others t[0, 7), of which N = 4 has only the upper six. T has no word 0
// and no word 2 N - 1.
// clang-format off
#define KELVANE_SQUARE(I) "movq 8*(" #I ")(%[a]), %[x]\n\tmulxq %[x], %[low], %[high]\n\t"
#define KELVANE_DOUBLE_ADD(T, HALF) "adoxq %[" #T "], %[" #T "]\n\tadcxq %[" #HALF "], %[" #T "]\n\t"
#define KELVANE_STORED_WORD(I, HALF)                                                                         \
  "movq 8*(" #I ")(%[r]), %[x]\n\t" KELVANE_DOUBLE_ADD(x, HALF) "movq %[x], 8*(" #I ")(%[r])\n\t"
#define KELVANE_KEPT_WORD(I, T, HALF) KELVANE_DOUBLE_ADD(T, HALF) "movq %[" #T "], 8*(" #I ")(%[r])\n\t"
#define KELVANE_LOWEST "xorl %k[low], %k[low]\n\t" KELVANE_SQUARE(0) "movq %[low], (%[r])\n\t"
#define KELVANE_STORED                                                                                       \
  KELVANE_LOWEST KELVANE_STORED_WORD(1, high)                                                                \
  ".set kelvane_at, 1\n\t"                                                                                   \
  ".rept %c[stored]-1\n\t"                                                                                   \
  KELVANE_SQUARE(kelvane_at) KELVANE_STORED_WORD(2*kelvane_at, low) KELVANE_STORED_WORD(2*kelvane_at+1, high) \
  ".set kelvane_at, kelvane_at+1\n\t"                                                                        \
  ".endr\n\t"
#define KELVANE_KEPT(I, T, U)                                                                                \
  KELVANE_SQUARE(I) KELVANE_KEPT_WORD(2*(I), T, low) KELVANE_KEPT_WORD(2*(I)+1, U, high)
// The highest word takes both chains' carries.
#define KELVANE_TOP(I)                                                                                       \
  KELVANE_SQUARE(I) KELVANE_KEPT_WORD(2*(I), t6, low)                                                        \
  "movl $0, %k[low]\n\t"                                                                                     \
  "adcxq %[low], %[high]\n\t"                                                                                \
  "adoxq %[low], %[high]\n\t"                                                                                \
  "movq %[high], 8*(2*(" #I ")+1)(%[r])"
// clang-format on
template <u32 N> KELVANE_INLINE void double_and_add_squares(u64* R, const u64* A, u64* t) {
  u64 low, high, x; // x in rdx, by which mulx multiplies
  if constexpr (N < 4) {
    asm volatile(KELVANE_STORED
                 : [low] "=&r"(low), [high] "=&r"(high), [x] "=&d"(x)
                 : [r] "r"(R), [a] "r"(A), [stored] "i"(N)
                 : "cc", "memory");
  } else if constexpr (N == 4) {
    asm volatile(KELVANE_LOWEST KELVANE_KEPT_WORD(1, t1, high) KELVANE_KEPT(1, t2, t3) KELVANE_KEPT(2, t4, t5)
                     KELVANE_TOP(3)
                 : [low] "=&r"(low), [high] "=&r"(high), [x] "=&d"(x), [t1] "+&r"(t[1]), [t2] "+&r"(t[2]),
                   [t3] "+&r"(t[3]), [t4] "+&r"(t[4]), [t5] "+&r"(t[5]), [t6] "+&r"(t[6])
                 : [r] "r"(R), [a] "r"(A)
                 : "cc", "memory");
  } else {
    asm volatile(KELVANE_STORED KELVANE_KEPT(kelvane_at, t0, t1) KELVANE_KEPT(kelvane_at + 1, t2, t3)
                     KELVANE_KEPT(kelvane_at + 2, t4, t5) KELVANE_TOP(kelvane_at + 3)
                 : [low] "=&r"(low), [high] "=&r"(high), [x] "=&d"(x), [t0] "+&r"(t[0]), [t1] "+&r"(t[1]),
                   [t2] "+&r"(t[2]), [t3] "+&r"(t[3]), [t4] "+&r"(t[4]), [t5] "+&r"(t[5]), [t6] "+&r"(t[6])
                 : [r] "r"(R), [a] "r"(A), [stored] "i"(first_kept(N) / 2)
                 : "cc", "memory");
  }
}
#undef KELVANE_SQUARE
#undef KELVANE_DOUBLE_ADD
#undef KELVANE_STORED_WORD
#undef KELVANE_KEPT_WORD
#undef KELVANE_LOWEST
#undef KELVANE_STORED
#undef KELVANE_KEPT
#undef KELVANE_TOP

template <u32 N> void square(u64* out, const u64* A, u64) {
  u64 t[2 * N + 1]; // of which at most 10 are alive at a time, all in registers
  if constexpr (N < 4) out[2 * N - 1] = 0;
  triangle<N, 0>(out, A, t);
  double_and_add_squares<N>(out, A, t + first_kept(N));
}

void square_as_product(u64* out, const u64* A, u64 n) {
  ADX_PRODUCTS(out, A, n, A, n);
}

} // namespace

constinit const Squares ADX_SQUARES{{square_as_product, square<1>, square<2>, square<3>, square<4>, square<5>,
                                     square<6>, square<7>, square<8>, square<9>, square<10>, square<11>,
                                     square<12>}};

} // namespace kelvane::km_MULB

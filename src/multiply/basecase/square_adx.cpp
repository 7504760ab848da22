// Schoolbook squares with mulx, adcx and adox: A^2 = 2 sum_{i<j} a_i a_j W^(i+j) + sum a_i^2 W^(2i). The
// triangle of the cross products is formed once, row by row in registers; then one pass doubles it and adds
// the squares.
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/rows_adx.h"

namespace kelvane::km_MULB {

namespace {

// Row I of the triangle, N - 1 - I words at word 2 I + 1, and those below it. r[0, N) are the words of the
// sum from word 2 I + 1 on, of which each row completes two.
template <u32 N, u32 I> KELVANE_INLINE void register_rows(u64* out, const u64* A, u64* r) {
  constexpr u32 LENGTH = N - 1 - I;
  if constexpr (LENGTH == 0) {
    out[2 * I + 1] = 0;
  } else {
    if constexpr (I == 0)
      first_register_row<LENGTH>(r, A + 1, A[0]);
    else
      add_register_row<LENGTH>(r, A + I + 1, A[I]);
    store_word(out + 2 * I + 1, r[0]);
    store_word(out + 2 * I + 2, r[1]);
    register_rows<N, I + 1>(out, A, r + 2);
  }
}

// Longer rows go through memory, until the rest of the triangle is narrow enough.
template <u32 N, u32 I> KELVANE_INLINE void triangle(u64* out, const u64* A) {
  constexpr u32 LENGTH = N - 1 - I;
  if constexpr (LENGTH > MAX_REGISTER_ROW) {
    if constexpr (I == 0)
      out[N] = row<LENGTH>(out + 1, A + 1, A[0], 0);
    else
      out[N + I] = add_row<LENGTH>(out + 2 * I + 1, A + I + 1, A[I], 0);
    triangle<N, I + 1>(out, A);
  } else {
    u64 r[2 * N]; // one word at a time is used up, so that no more than LENGTH + 1 are alive
    if constexpr (I > 0) {
      for (u32 k = 0; k < LENGTH; k++) r[k] = load_word(out + 2 * I + 1 + k);
    }
    register_rows<N, I>(out, A, r);
  }
}

// R[0, 2N) <- 2 R + sum a_i^2 W^(2i): doubling runs through OF, adding the squares through CF.
template <u32 N> inline void double_and_add_squares(u64* R, const u64* A) {
  u64 low, high, x;
  asm volatile("xorl %k[low], %k[low]\n\t"
               ".set kelvane_at, 0\n\t"
               ".rept %c[n]\n\t"
               "movq kelvane_at(%[a]), %[x]\n\t"
               "mulxq %[x], %[low], %[high]\n\t"
               "movq 2*kelvane_at(%[r]), %[x]\n\t"
               "adoxq %[x], %[x]\n\t"
               "adcxq %[low], %[x]\n\t"
               "movq %[x], 2*kelvane_at(%[r])\n\t"
               "movq 2*kelvane_at+8(%[r]), %[x]\n\t"
               "adoxq %[x], %[x]\n\t"
               "adcxq %[high], %[x]\n\t"
               "movq %[x], 2*kelvane_at+8(%[r])\n\t"
               ".set kelvane_at, kelvane_at+8\n\t"
               ".endr"
               : [low] "=&r"(low), [high] "=&r"(high), [x] "=&d"(x) // mulx multiplies by rdx
               : [r] "r"(R), [a] "r"(A), [n] "i"(N)
               : "cc", "memory");
}

template <u32 N> void square(u64* out, const u64* A) {
  out[0] = 0;
  triangle<N, 0>(out, A);
  double_and_add_squares<N>(out, A);
}

using Square = void (*)(u64* out, const u64* A);
constexpr u64 MAX_FIXED = 12; // the longest square below the Karatsuba threshold
constexpr Square SQUARES[MAX_FIXED + 1] = {nullptr,    square<1>,  square<2>, square<3>, square<4>,
                                           square<5>,  square<6>,  square<7>, square<8>, square<9>,
                                           square<10>, square<11>, square<12>};

} // namespace

void square_basecase_adx(u64* out, const u64* A, u64 n) {
  if (n <= MAX_FIXED) return SQUARES[n](out, A);
  multiply_basecase_adx(out, A, n, A, n);
}

} // namespace kelvane::km_MULB

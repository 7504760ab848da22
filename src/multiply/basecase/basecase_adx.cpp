// Schoolbook products with mulx, adcx and adox: one row's low and high product words are added in two carry
// chains at once, one through CF and one through OF. The rows have fixed lengths, unrolled.
#include "multiply/basecase/basecase.h"

namespace kelvane::km_MULB {

namespace {

// R[0, N) <- A x + c, returns the word above. One chain: product i's low word meets product i-1's high word.
template <u32 N> inline u64 row(u64* R, const u64* A, u64 x, u64 c) {
  u64 low, other;
  asm volatile("xorl %k[low], %k[low]\n\t" // CF = OF = 0
               ".set kelvane_at, 0\n\t"
               ".rept %c[pairs]\n\t"
               "mulxq kelvane_at(%[a]), %[low], %[other]\n\t"
               "adcxq %[c], %[low]\n\t"
               "movq %[low], kelvane_at(%[r])\n\t"
               "mulxq kelvane_at+8(%[a]), %[low], %[c]\n\t"
               "adcxq %[other], %[low]\n\t"
               "movq %[low], kelvane_at+8(%[r])\n\t"
               ".set kelvane_at, kelvane_at+16\n\t"
               ".endr\n\t"
               ".rept %c[odd]\n\t"
               "mulxq kelvane_at(%[a]), %[low], %[other]\n\t"
               "adcxq %[c], %[low]\n\t"
               "movq %[low], kelvane_at(%[r])\n\t"
               "movq %[other], %[c]\n\t"
               ".endr\n\t"
               "adcq $0, %[c]" // the last high word and the carry: no overflow
               : [c] "+&r"(c), [low] "=&r"(low), [other] "=&r"(other)
               : [r] "r"(R), [a] "r"(A), "d"(x), [pairs] "i"(N / 2), [odd] "i"(N % 2)
               : "cc", "memory");
  return c;
}

// R[0, N) += A x + c, returns the word above: R has a chain of its own.
template <u32 N> inline u64 add_row(u64* R, const u64* A, u64 x, u64 c) {
  u64 low, other;
  asm volatile("xorl %k[low], %k[low]\n\t"
               ".set kelvane_at, 0\n\t"
               ".rept %c[pairs]\n\t"
               "mulxq kelvane_at(%[a]), %[low], %[other]\n\t"
               "adcxq %[c], %[low]\n\t"
               "adoxq kelvane_at(%[r]), %[low]\n\t"
               "movq %[low], kelvane_at(%[r])\n\t"
               "mulxq kelvane_at+8(%[a]), %[low], %[c]\n\t"
               "adcxq %[other], %[low]\n\t"
               "adoxq kelvane_at+8(%[r]), %[low]\n\t"
               "movq %[low], kelvane_at+8(%[r])\n\t"
               ".set kelvane_at, kelvane_at+16\n\t"
               ".endr\n\t"
               ".rept %c[odd]\n\t"
               "mulxq kelvane_at(%[a]), %[low], %[other]\n\t"
               "adcxq %[c], %[low]\n\t"
               "adoxq kelvane_at(%[r]), %[low]\n\t"
               "movq %[low], kelvane_at(%[r])\n\t"
               "movq %[other], %[c]\n\t"
               ".endr\n\t"
               "movl $0, %k[low]\n\t"
               "adcxq %[low], %[c]\n\t"
               "adoxq %[low], %[c]"
               : [c] "+&r"(c), [low] "=&r"(low), [other] "=&r"(other)
               : [r] "r"(R), [a] "r"(A), "d"(x), [pairs] "i"(N / 2), [odd] "i"(N % 2)
               : "cc", "memory");
  return c;
}

// Rows of any length: eight words at a time, then the rest.
constexpr u32 BLOCK = 8;

template <u32 N> u64 row_call(u64* R, const u64* A, u64 x, u64 c) {
  return row<N>(R, A, x, c);
}
template <u32 N> u64 add_row_call(u64* R, const u64* A, u64 x, u64 c) {
  return add_row<N>(R, A, x, c);
}
using Row = u64 (*)(u64* R, const u64* A, u64 x, u64 c);
constexpr Row ROWS[BLOCK] = {nullptr,     row_call<1>, row_call<2>, row_call<3>,
                             row_call<4>, row_call<5>, row_call<6>, row_call<7>};
constexpr Row ADD_ROWS[BLOCK] = {nullptr,         add_row_call<1>, add_row_call<2>, add_row_call<3>,
                                 add_row_call<4>, add_row_call<5>, add_row_call<6>, add_row_call<7>};

u64 any_row(u64* R, const u64* A, u64 n, u64 x) {
  u64 c = 0;
  for (; n >= BLOCK; n -= BLOCK, R += BLOCK, A += BLOCK) c = row<BLOCK>(R, A, x, c);
  return n == 0 ? c : ROWS[n](R, A, x, c);
}
u64 add_any_row(u64* R, const u64* A, u64 n, u64 x) {
  u64 c = 0;
  for (; n >= BLOCK; n -= BLOCK, R += BLOCK, A += BLOCK) c = add_row<BLOCK>(R, A, x, c);
  return n == 0 ? c : ADD_ROWS[n](R, A, x, c);
}

// All rows of one fixed length.
template <u32 N> void product(u64* out, const u64* A, const u64* B, u64 nb) {
  out[N] = row<N>(out, A, B[0], 0);
  for (u64 j = 1; j < nb; j++) out[N + j] = add_row<N>(out + j, A, B[j], 0);
}

// (r4 .. r0) <- (r3 .. r0) + A[0, 4) x, in registers.
inline void add_row4(const u64* A, u64 x, u64& r0, u64& r1, u64& r2, u64& r3, u64& r4) {
  u64 low, high;
  asm("xorl %k[r4], %k[r4]\n\t"
      "mulxq (%[a]), %[low], %[high]\n\t"
      "adcxq %[low], %[r0]\n\t"
      "adoxq %[high], %[r1]\n\t"
      "mulxq 8(%[a]), %[low], %[high]\n\t"
      "adcxq %[low], %[r1]\n\t"
      "adoxq %[high], %[r2]\n\t"
      "mulxq 16(%[a]), %[low], %[high]\n\t"
      "adcxq %[low], %[r2]\n\t"
      "adoxq %[high], %[r3]\n\t"
      "mulxq 24(%[a]), %[low], %[high]\n\t"
      "adcxq %[low], %[r3]\n\t"
      "adoxq %[high], %[r4]\n\t"
      "movl $0, %k[low]\n\t"
      "adcxq %[low], %[r4]"
      : [r0] "+&r"(r0), [r1] "+&r"(r1), [r2] "+&r"(r2), [r3] "+&r"(r3), [r4] "=&r"(r4), [low] "=&r"(low),
        [high] "=&r"(high)
      : [a] "r"(A), "d"(x), "m"(*reinterpret_cast<const u64(*)[4]>(A))
      : "cc");
}

// The shortest products of the recursion: 4 words each, the sum never leaves the registers.
template <> void product<4>(u64* out, const u64* A, const u64* B, u64 nb) {
  u64 r0 = 0, r1 = 0, r2 = 0, r3 = 0, r4;
  for (; nb >= 4; nb -= 4, B += 4, out += 4) {
    u64 r5, r6, r7;
    add_row4(A, B[0], r0, r1, r2, r3, r4);
    add_row4(A, B[1], r1, r2, r3, r4, r5);
    add_row4(A, B[2], r2, r3, r4, r5, r6);
    add_row4(A, B[3], r3, r4, r5, r6, r7);
    out[0] = r0;
    out[1] = r1;
    out[2] = r2;
    out[3] = r3;
    r0 = r4;
    r1 = r5;
    r2 = r6;
    r3 = r7;
  }
  for (; nb > 0; nb--, B++, out++) {
    add_row4(A, *B, r0, r1, r2, r3, r4);
    *out = r0;
    r0 = r1;
    r1 = r2;
    r2 = r3;
    r3 = r4;
  }
  out[0] = r0;
  out[1] = r1;
  out[2] = r2;
  out[3] = r3;
}

// The triangle above the diagonal, row i of N - 1 - i words at word 2 i + 1.
template <u32 N, u32 I> inline void triangle(u64* out, const u64* A) {
  if constexpr (I + 1 < N) {
    out[N + I] = add_row<N - 1 - I>(out + 2 * I + 1, A + I + 1, A[I], 0);
    triangle<N, I + 1>(out, A);
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
  if constexpr (N > 1) {
    out[N] = row<N - 1>(out + 1, A + 1, A[0], 0);
    triangle<N, 1>(out, A);
  }
  out[2 * N - 1] = 0;
  double_and_add_squares<N>(out, A);
}

using Product = void (*)(u64* out, const u64* A, const u64* B, u64 nb);
using Square = void (*)(u64* out, const u64* A);
constexpr u64 MAX_FIXED = 12; // the longest square below the Karatsuba threshold
constexpr Product PRODUCTS[MAX_FIXED + 1] = {nullptr,     product<1>,  product<2>, product<3>, product<4>,
                                             product<5>,  product<6>,  product<7>, product<8>, product<9>,
                                             product<10>, product<11>, product<12>};
constexpr Square SQUARES[MAX_FIXED + 1] = {nullptr,    square<1>,  square<2>, square<3>, square<4>,
                                           square<5>,  square<6>,  square<7>, square<8>, square<9>,
                                           square<10>, square<11>, square<12>};

} // namespace

void multiply_basecase_adx(u64* out, const u64* A, u64 na, const u64* B, u64 nb) {
  if (na <= MAX_FIXED) return PRODUCTS[na](out, A, B, nb);
  out[na] = any_row(out, A, na, B[0]);
  for (u64 j = 1; j < nb; j++) out[na + j] = add_any_row(out + j, A, na, B[j]);
}

void square_basecase_adx(u64* out, const u64* A, u64 n) {
  if (n <= MAX_FIXED) return SQUARES[n](out, A);
  multiply_basecase_adx(out, A, n, A, n);
}

} // namespace kelvane::km_MULB

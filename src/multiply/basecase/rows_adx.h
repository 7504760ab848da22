// Rows of schoolbook products with mulx, adcx and adox: one row's low and high product words are added in two
// carry chains at once, one through CF and one through OF. Included by the *_adx.cpp sources only (internal
// linkage).
#pragma once

#include "multiply/simd/always_inline.h"
#include "shell/types.h"

namespace kelvane::km_MULB {
namespace {

// One word from or to memory. The compiler would join neighbours to vectors, whose loads wait until words
// just stored have reached the cache, and whose stores need the words brought together first.
KELVANE_INLINE u64 load_word(const u64* p) {
  u64 x;
  asm("movq %1, %0" : "=r"(x) : "m"(*p));
  return x;
}
KELVANE_INLINE void store_word(u64* p, u64 x) {
  asm("movq %1, %0" : "=m"(*p) : "r"(x));
}

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

// The same in registers, for rows so short that the sum has room there: it need not wait for the words that
// the row before has stored. R[0, M] are variables of the caller, which the compiler keeps in registers. The
// row begins at word AT of A, an immediate number: rows of a square begin everywhere.
//   first_register_row<M, AT>   R[0, M] <- A[AT, AT + M) x
//   add_register_row<M, AT>     R[0, M] <- R[0, M) + A[AT, AT + M) x
constexpr u32 MAX_REGISTER_ROW = 9;

template <u32 M> struct RegisterRow {
  template <u32 AT> static void first(u64* R, const u64* A, u64 x);
  template <u32 AT> static void add(u64* R, const u64* A, u64 x);
};
template <u32 M, u32 AT> KELVANE_INLINE void first_register_row(u64* R, const u64* A, u64 x) {
  RegisterRow<M>::template first<AT>(R, A, x);
}
template <u32 M, u32 AT> KELVANE_INLINE void add_register_row(u64* R, const u64* A, u64 x) {
  RegisterRow<M>::template add<AT>(R, A, x);
}

#define KELVANE_FIRST(I, R, NEXT)                                                                            \
  "mulxq 8*(%c[at]+" #I ")(%[a]), %[low], %[" #NEXT "]\n\tadcq %[low], %[" #R "]\n\t"
#define KELVANE_FIRST1 "xorl %k[low], %k[low]\n\tmulxq 8*%c[at](%[a]), %[r0], %[r1]\n\t"
#define KELVANE_FIRST2 KELVANE_FIRST1 KELVANE_FIRST(1, r1, r2)
#define KELVANE_FIRST3 KELVANE_FIRST2 KELVANE_FIRST(2, r2, r3)
#define KELVANE_FIRST4 KELVANE_FIRST3 KELVANE_FIRST(3, r3, r4)
#define KELVANE_FIRST5 KELVANE_FIRST4 KELVANE_FIRST(4, r4, r5)
#define KELVANE_FIRST6 KELVANE_FIRST5 KELVANE_FIRST(5, r5, r6)
#define KELVANE_FIRST7 KELVANE_FIRST6 KELVANE_FIRST(6, r6, r7)
#define KELVANE_FIRST8 KELVANE_FIRST7 KELVANE_FIRST(7, r7, r8)
#define KELVANE_FIRST9 KELVANE_FIRST8 KELVANE_FIRST(8, r8, r9)

#define KELVANE_ADD(I, R, NEXT)                                                                              \
  "mulxq 8*(%c[at]+" #I ")(%[a]), %[low], %[high]\n\tadcxq %[low], %[" #R "]\n\tadoxq %[high], %[" #NEXT     \
  "]\n\t"
#define KELVANE_ADD1 "mulxq 8*%c[at](%[a]), %[low], %[r1]\n\taddq %[low], %[r0]\n\t"
#define KELVANE_ADDS2 KELVANE_ADD(0, r0, r1) KELVANE_ADD(1, r1, r2)
#define KELVANE_ADDS3 KELVANE_ADDS2 KELVANE_ADD(2, r2, r3)
#define KELVANE_ADDS4 KELVANE_ADDS3 KELVANE_ADD(3, r3, r4)
#define KELVANE_ADDS5 KELVANE_ADDS4 KELVANE_ADD(4, r4, r5)
#define KELVANE_ADDS6 KELVANE_ADDS5 KELVANE_ADD(5, r5, r6)
#define KELVANE_ADDS7 KELVANE_ADDS6 KELVANE_ADD(6, r6, r7)
#define KELVANE_ADDS8 KELVANE_ADDS7 KELVANE_ADD(7, r7, r8)
#define KELVANE_ADDS9 KELVANE_ADDS8 KELVANE_ADD(8, r8, r9)
#define KELVANE_ADD2 "xorl %k[r2], %k[r2]\n\t" KELVANE_ADDS2
#define KELVANE_ADD3 "xorl %k[r3], %k[r3]\n\t" KELVANE_ADDS3
#define KELVANE_ADD4 "xorl %k[r4], %k[r4]\n\t" KELVANE_ADDS4
#define KELVANE_ADD5 "xorl %k[r5], %k[r5]\n\t" KELVANE_ADDS5
#define KELVANE_ADD6 "xorl %k[r6], %k[r6]\n\t" KELVANE_ADDS6
#define KELVANE_ADD7 "xorl %k[r7], %k[r7]\n\t" KELVANE_ADDS7
#define KELVANE_ADD8 "xorl %k[r8], %k[r8]\n\t" KELVANE_ADDS8
#define KELVANE_ADD9 "xorl %k[r9], %k[r9]\n\t" KELVANE_ADDS9

#define KELVANE_WORDS1(USE) [r0] USE(R[0])
#define KELVANE_WORDS2(USE) KELVANE_WORDS1(USE), [r1] USE(R[1])
#define KELVANE_WORDS3(USE) KELVANE_WORDS2(USE), [r2] USE(R[2])
#define KELVANE_WORDS4(USE) KELVANE_WORDS3(USE), [r3] USE(R[3])
#define KELVANE_WORDS5(USE) KELVANE_WORDS4(USE), [r4] USE(R[4])
#define KELVANE_WORDS6(USE) KELVANE_WORDS5(USE), [r5] USE(R[5])
#define KELVANE_WORDS7(USE) KELVANE_WORDS6(USE), [r6] USE(R[6])
#define KELVANE_WORDS8(USE) KELVANE_WORDS7(USE), [r7] USE(R[7])
#define KELVANE_WORDS9(USE) KELVANE_WORDS8(USE), [r8] USE(R[8])

// One word more than the row: it takes the last high word and, where both chains have come to their ends, the
// carry of CF's: no overflow.
#define KELVANE_REGISTER_ROWS(M)                                                                             \
  template <> struct RegisterRow<M> {                                                                        \
    template <u32 AT> KELVANE_INLINE static void first(u64* R, const u64* A, u64 x) {                        \
      u64 low;                                                                                               \
      asm(KELVANE_FIRST##M "adcq $0, %[r" #M "]"                                                             \
          : KELVANE_WORDS##M("=&r"), [r##M] "=&r"(R[M]), [low] "=&r"(low)                                    \
          : [a] "r"(A), "d"(x), [at] "i"(AT), "m"(*reinterpret_cast<const u64(*)[M]>(A + AT))                \
          : "cc");                                                                                           \
    }                                                                                                        \
    template <u32 AT> KELVANE_INLINE static void add(u64* R, const u64* A, u64 x) {                          \
      u64 low, high;                                                                                         \
      asm(KELVANE_ADD##M "adcq $0, %[r" #M "]"                                                               \
          : KELVANE_WORDS##M("+&r"), [r##M] "=&r"(R[M]), [low] "=&r"(low), [high] "=&r"(high)                \
          : [a] "r"(A), "d"(x), [at] "i"(AT), "m"(*reinterpret_cast<const u64(*)[M]>(A + AT))                \
          : "cc");                                                                                           \
    }                                                                                                        \
  };
KELVANE_REGISTER_ROWS(1)
KELVANE_REGISTER_ROWS(2)
KELVANE_REGISTER_ROWS(3)
KELVANE_REGISTER_ROWS(4)
KELVANE_REGISTER_ROWS(5)
KELVANE_REGISTER_ROWS(6)
KELVANE_REGISTER_ROWS(7)
KELVANE_REGISTER_ROWS(8)
KELVANE_REGISTER_ROWS(9)
#undef KELVANE_REGISTER_ROWS

} // namespace
} // namespace kelvane::km_MULB

// Both families run on whole words. Operands are read and written by memcpy, so that the 32-bit views of
// word arrays that callers hold break no aliasing rule and need only 4-byte alignment; on a little-endian
// machine two halves, low half first, are exactly one word.
#include "arithmetic/words/add.h"

#include <cstring>
#include <type_traits>

namespace kelvane::words {

namespace {

inline u64 load(const u8* p) {
  u64 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void store(u8* p, u64 v) {
  std::memcpy(p, &v, sizeof v);
}
inline u32 load_half(const u8* p) {
  u32 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void store_half(u8* p, u32 v) {
  std::memcpy(p, &v, sizeof v);
}

inline u8* bytes(void* p) {
  return static_cast<u8*>(p);
}
inline const u8* bytes(const void* p) {
  return static_cast<const u8*>(p);
}

// One word of a chain: c <- carry of the step, returns the word.
struct Plus {
  static u64 step(u64 a, u64 b, u64& c) {
    const u64 s = a + b, d = s + c;
    c = (s < a) | (d < s);
    return d;
  }
};
struct Minus {
  static u64 step(u64 a, u64 b, u64& c) {
    const u64 s = a - b, d = s - c;
    c = (a < b) | (s < c);
    return d;
  }
};

// D = A op B op c over 4 * blocks words. Written in assembly since compilers do not keep the carry in the
// flag around a loop: neither lea nor dec touches it. Each word is read before it is written, so D may equal
// A or B.
#define KELVANE_CARRY_LOOP(OP)                                                                               \
  asm volatile("addq $-1, %[c]\n" /* the flag is c */                                                        \
               "1:\n\t"                                                                                      \
               "movq (%[a]), %[t]\n\t" OP " (%[b]), %[t]\n\tmovq %[t], (%[d])\n\t"                           \
               "movq 8(%[a]), %[t]\n\t" OP " 8(%[b]), %[t]\n\tmovq %[t], 8(%[d])\n\t"                        \
               "movq 16(%[a]), %[t]\n\t" OP " 16(%[b]), %[t]\n\tmovq %[t], 16(%[d])\n\t"                     \
               "movq 24(%[a]), %[t]\n\t" OP " 24(%[b]), %[t]\n\tmovq %[t], 24(%[d])\n\t"                     \
               "leaq 32(%[a]), %[a]\n\tleaq 32(%[b]), %[b]\n\tleaq 32(%[d]), %[d]\n\t"                       \
               "decq %[n]\n\t"                                                                               \
               "jnz 1b\n\t"                                                                                  \
               "sbbq %[c], %[c]\n\t" /* minus the flag */                                                    \
               "negq %[c]"                                                                                   \
               : [d] "+r"(D), [a] "+r"(A), [b] "+r"(B), [n] "+r"(blocks), [c] "+r"(c), [t] "=&r"(t)          \
               :                                                                                             \
               : "cc", "memory")

template <class Op> inline u64 carry_loop(u8*& D, const u8*& A, const u8*& B, u64 blocks, u64 c) {
  u64 t;
  if constexpr (std::is_same_v<Op, Plus>) {
    KELVANE_CARRY_LOOP("adcq");
  } else {
    KELVANE_CARRY_LOOP("sbbq");
  }
  return c;
}
#undef KELVANE_CARRY_LOOP

// D = A op B op c over n whole words.
template <class Op> inline u64 combine(u8* D, const u8* A, const u8* B, u64 n, u64 c) {
  if (n >= 4) c = carry_loop<Op>(D, A, B, n / 4, c);
  for (n %= 4; n > 0; n--, A += 8, B += 8, D += 8) store(D, Op::step(load(A), load(B), c));
  return c;
}

// The same over n halves: whole words, then the odd half.
template <class Op> u32 combine_halves(u32* D, const u32* A, const u32* B, u64 n, u32 carry) {
  constexpr bool minus = std::is_same_v<Op, Minus>;
  const u64 c = combine<Op>(bytes(D), bytes(A), bytes(B), n / 2, carry);
  if (n % 2 == 0) return static_cast<u32>(c);
  const u64 at = (n - 1) * 4;
  const u64 a = load_half(bytes(A) + at), b = load_half(bytes(B) + at);
  const u64 d = minus ? a - b - c : a + b + c;
  store_half(bytes(D) + at, static_cast<u32>(d));
  return static_cast<u32>(d >> 32) & 1;
}

// A += x or A -= x over at most n elements, until the carry dies.
template <class W> W carry_on(W* A, u64 n, W x) {
  for (u64 i = 0; i < n && x != 0; i++) {
    W a;
    std::memcpy(&a, A + i, sizeof a);
    a = static_cast<W>(a + x);
    x = a < x;
    std::memcpy(A + i, &a, sizeof a);
  }
  return x;
}
template <class W> W borrow_on(W* A, u64 n, W x) {
  for (u64 i = 0; i < n && x != 0; i++) {
    W a;
    std::memcpy(&a, A + i, sizeof a);
    const W d = static_cast<W>(a - x);
    x = a < x;
    std::memcpy(A + i, &d, sizeof d);
  }
  return x;
}

constexpr u64 NO_LIMIT = ~u64{0}; // the caller's guard stops the carry

} // namespace

u32 add_word(u32* A, u64 n, u32 x) {
  return carry_on(A, n, x);
}
u32 sub_word(u32* A, u64 n, u32 x) {
  return borrow_on(A, n, x);
}
u32 add_in_place(u32* A, const u32* B, u64 n) {
  return combine_halves<Plus>(A, A, B, n, 0);
}
u32 sub_in_place(u32* A, const u32* B, u64 n) {
  return combine_halves<Minus>(A, A, B, n, 0);
}
u32 add(u32* D, const u32* A, const u32* B, u64 n) {
  return combine_halves<Plus>(D, A, B, n, 0);
}
u32 sub(u32* D, const u32* A, const u32* B, u64 n) {
  return combine_halves<Minus>(D, A, B, n, 0);
}
u32 add_carry(u32* D, const u32* A, const u32* B, u64 n, u32 c) {
  return combine_halves<Plus>(D, A, B, n, c);
}
u32 sub_borrow(u32* D, const u32* A, const u32* B, u64 n, u32 c) {
  return combine_halves<Minus>(D, A, B, n, c);
}
void add_propagate(u32* A, const u32* B, u64 n) {
  carry_on(A + n, NO_LIMIT, add_in_place(A, B, n));
}
void sub_propagate(u32* A, const u32* B, u64 n) {
  borrow_on(A + n, NO_LIMIT, sub_in_place(A, B, n));
}

u64 add_word(u64* A, u64 n, u64 x) {
  return carry_on(A, n, x);
}
u64 sub_word(u64* A, u64 n, u64 x) {
  return borrow_on(A, n, x);
}
u64 add_in_place(u64* A, const u64* B, u64 n) {
  return add_carry(A, A, B, n, 0);
}
u64 sub_in_place(u64* A, const u64* B, u64 n) {
  return sub_borrow(A, A, B, n, 0);
}
u64 add(u64* D, const u64* A, const u64* B, u64 n) {
  return add_carry(D, A, B, n, 0);
}
u64 sub(u64* D, const u64* A, const u64* B, u64 n) {
  return sub_borrow(D, A, B, n, 0);
}
u64 add_carry(u64* D, const u64* A, const u64* B, u64 n, u64 c) {
  return combine<Plus>(bytes(D), bytes(A), bytes(B), n, c);
}
u64 sub_borrow(u64* D, const u64* A, const u64* B, u64 n, u64 c) {
  return combine<Minus>(bytes(D), bytes(A), bytes(B), n, c);
}
void add_propagate(u64* A, const u64* B, u64 n) {
  carry_on(A + n, NO_LIMIT, add_in_place(A, B, n));
}
void sub_propagate(u64* A, const u64* B, u64 n) {
  borrow_on(A + n, NO_LIMIT, sub_in_place(A, B, n));
}

// Two words a turn: with p = A[i] x and q = A[i+1] x, q + high(p) does not wait for the carry, which then
// runs through three additions instead of four. (W-1)^2 + 2 (W-1) = W^2 - 1: no sum overflows two words.
u64 mul_word(u64* D, const u64* A, u64 n, u64 x, u64 c) {
  u64 i = 0;
  for (; i + 2 <= n; i += 2) {
    const u128 p = static_cast<u128>(A[i]) * x;
    const u128 q = static_cast<u128>(A[i + 1]) * x + static_cast<u64>(p >> 64);
    const u128 low = static_cast<u128>(static_cast<u64>(p)) + c;
    const u128 high = q + static_cast<u64>(low >> 64);
    D[i] = static_cast<u64>(low);
    D[i + 1] = static_cast<u64>(high);
    c = static_cast<u64>(high >> 64);
  }
  if (i < n) {
    const u128 t = static_cast<u128>(A[i]) * x + c;
    D[i] = static_cast<u64>(t);
    c = static_cast<u64>(t >> 64);
  }
  return c;
}

u64 mul_word_add(u64* D, const u64* A, u64 n, u64 x) {
  u64 c = 0, i = 0;
  for (; i + 2 <= n; i += 2) {
    const u128 p = static_cast<u128>(A[i]) * x + D[i];
    const u128 q = static_cast<u128>(A[i + 1]) * x + D[i + 1];
    const u128 low = static_cast<u128>(static_cast<u64>(p)) + c;
    const u128 high = q + static_cast<u64>(p >> 64) + static_cast<u64>(low >> 64);
    D[i] = static_cast<u64>(low);
    D[i + 1] = static_cast<u64>(high);
    c = static_cast<u64>(high >> 64);
  }
  if (i < n) {
    const u128 t = static_cast<u128>(A[i]) * x + D[i] + c;
    D[i] = static_cast<u64>(t);
    c = static_cast<u64>(t >> 64);
  }
  return c;
}

// Left shifts run from the top and right shifts from the bottom, so that D may equal A.
u64 shift_left(u64* D, const u64* A, u64 n, unsigned s) {
  if (n == 0) return 0;
  const u64 out = A[n - 1] >> (64 - s);
  for (u64 i = n - 1; i > 0; i--) D[i] = A[i] << s | A[i - 1] >> (64 - s);
  D[0] = A[0] << s;
  return out;
}

u64 shift_right(u64* D, const u64* A, u64 n, unsigned s) {
  if (n == 0) return 0;
  const u64 out = A[0] << (64 - s);
  for (u64 i = 0; i + 1 < n; i++) D[i] = A[i] >> s | A[i + 1] << (64 - s);
  D[n - 1] = A[n - 1] >> s;
  return out;
}

void complement(u64* D, const u64* A, u64 n) {
  for (u64 i = 0; i < n; i++) D[i] = ~A[i];
}

int compare(const u64* A, const u64* B, u64 n) {
  while (n-- > 0) {
    if (A[n] != B[n]) return A[n] < B[n] ? -1 : 1;
  }
  return 0;
}

u64 normalized_length(const u64* A, u64 n) {
  while (n > 0 && A[n - 1] == 0) n--;
  return n;
}

} // namespace kelvane::words

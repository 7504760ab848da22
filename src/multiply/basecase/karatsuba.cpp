#include "arithmetic/words/add.h"
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/karatsuba_steps.h"
#include "multiply/basecase/km_MULB.h"

namespace kelvane::km_MULB {

namespace {

const bool USE_ADX = use_adx();

// Which half is the larger nobody can foresee: it chooses operands, not branches.
template <class W> bool difference(W* D, const W* A, u64 n) {
  const u64 k = n / 2, h = n - k;
  const W* const high = A + h;
  if (k < h && A[k] != 0) {
    D[k] = static_cast<W>(A[k] - static_cast<W>(words::sub(D, A, high, k)));
    return false;
  }
  const bool negative = less(A, high, k);
  const u64 exchanged = h & (0 - static_cast<u64>(negative));
  words::sub(D, A + exchanged, high - exchanged, k);
  if (k < h) D[k] = 0;
  return negative;
}

// D[0, n) <- S + X + Y + c, returns the carry; c and the carry are at most 2. D may be S.
template <class W> W add_three(W* D, const W* S, const W* X, const W* Y, u64 n, W c) {
  for (u64 i = 0; i < n; i++) {
    const W t = static_cast<W>(S[i] + c), u = static_cast<W>(t + X[i]), v = static_cast<W>(u + Y[i]);
    c = static_cast<W>((t < c) + (u < t) + (v < u));
    D[i] = v;
  }
  return c;
}

// With L and H for low and high halves the words at h and 2h become
//   S + L0 +- L1  and  S + H2 +- H1,  S = H0 + L2;
// -z1 is ~z1 + 1 - W^2h. The middle term is a0 b1 + a1 b0, so the last carry is not negative, and nothing is
// carried out of the top. H2 has h words, for odd n h - 2.
template <class W> void add_middle(W* out, W* middle, u64 n, bool minus) {
  const u64 k = n / 2, h = n - k, of_h2 = 2 * k - h;
  const W one = minus ? 1 : 0, mask = static_cast<W>(W{0} - one);
  for (u64 i = 0; i < 2 * h; i++) middle[i] ^= mask;
  W* const s = out + h;
  const W of_s = words::add(s, s, out + 2 * h, h);
  constexpr W NONE[2] = {0, 0};
  W high = add_three(out + 2 * h, s, out + 3 * h, middle + h, of_h2, W{0});
  high = add_three(out + 2 * h + of_h2, s + of_h2, NONE, middle + h + of_h2, h - of_h2, high);
  const W low = add_three(s, s, out, middle, h, one);
  const W from_low = add_small(out + 2 * h, h, static_cast<W>(low + of_s));
  add_small(out + 3 * h, of_h2, static_cast<W>(high + of_s + from_low - one));
}

template <class W> void multiply_karatsuba(W* out, const W* A, const W* B, u64 n, W* scratch) {
  if constexpr (sizeof(W) == 8) {
    if (USE_ADX && n <= MAX_FIXED_KARATSUBA) return multiply_karatsuba_adx(out, A, B, n, scratch);
  }
  const u64 k = n / 2, h = n - k;
  const bool negative = difference(out, A, n) != difference(out + h, B, n);
  W* const rest = scratch + 2 * h;
  if (k >= Thresholds<W>::multiply) {
    multiply_karatsuba(scratch, out, out + h, h, rest);
    multiply_karatsuba(out, A, B, h, rest);
    multiply_karatsuba(out + 2 * h, A + h, B + h, k, rest);
  } else {
    multiply_basecase(scratch, out, h, out + h, h);
    multiply_basecase(out, A, h, B, h);
    multiply_basecase(out + 2 * h, A + h, k, B + h, k);
  }
  add_middle(out, scratch, n, !negative);
}

template <class W> void square_any(W* out, const W* A, u64 n, W* scratch) {
  if (n < Thresholds<W>::square) return square_basecase(out, A, n);
  if constexpr (sizeof(W) == 8) {
    if (USE_ADX && n <= MAX_FIXED_KARATSUBA) return square_karatsuba_adx(out, A, n, scratch);
  }
  const u64 k = n / 2, h = n - k;
  difference(out, A, n);
  W* const rest = scratch + 2 * h;
  // The sub-squares recurse from the product's threshold on; each then tests the square's for itself.
  if (k >= Thresholds<W>::multiply) {
    square_any(scratch, out, h, rest);
    square_any(out, A, h, rest);
    square_any(out + 2 * h, A + h, k, rest);
  } else {
    square_basecase(scratch, out, h);
    square_basecase(out, A, h);
    square_basecase(out + 2 * h, A + h, k);
  }
  add_middle(out, scratch, n, true);
}

template <class W> void multiply_equal(W* out, const W* A, const W* B, u64 n, W* scratch) {
  if (n < Thresholds<W>::multiply) return multiply_basecase(out, A, n, B, n);
  multiply_karatsuba(out, A, B, n, scratch);
}

// The longer operand in blocks of n words, two a step. The first block's product goes straight to the
// output; the second one's is formed in scratch, its low half is added to the output, and its high half
// waits there until the next product has filled the words it belongs to.
template <class W> void multiply_any(W* out, const W* A, u64 na, const W* B, u64 nb, W* scratch) {
  if (na < nb) return multiply_any(out, B, nb, A, na, scratch);
  if (nb < Thresholds<W>::multiply) return multiply_basecase(out, A, na, B, nb);
  const u64 n = nb;
  if (na == n) return multiply_equal(out, A, B, n, scratch);
  W* const block = scratch;
  W* const waiting = block + n;
  W* const rest = block + 2 * n;

  // P[0, n+length) <- B times the words of A from `done` on.
  const auto block_product = [&](W* P, u64 done, u64 length) {
    if (length == n) {
      multiply_equal(P, A + done, B, n, rest);
    } else {
      multiply_any(P, B, n, A + done, length, rest);
    }
  };
  const auto length_at = [&](u64 done) { return na - done < n ? na - done : n; };

  block_product(out, 0, n);
  for (u64 done = n; done < na;) {
    const u64 second = length_at(done);
    block_product(block, done, second);
    words::add_word(waiting, second, static_cast<W>(words::add(out + done, out + done, block, n)));
    done += second;
    if (done == na) {
      for (u64 i = 0; i < second; i++) out[na + n - second + i] = waiting[i];
      return;
    }
    const u64 first = length_at(done);
    block_product(out + done, done, first);
    words::add_word(out + done + n, first, static_cast<W>(words::add(out + done, out + done, waiting, n)));
    done += first;
  }
}

} // namespace

void square(u64* out, const u64* A, u64 n, u64* scratch) {
  if (n < Thresholds<u64>::square) return square_basecase(out, A, n);
  if (USE_ADX && n <= MAX_FIXED_KARATSUBA) return square_karatsuba_adx(out, A, n, scratch);
  square_any(out, A, n, scratch);
}
void square(u32* out, const u32* A, u64 n, u32* scratch) {
  square_any(out, A, n, scratch);
}
void multiply(u64* out, const u64* A, const u64* B, u64 n, u64* scratch) {
  multiply_equal(out, A, B, n, scratch);
}
void multiply(u32* out, const u32* A, const u32* B, u64 n, u32* scratch) {
  multiply_equal(out, A, B, n, scratch);
}
void multiply_unbalanced(u64* out, const u64* A, u64 na, const u64* B, u64 nb, u64* scratch) {
  multiply_any(out, A, na, B, nb, scratch);
}
void multiply_unbalanced(u32* out, const u32* A, u64 na, const u32* B, u64 nb, u32* scratch) {
  multiply_any(out, A, na, B, nb, scratch);
}

} // namespace kelvane::km_MULB

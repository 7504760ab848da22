#include "arithmetic/words/add.h"
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/km_MULB.h"

namespace kelvane::km_MULB {

namespace {

// Whether the low part (h words) is at least the high part (k words, k = h or h - 1).
template <class W> bool low_is_larger(const W* low, u64 h, const W* high, u64 k) {
  if (k < h && low[h - 1] != 0) return true;
  while (k-- > 0) {
    if (low[k] != high[k]) return low[k] > high[k];
  }
  return true;
}

// D[0, h) <- |low - high|; returns whether the difference low - high is negative.
template <class W> bool difference(W* D, const W* A, u64 h, u64 k) {
  const W* const high = A + h;
  if (low_is_larger(A, h, high, k)) {
    const W borrow = static_cast<W>(words::sub(D, A, high, k));
    if (k < h) D[k] = static_cast<W>(A[k] - borrow);
    return false;
  }
  // The high half is the larger only when the low half's extra word is zero.
  words::sub(D, high, A, k);
  if (k < h) D[k] = 0;
  return true;
}

// out holds z0 in [0, 2h) and z2 in [2h, 2h+2k). Adds z0 + z2 - z1 (or + z1) at word h, with z1 in
// middle[0, 2h), which is destroyed. The middle term is a0 b1 + a1 b0, so it is not negative; it may have a
// word more than its 2h. Whole words, two halves a step; nothing is carried out of the top.
template <class W> void add_middle(W* out, W* middle, u64 h, u64 k, bool subtract) {
  const W* const z2 = out + 2 * h;
  W top; // of the middle term, above its 2h words; -1 for a moment
  if (subtract) {
    top = static_cast<W>(W{0} - words::sub(middle, out, middle, 2 * h));
  } else {
    top = words::add(middle, middle, out, 2 * h);
  }
  W carry = words::add(middle, middle, z2, 2 * k);
  if (k < h) carry = words::add_word(middle + 2 * k, 2 * (h - k), carry);
  top = static_cast<W>(top + carry);
  top = static_cast<W>(top + words::add(out + h, out + h, middle, 2 * h));
  words::add_word(out + 3 * h, 2 * k - h, top);
}

template <class W> void multiply_karatsuba(W* out, const W* A, const W* B, u64 n, W* scratch) {
  const u64 k = n / 2, h = n - k;
  const bool negative = difference(out, A, h, k) != difference(out + h, B, h, k);
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
  add_middle(out, scratch, h, k, !negative);
}

template <class W> void square_any(W* out, const W* A, u64 n, W* scratch) {
  if (n < Thresholds<W>::square) return square_basecase(out, A, n);
  const u64 k = n / 2, h = n - k;
  difference(out, A, h, k);
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
  add_middle(out, scratch, h, k, true);
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

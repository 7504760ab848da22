#include "arithmetic/words/add.h"
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/km_MULB.h"

namespace kelvane::km_MULB {

namespace {

template <class W> struct Wide;
template <> struct Wide<u32> { using sum = s64; };
template <> struct Wide<u64> { using sum = s128; };
template <class W> using wide_sum = typename Wide<W>::sum;
template <class W> constexpr unsigned word_bits = 8 * sizeof(W);

inline u64 sub_words(u64* D, const u64* A, const u64* B, u64 n) {
  return words::sub(D, A, B, n);
}
inline u64 add_words(u64* D, const u64* B, u64 n) {
  return words::add_in_place(D, B, n);
}
inline u32 sub_words(u32* D, const u32* A, const u32* B, u64 n) {
  return words::sub(D, A, B, n);
}
inline u32 add_words(u32* D, const u32* B, u64 n) {
  return words::add_in_place(D, B, n);
}

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
    const W borrow = static_cast<W>(sub_words(D, A, high, k));
    if (k < h) D[k] = static_cast<W>(A[k] - borrow);
    return false;
  }
  // The high half is the larger only when the low half's extra word is zero.
  sub_words(D, high, A, k);
  if (k < h) D[k] = 0;
  return true;
}

// out holds z0 in [0, 2h) and z2 in [2h, 2h+2k). Adds z0 + z2 - z1 (or + z1) at word h, with z1 in
// middle[0, 2h).
//
// The sum overlaps its own terms, so one pass works on two words h apart. With z0 = (L0, H0) and
// z2 = (L2, H2) cut at h words, T = H0 + L2 is a term of both sums:
//   word h + i:   L0 + T -+ z1[i],        word 2h + i:   H2 + T -+ z1[h + i]
// Each sum is of at most four words and a carry in [-1, 3], far inside a double word; the carry out of the
// lower sum enters at word 2h, where the upper one began. Together they are a product: nothing is left over.
template <class W> void add_middle(W* out, const W* middle, u64 h, u64 k, bool subtract) {
  using S = wide_sum<W>;
  W* const low = out + h;
  W* const high = out + 2 * h;
  const u64 top = 2 * k - h; // words of H2: h, or h - 2 for odd n
  S lower = 0, upper = 0;
  for (u64 i = 0; i < h; i++) {
    const S t = static_cast<S>(low[i]) + static_cast<S>(high[i]);
    const S z_low = static_cast<S>(middle[i]), z_high = static_cast<S>(middle[h + i]);
    const S h2 = i < top ? static_cast<S>(high[h + i]) : S{0};
    lower += t + static_cast<S>(out[i]) + (subtract ? -z_low : z_low);
    upper += t + h2 + (subtract ? -z_high : z_high);
    low[i] = static_cast<W>(lower);
    high[i] = static_cast<W>(upper);
    lower >>= word_bits<W>;
    upper >>= word_bits<W>;
  }
  // Both carries run on upwards: the lower from word 2h, the upper from word 3h.
  const u64 n2 = 2 * h + 2 * k;
  for (u64 i = 2 * h; i < n2 && (lower != 0 || i < 3 * h); i++) {
    if (lower == 0) break;
    lower += static_cast<S>(out[i]);
    out[i] = static_cast<W>(lower);
    lower >>= word_bits<W>;
  }
  for (u64 i = 3 * h; i < n2 && upper != 0; i++) {
    upper += static_cast<S>(out[i]);
    out[i] = static_cast<W>(upper);
    upper >>= word_bits<W>;
  }
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
    words::add_word(waiting, second, static_cast<W>(add_words(out + done, block, n)));
    done += second;
    if (done == na) {
      for (u64 i = 0; i < second; i++) out[na + n - second + i] = waiting[i];
      return;
    }
    const u64 first = length_at(done);
    block_product(out + done, done, first);
    words::add_word(out + done + n, first, static_cast<W>(add_words(out + done, waiting, n)));
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

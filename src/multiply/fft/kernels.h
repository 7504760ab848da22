// The vector kernels of the transform, as one table of functions per vector width and instruction set.
//
// Data: n complex points in vectors of L lanes, the L real parts before the L imaginary parts. Point k
// carries digit k in its real and digit n + k in its imaginary part, so that the product modulo x^n - i is
// the negacyclic product (modulo y^(2n) + 1) of all 2n digits.
//
// The first step of a forward transform reads digits, the last one of an inverse transform may deliver
// words; both are radix-4 steps at the root. A "quarter" is the n/4 points of one of its four rows.
#pragma once

#include "multiply/fft/twiddles.h"
#include "shell/types.h"

namespace kelvane::km_FFTv2 {

// Where the b-bit digits lie. Eight digits ("an octet") begin at a whole byte; the bits of digit k and the
// bit below it, b + 1 together, are read as one signed number s, and (s + 1) >> 1 is the balanced digit in
// [-2^(b-1), 2^(b-1)]: the digit itself, minus 2^b when its own top bit is set, plus 1 when that of the digit
// below is. No carry runs.
struct OctetLayout {
  // The octet's digit j in 32 bits from byte `byte[j]` of the octet (the octet's bytes begin with the byte
  // below its first digit), shifted left by shift[j], is s followed by zeros.
  u32 shift[8];
  u8 byte[8];
  u32 upper;      // byte from which digits 4..7 are read
  u8 shuffle[32]; // byte shuffle that does so: digits 0..3 from byte 0, digits 4..7 from byte `upper`
};
// That of b-bit digits, b in [8, 21].
const OctetLayout& octet_layout(u32 b);

// The digits of an operand.
struct DigitSource {
  static constexpr u64 WINDOW = 32; // bytes that may be read from where an octet begins

  const u8* bytes; // the operand, little-endian
  u64 size;        // its bytes
  u64 total;       // digits of the transform, 2n
  u32 b;
  bool top_set; // the operand fills all digits and its top bit is set: the last digit must not be balanced
  const OctetLayout& layout;
  // Copies of the operand's ends with zeros around them, for windows that reach beyond.
  u64 tail_start;
  u8 head[WINDOW];
  u8 tail[2 * WINDOW];

  DigitSource(const u64* A, u64 words, u64 points, u32 bits);

  // The window of the octet from digit k on, k a multiple of 8.
  const u8* window(u64 k) const {
    const u64 offset = k * b / 8 - 1; // wraps for digit 0, which has nothing below it
    if (offset < tail_start) return bytes + offset;
    if (k == 0) return head;
    return tail + (offset < size ? offset - tail_start : WINDOW);
  }
};

// What the kernels know of a plan.
struct Shape {
  u32 r, q, b;
  u64 n; // r 2^q complex points
  const LaneTable* table;
};

// Eight runs of `octets` octets each, far apart: run h of quarter-row h mod 4, real parts first. Run h's
// octets * b bytes go to out[h], its carry out of the top to carry[h].
struct CarryRuns {
  u8* out[8];
  u64 octets;
  bool pairs; // the points are so small that two of them may be carried together
  s64* carry;
};
// Whether they are, when none is larger than t (carry_impl.h).
bool pairs_fit(double t, u32 b);

// What a spectrum is multiplied by before its inverse: a spectrum, the same data for a square. With x there,
// sign (1 or -1) times the product of the spectra x and y is added.
struct Factors {
  const double* other;
  const double *x = nullptr, *y = nullptr;
  double sign = 1;
  [[gnu::always_inline]] Factors behind(u64 doubles) const {
    return {other + doubles, x == nullptr ? x : x + doubles, y == nullptr ? y : y + doubles, sign};
  }
};

struct Kernels {
  const char* name;
  u32 log_lanes;

  // dst row j (stride row_stride doubles) <- the root's radix-4 step over the digits at `position` and on,
  // `octets` octets in every quarter. `position` is a multiple of 8.
  void (*digits_step)(double* dst, u64 row_stride, const Shape& shape, const DigitSource& digits,
                      u64 position, u64 octets);
  // The same; returns the sum of the digits' squares.
  double (*digits_norm_step)(double* dst, u64 row_stride, const Shape& shape, const DigitSource& digits,
                             u64 position, u64 octets);
  // All that follows the root's step, in place.
  void (*forward_rest)(double* data, const Shape& shape);
  // All steps below node J over a block of r L^2 2^levels points, in place.
  void (*forward_block)(double* data, u32 levels, u64 J, const Shape& shape);
  // One radix-4 step of node J from four rows to four rows of `vectors` vectors.
  void (*forward_step)(double* dst, u64 dst_stride, const double* src, u64 src_stride, u64 vectors, u64 J,
                       const Shape& shape);

  // data <- the inverse of all steps but the root's of data times the factors, point by point.
  void (*inverse_rest)(double* data, const Factors& factors, const Shape& shape);
  // forward_rest of data, then inverse_rest, block by block; without a second product.
  void (*product_rest)(double* data, const Factors& factors, const Shape& shape);
  // The inverse of all steps below node J.
  void (*inverse_block)(double* data, const Factors& factors, u32 levels, u64 J, const Shape& shape);
  void (*inverse_step)(double* dst, u64 dst_stride, const double* src, u64 src_stride, u64 vectors, u64 J,
                       const Shape& shape);
  // The root's inverse radix-4 step (when `step`) over rows at data + j row_stride, then scaling by 1/n,
  // rounding to integers, carries and words.
  void (*carry)(const double* data, u64 row_stride, bool step, const Shape& shape, const CarryRuns& runs);
};

// The kernels for transforms of r 2^q points: the widest vectors of the instruction set for which a base
// block and the root's step fit.
const Kernels& kernels_for(simd::Isa isa, u32 q);

namespace sse3 {
extern const Kernels KERNELS2;
}
namespace avx2 {
extern const Kernels KERNELS2, KERNELS4;
}
namespace avx512 {
extern const Kernels KERNELS8;
}

} // namespace kelvane::km_FFTv2

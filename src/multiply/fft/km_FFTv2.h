// km_FFTv2: products of 55 to 17409 words by a floating-point FFT.
//
// A product of at most N b bits is carried by N points of b bits. The plan (N, b) comes from a table of 73
// sizes in ascending order of capacity; N = 2^m, 3 2^m or 5 2^m.
#pragma once

#include "multiply/fft/kernels.h"
#include "multiply/table/km_MULv3.h"
#include "multiply/table/parallel.h"
#include "shell/types.h"

namespace kelvane::km_FFTv2 {

// The size of one transform.
struct Plan {
  u64 threads = 1;
  u64 requested_bits = 0;
  u32 k = 0;             // size index
  u32 b = 0;             // bits per point
  u32 r = 1;             // radix factor
  u32 p = 0;             // power: N = r 2^p
  u64 N = 0;             // points
  u64 N4 = 0;            // 4 N, bytes of scratch
  u64 N8 = 0;            // 8 N, bytes of one transform
  u64 capacity_bits = 0; // N b
};

// N(k) = (4 + k mod 4) 2^(floor(k/4) - 2), k >= 8.
constexpr u64 points(u32 k) {
  return u64{4 + k % 4} << (k / 4 - 2);
}

// The number of rows of the size table; the largest product in bits.
inline constexpr u64 PLANS = 73;
inline constexpr u64 MAX_BITS = u64{1} << 34;

// The plan of row i of the size table.
Plan plan_of_row(u64 row, u64 bits, u64 threads);
// The smallest plan that carries a product of `bits` bits, and its number of points alone; beyond the table
// km_exception with code -4.
Plan make_plan(u64 bits, u64 threads);
u64 plan_points(u64 bits);

// Work bytes of a product of n 64-bit words: both transforms and the scratch, 4 N + 2 * 8 N.
u64 memory_cost(u64 n, u64 threads);

// The parameter record: the plan and the kernels that carry it out.
//
// A transform is 8 N bytes. The scratch of 4 N bytes takes the words of the product before they go to the
// caller (N b / 8 <= 2.63 N bytes), and the threads' buffers of the steps over large blocks.
class btp_t final : public km_MULv3::abstract_btp {
public:
  // The context's tables must cover the product; a record without tables answers questions of size only.
  btp_t(const Plan& plan, const km_MULv3::Context& context);
  // For products of `bits` bits.
  btp_t(u64 bits, const km_MULv3::Context& context);

  const Plan& plan() const { return plan_; }
  const Shape& shape() const { return shape_; }
  const Kernels& kernels() const { return *kernels_; }

  u64 transform_bytes() const override { return plan_.N8; }
  u64 scratch_bytes() const override { return plan_.N4; }
  bool accepts(const km_MULv3::abstract_btp& other) const override;
  // 64 (L + 1) must not exceed the capacity when a product is to be formed.
  // The weight is the norm of the balanced digits, of operands whose transforms fit the cache.
  double forward(void* T, const u64* A, u64 L, void* scratch) const override;
  void inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const override;
  void inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const override;
  void product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
               void* scratch) const override;
  // While the sum of the norms' products is no larger than for the largest single product (precision.h).
  bool may_add(double weight) const override;
  void inverse_sum(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, void* scratch) const override;
  // TA <- the points of the product, or of the sum of two, not yet scaled by 2/N and rounded; the first part
  // of inverse_sum, for measurements of the rounding error.
  void inverse_points(const km_MULv3::Term* terms, u64 count, void* scratch) const;

private:
  void set_up(const km_MULv3::Context& context);
  // No point of the result is larger than `largest`.
  void inverse(u64* out, u64 n, void* TA, const Factors& factors, double largest, void* scratch,
               bool words) const;
  // Of a transform that fits the cache the root's step from digits; with `norm` it returns the sum of their
  // squares. And the root's inverse step to words, out[0, n); `pairs` as in CarryRuns.
  double first_step(double* T, const u64* A, u64 L, bool norm) const;
  void last_step(u64* out, u64 n, const double* T, bool pairs, void* scratch) const;
  // No point of a product of n words is larger.
  double largest_point(u64 n) const;
  void require_table() const;
  void tick(km_MULv3::Worker worker) const;

  Plan plan_;
  Shape shape_;
  const Kernels* kernels_;
  Console::Progress* progress_;
  bool cached_; // the transform fits the cache
  u64 workers_; // threads that the size can feed
};

// The algorithm. Lengths count words of W.
template <class W> class algorithm final : public km_MULv3::algorithm_p<W> {
public:
  u64 capacity_bits() const override { return MAX_BITS; }
  const char* short_name() const override { return "FFT"; }
  const char* description() const override { return "Floating-Point FFT"; }
  u64 memory_cost(u64 n, u64 threads) const override;
  km_MULv3::abstract_btp* make_parameters(u64 n, const km_MULv3::Context& context,
                                          km_MULv3::btp_storage* storage) const override;
};

} // namespace kelvane::km_FFTv2

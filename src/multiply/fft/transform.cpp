// The order of the passes and their division among threads.
//
// A transform that fits the cache runs on the calling thread: the root's step over the digits, then the rest;
// back the same way, the root's inverse step delivering words. A larger one is a pass over tiles and then the
// blocks below, both drawn by the threads as tasks; back the same way, then the carries in pieces.
#include <cmath>
#include <cstring>

#include "multiply/fft/carry.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/fft/precision.h"
#include "multiply/fft/tiling.h"
#include "multiply/fft/twiddles.h"
#include "multiply/table/parallel.h"
#include "shell/exception.h"
#include "shell/status_line.h"

namespace kelvane::km_FFTv2 {

using km_MULv3::Phase;
using km_MULv3::Term;
using km_MULv3::Worker;

namespace {

// To start a thread costs 40 to 80 microseconds, a product of this many points some hundreds.
constexpr u64 MIN_POINTS_PER_THREAD = u64{1} << 16;
constexpr u64 MAX_CARRY_PIECES = 64; // of eight runs each
constexpr u64 MIN_PIECE_POINTS = 4096;
constexpr u64 TILES_PER_TICK = 64;

u64 min_of(u64 a, u64 b) {
  return a < b ? a : b;
}

// More than the rounding of a norm and a product of two can take away.
constexpr double NORM_ROUNDING = 1 + 1e-6;

Factors factors_of(const Term* terms, u64 count) {
  Factors f{static_cast<const double*>(terms[0].TB)};
  if (count == 2) {
    f.x = static_cast<const double*>(terms[1].TA);
    f.y = static_cast<const double*>(terms[1].TB);
    f.sign = terms[1].subtract ? -1 : 1;
  }
  return f;
}

} // namespace

btp_t::btp_t(const Plan& plan, const km_MULv3::Context& context) : plan_(plan), progress_(context.progress) {
  set_up(context);
}
// The plan is made where it stays: a copy would wait for what has just been written.
btp_t::btp_t(u64 bits, const km_MULv3::Context& context)
    : plan_(make_plan(bits, context.threads)), progress_(context.progress) {
  set_up(context);
}

void btp_t::set_up(const km_MULv3::Context& context) {
  const Plan& plan = plan_;
  const km_MULv3::TableSet* const set = context.tables;
  const table_d* const roots = set != nullptr ? set->fft : nullptr;
  if (roots != nullptr && 64 * roots->max_words() < plan.requested_bits) {
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"km_FFTv2::btp_t()",
                L"The twiddle tables do not cover the product.");
  }
  threads_ = plan.threads;
  capacity_bits_ = plan.capacity_bits;
  const u32 q = plan.p - 1;
  kernels_ = &kernels_for(roots != nullptr ? roots->table().isa : simd::active_isa(), q);
  shape_ = {plan.r, q, plan.b, plan.N / 2,
            roots != nullptr ? &roots->table().lanes[kernels_->log_lanes - 1] : nullptr};
  cached_ = Tiling::levels_of(plan.r, q) == 0;
  const u64 useful = cached_ ? 1 : shape_.n / MIN_POINTS_PER_THREAD;
  workers_ = min_of(threads_, useful > 0 ? useful : 1);
}

bool btp_t::accepts(const km_MULv3::abstract_btp& other) const {
  const auto* o = dynamic_cast<const btp_t*>(&other);
  return o != nullptr && o->plan_.k == plan_.k && o->plan_.b == plan_.b && o->kernels_ == kernels_;
}

void btp_t::tick(Worker worker) const {
  if (worker.driver && progress_ != nullptr) progress_->tick();
}

// An operand of L words has at most 64 L / b + 2 digits that are not zero, with the one above for balancing;
// a point has no more terms than the shorter operand has digits, at most half the sum of both. A term is the
// product of two balanced digits, at most 2^(2b-2).
double btp_t::largest_point(u64 n) const {
  return static_cast<double>(min_of(shape_.n, 32 * n / shape_.b + 2) << (2 * shape_.b - 2));
}

double btp_t::first_step(double* T, const u64* A, u64 L, bool norm) const {
  const u64 quarter = shape_.n / 4;
  const DigitSource digits(A, L, shape_.n, shape_.b);
  if (norm) return kernels_->digits_norm_step(T, 2 * quarter, shape_, digits, 0, quarter / 8);
  kernels_->digits_step(T, 2 * quarter, shape_, digits, 0, quarter / 8);
  return 0;
}

void btp_t::last_step(u64* out, u64 n, const double* T, bool pairs, void* scratch) const {
  // Runs that end within the product go there at once.
  const u64 quarter = shape_.n / 4, run_bytes = quarter * shape_.b / 8;
  auto* const result = reinterpret_cast<u8*>(out);
  const Runs runs{result, 8 * n / run_bytes, static_cast<u8*>(scratch), 8, run_bytes};
  s64 carries[8];
  CarryRuns lanes{{}, quarter / 8, pairs, carries};
  for (u64 h = 0; h < 8; h++) lanes.out[h] = runs.at(h);
  kernels_->carry(T, 2 * quarter, true, shape_, lanes);
  finish_carries(runs, carries);
  const u64 done = runs.below * run_bytes;
  std::memcpy(result + done, runs.rest + done, 8 * n - done);
  tick({0, true});
}

void btp_t::require_table() const {
  if (shape_.table != nullptr) return;
  assert_fail(INVALID_FUNCTION_PARAMETERS, L"km_FFTv2::btp_t::forward()", L"There are no twiddle tables.");
}

double btp_t::forward(void* T, const u64* A, u64 L, void* scratch) const {
  require_table();
  auto* const data = static_cast<double*>(T);
  if (cached_) {
    const double squares = first_step(data, A, L, true);
    kernels_->forward_rest(data, shape_);
    return std::sqrt(squares);
  }
  const DigitSource digits(A, L, shape_.n, shape_.b);
  auto* const buffers = static_cast<double*>(scratch);
  const Tiling tiling(*kernels_, shape_, shape_.q, 1);
  const u64 children = tiling.children();
  const auto tile = [&](u64 i, Worker worker) {
    tiling.forward_digits(data, i, digits, buffers + worker.index * Tiling::BUFFER_DOUBLES);
    if (i % TILES_PER_TICK == 0) tick(worker);
  };
  const auto block = [&](u64 i, Worker worker) {
    forward_any(data + i * tiling.child_doubles(), shape_.q - tiling.levels(), children + i, *kernels_,
                shape_, buffers + worker.index * Tiling::BUFFER_DOUBLES);
    tick(worker);
  };
  km_MULv3::run_phases(workers_, Phase{tiling.tiles(), tile}, Phase{children, block});
  return km_MULv3::NO_WEIGHT;
}

void btp_t::inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const {
  inverse(out, n, TA, {static_cast<const double*>(TB)}, largest_point(n), scratch, true);
}
void btp_t::inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const {
  inverse_fmul(out, n, T, T, scratch);
}

bool btp_t::may_add(double weight) const {
  return cached_ && weight * SUM_ROUNDING <= km_FFTv2::largest_point(plan_);
}
void btp_t::inverse_sum(u64* out, u64 n, const Term* terms, u64 count, void* scratch) const {
  // By Cauchy and Schwarz no point of a product is larger than its weight. For all but the most unusual
  // operands that is a third of what the number of terms allows for.
  double weight = 0;
  for (u64 i = 0; i < count; i++) weight += terms[i].weight;
  const double largest = std::fmin(static_cast<double>(count) * largest_point(n), weight * NORM_ROUNDING);
  inverse(out, n, terms[0].TA, factors_of(terms, count), largest, scratch, true);
}
void btp_t::inverse_points(const Term* terms, u64 count, void* scratch) const {
  inverse(nullptr, 0, terms[0].TA, factors_of(terms, count), 0, scratch, false);
  if (cached_) {
    auto* const data = static_cast<double*>(terms[0].TA);
    const u64 quarter = shape_.n / 4;
    kernels_->inverse_step(data, 2 * quarter, data, 2 * quarter, quarter >> kernels_->log_lanes, 1, shape_);
  }
}

void btp_t::product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                    void* scratch) const {
  const bool is_square = B == nullptr;
  const u64 n = is_square ? 2 * LA : LA + LB;
  if (!cached_) {
    if (!is_square) forward(TB, B, LB, scratch);
    forward(TA, A, LA, scratch);
    return inverse_fmul(out, n, TA, is_square ? TA : TB, scratch);
  }
  require_table();
  auto* const data = static_cast<double*>(TA);
  auto* const other = static_cast<double*>(is_square ? TA : TB);
  // The norms, as in inverse_sum, where they can decide.
  const double largest = largest_point(n);
  bool pairs = pairs_fit(largest, shape_.b);
  const bool norms = !pairs && pairs_fit(largest / 3, shape_.b);
  double norm_b = 0;
  if (!is_square) {
    norm_b = first_step(other, B, LB, norms);
    kernels_->forward_rest(other, shape_);
  }
  const double norm_a = first_step(data, A, LA, norms);
  if (norms) pairs = pairs_fit(std::sqrt(norm_a * (is_square ? norm_a : norm_b)) * NORM_ROUNDING, shape_.b);
  kernels_->product_rest(data, {other}, shape_);
  last_step(out, n, data, pairs, scratch);
}

void btp_t::inverse(u64* out, u64 n, void* TA, const Factors& factors, double largest, void* scratch,
                    bool words) const {
  auto* const data = static_cast<double*>(TA);
  const bool pairs = words && pairs_fit(largest, shape_.b);
  if (cached_) {
    kernels_->inverse_rest(data, factors, shape_);
    if (words) last_step(out, n, data, pairs, scratch);
    return;
  }

  // The words of the product are put together in scratch from pieces, each the same part of every quarter,
  // both parts of the points: eight runs of digits. A power of two of pieces.
  const u64 quarter = shape_.n / 4;
  u64 pieces = 1;
  while (pieces < MAX_CARRY_PIECES && quarter / pieces >= 2 * MIN_PIECE_POINTS) pieces *= 2;
  const u64 points = quarter / pieces, run_bytes = points * shape_.b / 8;
  const Runs runs{nullptr, 0, static_cast<u8*>(scratch), 8 * pieces, run_bytes};
  s64 carries[8 * MAX_CARRY_PIECES];
  const auto carry = [&](u64 piece, Worker worker) {
    s64 top[8];
    CarryRuns lanes{{}, points / 8, pairs, top};
    for (u64 h = 0; h < 8; h++) lanes.out[h] = runs.at(h * pieces + piece);
    kernels_->carry(data + piece * 2 * points, 2 * quarter, false, shape_, lanes);
    for (u64 h = 0; h < 8; h++) carries[h * pieces + piece] = top[h];
    tick(worker);
  };
  auto* const product = static_cast<u64*>(scratch);
  const auto finish = [&](u64, Worker) { finish_carries(runs, carries); };
  const auto copy = [&](u64 piece, Worker) {
    const u64 first = n * piece / pieces, end = n * (piece + 1) / pieces;
    std::memcpy(out + first, product + first, 8 * (end - first));
  };
  auto* const buffers = static_cast<double*>(scratch);
  const Tiling tiling(*kernels_, shape_, shape_.q, 1);
  const u64 children = tiling.children();
  const auto block = [&](u64 i, Worker worker) {
    const u64 at = i * tiling.child_doubles();
    inverse_any(data + at, factors.behind(at), shape_.q - tiling.levels(), children + i, *kernels_, shape_,
                buffers + worker.index * Tiling::BUFFER_DOUBLES);
    tick(worker);
  };
  const auto tile = [&](u64 i, Worker worker) {
    tiling.inverse(data, i, buffers + worker.index * Tiling::BUFFER_DOUBLES);
    if (i % TILES_PER_TICK == 0) tick(worker);
  };
  const u64 once = words ? 1 : 0;
  km_MULv3::run_phases(workers_, Phase{children, block}, Phase{tiling.tiles(), tile},
                       Phase{once * pieces, carry}, Phase{once, finish}, Phase{once * pieces, copy});
}

} // namespace kelvane::km_FFTv2

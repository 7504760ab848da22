// The order of the passes and their division among threads.
//
// A transform that fits the cache: the root's step over the digits, then each of its four quarters depth
// first; back the same way, the root's inverse step delivering words. Larger ones take k = 2, 4, 6 or 8
// levels at once by tiles: 32 columns of 2^k rows are copied into a buffer on the way of their first step and
// back on the way of the last, so that k levels cost one pass over memory.
#include <cstring>

#include "multiply/fft/carry.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/fft/twiddles.h"
#include "multiply/table/parallel.h"
#include "shell/exception.h"
#include "shell/status_line.h"

namespace kelvane::km_FFTv2 {

namespace {

constexpr u32 TILE_POINTS = 32;                          // columns of a tile: 512 bytes of every row
constexpr u64 TILE_ROW = 2 * TILE_POINTS;                // doubles
constexpr u32 MAX_TILE_LEVELS = 8;                       // 256 rows: a buffer of 128 KiB
constexpr u64 TILE_BUFFER = TILE_ROW << MAX_TILE_LEVELS; // doubles
// Transforms of up to 2^15 points (1 MiB of both operands) run in cache and on one thread: a thread costs
// about as much as it could save there.
constexpr u32 CACHE_LEVELS_R1 = 15, CACHE_LEVELS = 13;
constexpr u64 MIN_POINTS_PER_THREAD = u64{1} << 15;
constexpr u64 MAX_CARRY_PIECES = 64; // of eight runs each

u64 min_of(u64 a, u64 b) {
  return a < b ? a : b;
}

} // namespace

btp_t::btp_t(const Plan& plan, const km_MULv3::Context& context) : plan_(plan), progress_(context.progress) {
  // Without tables the record answers questions of size only.
  const km_MULv3::TableSet* const set = context.tables;
  const table_t* const table = set != nullptr && set->fft != nullptr ? &set->fft->table() : nullptr;
  if (table != nullptr && 64 * set->fft->max_words() < min_of(plan.requested_bits, MAX_BITS)) {
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"km_FFTv2::btp_t()",
                L"The twiddle tables do not cover the product.");
  }
  threads_ = plan.threads;
  capacity_bits_ = plan.capacity_bits;
  const u32 q = plan.p - 1;
  kernels_ = &kernels_for(table != nullptr ? table->isa : simd::active_isa(), q);
  shape_ = {plan.r, q, plan.b, plan.N / 2,
            table != nullptr ? &table->lanes[kernels_->log_lanes - 1] : nullptr};
  const u64 useful = tile_levels(q) == 0 ? 1 : shape_.n / MIN_POINTS_PER_THREAD;
  workers_ = min_of(threads_, useful > 0 ? useful : 1);
}

bool btp_t::accepts(const km_MULv3::abstract_btp& other) const {
  const auto* o = dynamic_cast<const btp_t*>(&other);
  return o != nullptr && o->plan_.k == plan_.k && o->plan_.b == plan_.b && o->kernels_ == kernels_;
}

void btp_t::tick() const {
  if (progress_ != nullptr) progress_->tick();
}

u32 btp_t::tile_levels(u32 q) const {
  const u32 cached = shape_.r == 1 ? CACHE_LEVELS_R1 : CACHE_LEVELS;
  if (q <= cached) return 0;
  const u32 passes = (q - cached + MAX_TILE_LEVELS - 1) / MAX_TILE_LEVELS;
  const u32 levels = (q - cached + passes - 1) / passes;
  return levels + levels % 2;
}

// k levels below node J over a block of 2^k rows. The first step reads digits when there are any (J is the
// root then), else the block.
void btp_t::forward_tiles(double* data, u32 q, u64 J, u64 threads, const DigitSource* digits,
                          double* scratch) const {
  const u32 k = tile_levels(q);
  const u64 rows = u64{1} << k, row_points = (u64{shape_.r} << q) >> k, quarter = rows / 4;
  const u64 vectors = TILE_POINTS >> kernels_->log_lanes;
  km_MULv3::for_tasks(threads, row_points / TILE_POINTS, [&](u64 tile, km_MULv3::Worker worker) {
    double* const buffer = scratch + worker.index * TILE_BUFFER;
    const u64 column = tile * TILE_POINTS;
    double* const columns = data + 2 * column;
    for (u64 row = 0; row < quarter; row++) {
      double* const dst = k == 2 ? columns : buffer + row * TILE_ROW;
      const u64 dst_stride = k == 2 ? 2 * row_points : quarter * TILE_ROW;
      if (digits != nullptr) {
        kernels_->digits_step(dst, dst_stride, shape_, *digits, row * row_points + column, TILE_POINTS / 8);
      } else {
        kernels_->forward_step(dst, dst_stride, columns + row * 2 * row_points, quarter * 2 * row_points,
                               vectors, J, shape_);
      }
    }
    // Blocks of the buffer, four times as many and a quarter as long at every step.
    u64 blocks = 4, length = rows / 4;
    for (; length > 4; blocks *= 4, length /= 4) {
      for (u64 i = 0; i < blocks; i++) {
        double* const block = buffer + i * length * TILE_ROW;
        const u64 stride = length / 4 * TILE_ROW;
        kernels_->forward_step(block, stride, block, stride, length / 4 * vectors, J * blocks + i, shape_);
      }
    }
    for (u64 i = 0; i < blocks && length == 4; i++) {
      kernels_->forward_step(columns + i * 4 * 2 * row_points, 2 * row_points, buffer + i * 4 * TILE_ROW,
                             TILE_ROW, vectors, J * blocks + i, shape_);
    }
    if (worker.driver && tile % 64 == 0) tick();
  });
}

void btp_t::inverse_tiles(double* data, u32 q, u64 J, u64 threads, double* scratch) const {
  const u32 k = tile_levels(q);
  const u64 rows = u64{1} << k, row_points = (u64{shape_.r} << q) >> k, quarter = rows / 4;
  const u64 vectors = TILE_POINTS >> kernels_->log_lanes;
  km_MULv3::for_tasks(threads, row_points / TILE_POINTS, [&](u64 tile, km_MULv3::Worker worker) {
    double* const buffer = scratch + worker.index * TILE_BUFFER;
    double* const columns = data + 2 * tile * TILE_POINTS;
    u64 blocks = rows / 4, length = 4;
    for (u64 i = 0; i < blocks && k > 2; i++) {
      kernels_->inverse_step(buffer + i * 4 * TILE_ROW, TILE_ROW, columns + i * 4 * 2 * row_points,
                             2 * row_points, vectors, J * blocks + i, shape_);
    }
    for (blocks /= 4, length *= 4; length < rows; blocks /= 4, length *= 4) {
      for (u64 i = 0; i < blocks; i++) {
        double* const block = buffer + i * length * TILE_ROW;
        const u64 stride = length / 4 * TILE_ROW;
        kernels_->inverse_step(block, stride, block, stride, length / 4 * vectors, J * blocks + i, shape_);
      }
    }
    for (u64 row = 0; row < quarter; row++) {
      const double* const src = k == 2 ? columns : buffer + row * TILE_ROW;
      const u64 src_stride = k == 2 ? 2 * row_points : quarter * TILE_ROW;
      kernels_->inverse_step(columns + row * 2 * row_points, quarter * 2 * row_points, src, src_stride,
                             vectors, J, shape_);
    }
    if (worker.driver && tile % 64 == 0) tick();
  });
}

// A block of r 2^q points below node J, in one thread.
void btp_t::forward_large(double* data, u32 q, u64 J, double* buffer) const {
  const u32 k = tile_levels(q);
  if (k == 0) return kernels_->forward_block(data, q - 2 * kernels_->log_lanes, J, shape_);
  forward_tiles(data, q, J, 1, nullptr, buffer);
  const u64 child = 2 * ((u64{shape_.r} << q) >> k);
  for (u64 i = 0; i < u64{1} << k; i++) forward_large(data + i * child, q - k, (J << k) + i, buffer);
}
void btp_t::inverse_large(double* data, const double* other, u32 q, u64 J, double* buffer) const {
  const u32 k = tile_levels(q);
  if (k == 0) return kernels_->inverse_block(data, other, q - 2 * kernels_->log_lanes, J, shape_);
  const u64 child = 2 * ((u64{shape_.r} << q) >> k);
  for (u64 i = 0; i < u64{1} << k; i++) {
    inverse_large(data + i * child, other + i * child, q - k, (J << k) + i, buffer);
  }
  inverse_tiles(data, q, J, 1, buffer);
}

void btp_t::forward(void* T, const u64* A, u64 L, void* scratch) const {
  const DigitSource digits(A, L, shape_.n, shape_.b);
  auto* const data = static_cast<double*>(T);
  auto* const buffers = static_cast<double*>(scratch);
  const u32 k = tile_levels(shape_.q);
  if (k == 0) {
    const u64 quarter = shape_.n / 4;
    kernels_->digits_step(data, 2 * quarter, shape_, digits, 0, quarter / 8);
    return kernels_->forward_rest(data, shape_);
  }
  forward_tiles(data, shape_.q, 1, workers_, &digits, buffers);
  const u64 children = u64{1} << k;
  km_MULv3::for_tasks(workers_, children, [&](u64 i, km_MULv3::Worker worker) {
    forward_large(data + i * (2 * shape_.n / children), shape_.q - k, children + i,
                  buffers + worker.index * TILE_BUFFER);
    if (worker.driver) tick();
  });
}

void btp_t::inverse_points(void* TA, const void* TB, void* scratch) const {
  auto* const data = static_cast<double*>(TA);
  const auto* const other = static_cast<const double*>(TB);
  const u32 k = tile_levels(shape_.q);
  if (k == 0) {
    const u64 quarter = shape_.n / 4;
    kernels_->inverse_rest(data, other, shape_);
    return kernels_->inverse_step(data, 2 * quarter, data, 2 * quarter, quarter >> kernels_->log_lanes, 1,
                                  shape_);
  }
  auto* const buffers = static_cast<double*>(scratch);
  const u64 children = u64{1} << k;
  km_MULv3::for_tasks(workers_, children, [&](u64 i, km_MULv3::Worker worker) {
    const u64 at = i * (2 * shape_.n / children);
    inverse_large(data + at, other + at, shape_.q - k, children + i, buffers + worker.index * TILE_BUFFER);
    if (worker.driver) tick();
  });
  inverse_tiles(data, shape_.q, 1, workers_, buffers);
}

void btp_t::inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const {
  auto* const data = static_cast<double*>(TA);
  const auto* const other = static_cast<const double*>(TB);
  if (tile_levels(shape_.q) != 0) {
    inverse_points(TA, TB, scratch);
    return carry_words(out, n, data, false, scratch);
  }
  kernels_->inverse_rest(data, other, shape_);
  carry_words(out, n, data, true, scratch);
}

void btp_t::inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const {
  inverse_fmul(out, n, T, T, scratch);
}

// Points (before their last step, when `step`) to words: pieces of eight runs into scratch, the runs'
// carries, and the n words wanted to out.
void btp_t::carry_words(u64* out, u64 n, const double* data, bool step, void* scratch) const {
  const u64 quarter = shape_.n / 4;
  // A piece takes the same part of every quarter; a power of two of them, each of 4096 points at least.
  u64 pieces = 1;
  while (!step && pieces < MAX_CARRY_PIECES && quarter / pieces >= 2 * 4096) pieces *= 2;
  const u64 points = quarter / pieces, run_bytes = points * shape_.b / 8;
  s64 carry[8 * MAX_CARRY_PIECES];
  km_MULv3::for_tasks(workers_, pieces, [&](u64 piece, km_MULv3::Worker worker) {
    s64 top[8];
    const CarryRuns runs{static_cast<u8*>(scratch) + piece * run_bytes, quarter * shape_.b / 8, points / 8,
                         top};
    kernels_->carry(data + piece * 2 * points, 2 * quarter, step, shape_, runs);
    for (u64 h = 0; h < 8; h++) carry[h * pieces + piece] = top[h];
    if (worker.driver) tick();
  });
  auto* const words = static_cast<u64*>(scratch);
  finish_carries(words, shape_.n * 2 * shape_.b / 64, carry, 8 * pieces, run_bytes);
  km_MULv3::for_tasks(workers_, pieces, [&](u64 piece, km_MULv3::Worker) {
    const u64 first = n * piece / pieces, end = n * (piece + 1) / pieces;
    std::memcpy(out + first, words + first, 8 * (end - first));
  });
}

} // namespace kelvane::km_FFTv2

#include "multiply/fft/tiling.h"

namespace kelvane::km_FFTv2 {

namespace {
// Blocks of up to 2^15 points (512 KiB), or 5 * 2^13, are worked on in cache.
constexpr u32 CACHE_LEVELS_R1 = 15, CACHE_LEVELS = 13;
} // namespace

u32 Tiling::levels_of(u32 r, u32 q) {
  const u32 cached = r == 1 ? CACHE_LEVELS_R1 : CACHE_LEVELS;
  if (q <= cached) return 0;
  const u32 passes = (q - cached + MAX_LEVELS - 1) / MAX_LEVELS;
  const u32 levels = (q - cached + passes - 1) / passes;
  return levels + levels % 2;
}

Tiling::Tiling(const Kernels& kernels, const Shape& shape, u32 q, u64 J)
    : kernels_(kernels), shape_(shape), levels_(levels_of(shape.r, q)), J_(J), rows_(u64{1} << levels_),
      row_points_((u64{shape.r} << q) >> levels_), vectors_(POINTS >> kernels.log_lanes) {}

// With two levels only, the first step is the last one too and stays in the block.
Tiling::Place Tiling::first_rows(double* columns, u64 row, double* buffer) const {
  if (levels_ == 2) return {columns, 2 * row_points_};
  return {buffer + row * ROW, rows_ / 4 * ROW};
}

void Tiling::forward(double* data, u64 tile, double* buffer) const {
  double* const columns = data + tile * ROW;
  for (u64 row = 0; row < rows_ / 4; row++) {
    const Place to = first_rows(columns, row, buffer);
    kernels_.forward_step(to.rows, to.stride, columns + row * 2 * row_points_, rows_ / 4 * 2 * row_points_,
                          vectors_, J_, shape_);
  }
  forward_buffer(columns, buffer);
}

void Tiling::forward_digits(double* data, u64 tile, const DigitSource& digits, double* buffer) const {
  double* const columns = data + tile * ROW;
  for (u64 row = 0; row < rows_ / 4; row++) {
    const Place to = first_rows(columns, row, buffer);
    kernels_.digits_step(to.rows, to.stride, shape_, digits, row * row_points_ + tile * POINTS, POINTS / 8);
  }
  forward_buffer(columns, buffer);
}

// All steps but the first: the buffer's blocks become four times as many and a quarter as long at every step,
// the last one goes from blocks of four rows to the columns.
void Tiling::forward_buffer(double* columns, double* buffer) const {
  if (levels_ == 2) return;
  u64 blocks = 4, length = rows_ / 4;
  for (; length > 4; blocks *= 4, length /= 4) {
    for (u64 i = 0; i < blocks; i++) {
      double* const block = buffer + i * length * ROW;
      const u64 stride = length / 4 * ROW;
      kernels_.forward_step(block, stride, block, stride, length / 4 * vectors_, J_ * blocks + i, shape_);
    }
  }
  for (u64 i = 0; i < blocks; i++) {
    kernels_.forward_step(columns + i * 8 * row_points_, 2 * row_points_, buffer + i * 4 * ROW, ROW, vectors_,
                          J_ * blocks + i, shape_);
  }
}

void Tiling::inverse(double* data, u64 tile, double* buffer) const {
  double* const columns = data + tile * ROW;
  if (levels_ > 2) {
    u64 blocks = rows_ / 4, length = 4;
    for (u64 i = 0; i < blocks; i++) {
      kernels_.inverse_step(buffer + i * 4 * ROW, ROW, columns + i * 8 * row_points_, 2 * row_points_,
                            vectors_, J_ * blocks + i, shape_);
    }
    for (blocks /= 4, length *= 4; length < rows_; blocks /= 4, length *= 4) {
      for (u64 i = 0; i < blocks; i++) {
        double* const block = buffer + i * length * ROW;
        const u64 stride = length / 4 * ROW;
        kernels_.inverse_step(block, stride, block, stride, length / 4 * vectors_, J_ * blocks + i, shape_);
      }
    }
  }
  for (u64 row = 0; row < rows_ / 4; row++) {
    const Place from = first_rows(columns, row, buffer);
    kernels_.inverse_step(columns + row * 2 * row_points_, rows_ / 4 * 2 * row_points_, from.rows,
                          from.stride, vectors_, J_, shape_);
  }
}

void forward_any(double* data, u32 q, u64 J, const Kernels& kernels, const Shape& shape, double* buffer) {
  if (Tiling::levels_of(shape.r, q) == 0) {
    return kernels.forward_block(data, q - 2 * kernels.log_lanes, J, shape);
  }
  const Tiling tiling(kernels, shape, q, J);
  for (u64 tile = 0; tile < tiling.tiles(); tile++) tiling.forward(data, tile, buffer);
  for (u64 i = 0; i < tiling.children(); i++) {
    forward_any(data + i * tiling.child_doubles(), q - tiling.levels(), J * tiling.children() + i, kernels,
                shape, buffer);
  }
}

void inverse_any(double* data, const Factors& factors, u32 q, u64 J, const Kernels& kernels,
                 const Shape& shape, double* buffer) {
  if (Tiling::levels_of(shape.r, q) == 0) {
    return kernels.inverse_block(data, factors, q - 2 * kernels.log_lanes, J, shape);
  }
  const Tiling tiling(kernels, shape, q, J);
  for (u64 i = 0; i < tiling.children(); i++) {
    const u64 at = i * tiling.child_doubles();
    inverse_any(data + at, factors.behind(at), q - tiling.levels(), J * tiling.children() + i, kernels, shape,
                buffer);
  }
  for (u64 tile = 0; tile < tiling.tiles(); tile++) tiling.inverse(data, tile, buffer);
}

} // namespace kelvane::km_FFTv2

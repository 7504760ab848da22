// Blocks larger than the cache: k = 2, 4, 6 or 8 levels at one pass over memory.
//
// A block of m points below node J is 2^k rows of m / 2^k points, and k levels work on columns only. A tile
// is 32 columns: its first step reads the block (or the digits) and writes a buffer of 2^k short rows, the
// steps between stay in the buffer, and the last one writes the block. Copying matters, not only counting
// passes: the rows of a large block lie a power of two apart and would fight for the same few lines of every
// cache.
//
// The same butterflies meet as in a transform in cache, so results do not depend on where the block is cut.
#pragma once

#include "multiply/fft/kernels.h"

namespace kelvane::km_FFTv2 {

class Tiling {
public:
  static constexpr u32 POINTS = 32; // columns of a tile: 512 bytes of every row
  static constexpr u32 MAX_LEVELS = 8;
  static constexpr u64 ROW = 2 * POINTS;                   // doubles of a row in the buffer
  static constexpr u64 BUFFER_DOUBLES = ROW << MAX_LEVELS; // 128 KiB

  // The levels that one pass takes of a block of r 2^q points; 0 when the block fits the cache.
  static u32 levels_of(u32 r, u32 q);

  // For a block of r 2^q points below node J that does not fit.
  Tiling(const Kernels& kernels, const Shape& shape, u32 q, u64 J);

  u32 levels() const { return levels_; }
  u64 tiles() const { return row_points_ / POINTS; }
  u64 children() const { return rows_; }
  u64 child_doubles() const { return 2 * row_points_; }

  // `levels` levels of one tile of the block at data. Different tiles are independent.
  void forward(double* data, u64 tile, double* buffer) const;
  void inverse(double* data, u64 tile, double* buffer) const;
  // The same at the root, from digits.
  void forward_digits(double* data, u64 tile, const DigitSource& digits, double* buffer) const;

private:
  // Where the four rows of the first step lie (and where those of the last inverse step do).
  struct Place {
    double* rows;
    u64 stride;
  };
  Place first_rows(double* columns, u64 row, double* buffer) const;
  void forward_buffer(double* columns, double* buffer) const;

  const Kernels& kernels_;
  const Shape& shape_;
  u32 levels_;
  u64 J_, rows_, row_points_, vectors_;
};

// All steps below node J of a block of r 2^q points, in the calling thread; the inverse begins with the
// pointwise product. buffer: Tiling::BUFFER_DOUBLES, used when the block does not fit the cache.
void forward_any(double* data, u32 q, u64 J, const Kernels& kernels, const Shape& shape, double* buffer);
void inverse_any(double* data, const Factors& factors, u32 q, u64 J, const Kernels& kernels,
                 const Shape& shape, double* buffer);

} // namespace kelvane::km_FFTv2

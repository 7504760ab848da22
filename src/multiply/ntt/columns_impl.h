// Tiles of columns on a backend F: words to digits to residues and down the columns; and back up, to
// coefficients and words.
#pragma once

#include "multiply/ntt/kernels.h"
#include "multiply/ntt/passes_impl.h"
#include "multiply/ntt/recombine_impl.h"
#include "multiply/ntt/rows_impl.h"

namespace kelvane::ntt {
namespace {

// The columns' factors: those of the first rows, for one third.
template <class F> Tree column_tree(const Shape& shape, const PrimeTable& table, u32 direction, u32 third) {
  Tree tree{};
  for (u32 level = 0; level < shape.log_rows; level++) {
    tree.s[level] = table.s[direction][exponent(third, level + 1)];
  }
  tree.s_quotients = u64{1} << shape_of(F::BACKEND).s_log;
  return tree;
}

// What turns a digit's limbs into its residue modulo one prime.
template <class F> struct Reduction {
  typename F::K k{1};
  typename F::Tw power[MAX_LIMBS];
};
template <class F> struct Reductions {
  u32 count;
  Reduction<F> of[MAX_PRIMES];
  Reductions(const Shape& shape, u32 first, u32 last) : count(last - first) {
    for (u32 i = 0; i < count; i++) {
      const PrimeTable& table = prime_table(F::BACKEND, first + i);
      of[i].k = typename F::K(table.p);
      const Factor* const limbs =
          table.limb[transform_set(F::BACKEND, shape.w)][shape.r == 3][shape.log_rows + shape.log_columns];
      for (u32 j = 0; j < MAX_LIMBS; j++) of[i].power[j] = F::broadcast(limbs[j]);
    }
  }
};

// VECTORS vectors of digits of LIMBS limbs, from digit t behind `base` on, as residues of every prime: out +
// i * stride.
template <class F, u32 LIMBS, u32 VECTORS>
void read_vectors(const typename F::DigitReader& reader, const Shape& shape, const Reductions<F>& primes,
                  const u64* base, u64 t, u64* out, u64 stride) {
  typename F::Limb limbs[VECTORS][LIMBS];
#pragma GCC unroll 8
  for (u32 v = 0; v < VECTORS; v++) {
#pragma GCC unroll 8
    for (u32 j = 0; j < LIMBS; j++) limbs[v][j] = reader.read(base, (t + v * F::LANES) * shape.b, j);
  }
  for (u32 i = 0; i < primes.count; i++) {
    const Reduction<F>& prime = primes.of[i];
#pragma GCC unroll 8
    for (u32 v = 0; v < VECTORS; v++)
      F::store(out + i * stride + t + v * F::LANES, F::digit(limbs[v], prime.power, prime.k));
  }
}

template <class F, u32 LIMBS>
void read_digits_of(const typename F::DigitReader& reader, const Shape& shape, const Reductions<F>& primes,
                    const u64* base, u64* out, u64 stride) {
  constexpr u32 GROUP = F::LANES == 1 ? 1 : 2; // vectors converted together: their constants are loaded once
  const u64 T = shape.tile();
  u64 t = 0;
  for (; t + GROUP * F::LANES <= T; t += GROUP * F::LANES)
    read_vectors<F, LIMBS, GROUP>(reader, shape, primes, base, t, out, stride);
  for (; t < T; t += F::LANES) read_vectors<F, LIMBS, 1>(reader, shape, primes, base, t, out, stride);
}

// T digits from the beginning of `base` on, as residues of every prime: out + i * stride.
template <class F>
void read_digits(const typename F::DigitReader& reader, const Shape& shape, const Reductions<F>& primes,
                 const u64* base, u64* out, u64 stride) {
  static_assert(MAX_LIMBS == 4);
  switch (reader.limbs) {
  case 1:
    return read_digits_of<F, 1>(reader, shape, primes, base, out, stride);
  case 2:
    return read_digits_of<F, 2>(reader, shape, primes, base, out, stride);
  case 3:
    return read_digits_of<F, 3>(reader, shape, primes, base, out, stride);
  default:
    return read_digits_of<F, 4>(reader, shape, primes, base, out, stride);
  }
}

// The digits from digit `index` on; beyond A's end they are zero.
template <class F>
void read_run(const typename F::DigitReader& reader, const Shape& shape, const Reductions<F>& primes,
              const u64* A, u64 L, u64 index, u64* out, u64 stride) {
  const u64 word = index / 64 * shape.b + index % 64 * shape.b / 64; // a run begins at a whole word
  const u64 needed = shape.run_words() + F::DigitReader::BEYOND;
  if (word + needed <= L) return read_digits<F>(reader, shape, primes, A + word, out, stride);
  if (word >= L) {
    for (u32 i = 0; i < primes.count; i++) {
      const auto zero = F::zero_digit(primes.of[i].k);
      for (u64 t = 0; t < shape.tile(); t += F::LANES) F::store(out + i * stride + t, zero);
    }
    return;
  }
  u64 tail[MAX_RUN_WORDS + F::DigitReader::BEYOND] = {};
  for (u64 i = 0; i < needed && word + i < L; i++) tail[i] = A[word + i];
  read_digits<F>(reader, shape, primes, tail, out, stride);
}

template <class F>
void forward_tile(const Shape& shape, u32 first, u32 last, const u64* A, u64 L, u64 tile, u64* data,
                  u64* area) {
  const u64 T = shape.tile(), R = shape.rows(), stride = R * T, column = tile * T;
  const typename F::DigitReader reader(shape.b);
  const Reductions<F> primes(shape, first, last);
  // Rows that hold digits. When they are at most half, the upper half of a first radix-4 step is zero.
  const u64 digits = L / shape.b * 64 + (L % shape.b * 64 + shape.b - 1) / shape.b;
  const u64 filled = (digits + shape.columns() - 1) >> shape.log_columns;
  const bool half = shape.r == 1 && filled <= R / 2 && shape.log_rows > 2;
  const u64 rows = half ? R / 2 : R;
  const u64 row_words = shape.columns() / 64 * shape.b, run_words = shape.run_words();
  for (u64 row = 0; row < rows; row++) {
    const u64 next = (row + 2) * row_words + tile * run_words;
    if (next + run_words <= L) {
      for (u64 i = 0; i < run_words + 7; i += 8) __builtin_prefetch(A + next + i, 0, 3);
    }
    read_run<F>(reader, shape, primes, A, L, (row << shape.log_columns) + column, area + row * T, stride);
  }
  for (u32 i = first; i < last; i++) {
    const Constants<F> c(prime_table(F::BACKEND, i));
    u64* const x = area + (i - first) * stride;
    u64* const to = data + (i - first) * shape.prime_stride() + shape.words_of(column);
    const MatrixRows<F> matrix{shape.log_tile, x, to, shape.row_stride(), shape.stream, shape.packed};
    const u32 size_log = shape.log_rows + shape.log_tile;
    if (shape.r == 3) {
      const u64 M = u64{1} << size_log;
      for (u64 t = 0; t < M; t += F::LANES) {
        auto x0 = F::load(x + t), x1 = F::load(x + t + M), x2 = F::load(x + t + 2 * M);
        F::forward3(x0, x1, x2, c.minus_half, c.third[0], c.k);
        F::store(x + t, x0);
        F::store(x + t + M, x1);
        F::store(x + t + 2 * M, x2);
      }
      for (u32 third = 0; third < 3; third++) {
        const Tree tree = column_tree<F>(shape, c.table, 0, third);
        forward<F>(tree, c, x + third * M, x + third * M, size_log, 0, 0, matrix);
      }
      continue;
    }
    const Tree tree = column_tree<F>(shape, c.table, 0, 0);
    if (half) {
      const u64 M = u64{1} << (size_log - 2);
      step4_forward_half<F>(c, x, M);
      for (u64 t = 0; t < 4; t++) forward<F>(tree, c, x + t * M, x + t * M, size_log - 2, 2, t, matrix);
    } else {
      forward<F>(tree, c, x, x, size_log, 0, 0, matrix);
    }
  }
  if (shape.stream) F::fence();
}

// The inverse reads its columns from memory in pieces of a cache line or few, so they are fetched ahead, and
// at all times, so that the memory is never idle: most of the next tile's while this one's residues are
// recombined, which takes the longer part of the time, and the rest, prime by prime, during the transforms.
// As many primes as leave room in a second-level cache.
template <u32 W> u32 primes_ahead(const Shape& shape) {
  constexpr u64 ROOM = u64{192} << 10;
  if (!shape.stream) return 0;
  const u64 bytes = shape.rows() * shape.tile() * 8, most = ROOM / bytes;
  return most < 1 ? 1 : most < 2 * W / 3 ? static_cast<u32>(most) : 2 * W / 3;
}
// The columns of a tile at `x` in one prime's matrix, and in the next ones'.
inline Ahead columns_ahead(const Shape& shape, const u64* x, u32 primes) {
  return {x, shape.row_stride(), (shape.words_of(shape.tile()) + 7) / 8, primes * shape.rows()};
}

template <class F, u32 W>
void inverse_tile_of(const Shape& shape, const u64* data, u64 tile, const Output& output, u64* area) {
  const u64 T = shape.tile(), R = shape.rows(), stride = R * T, column = shape.words_of(tile * T);
  const u32 fetched = primes_ahead<W>(shape);
  for (u32 i = 0; i < W; i++) {
    const Constants<F> c(prime_table(F::BACKEND, i));
    u64* const x = area + i * stride;
    // Read only: the inverse takes its rows from the matrix and leaves it alone.
    u64* const from = const_cast<u64*>(data) + i * shape.prime_stride() + column;
    const MatrixRows<F> matrix{shape.log_tile, x, from, shape.row_stride(), false, shape.packed};
    if (i + fetched < W) c.ahead = columns_ahead(shape, from + fetched * shape.prime_stride(), 1);
    const u32 size_log = shape.log_rows + shape.log_tile;
    const u64 M = u64{1} << size_log;
    for (u32 third = 0; third < shape.r; third++) {
      const Tree tree = column_tree<F>(shape, c.table, 1, third);
      inverse<F>(tree, c, x + third * M, size_log, 0, 0, matrix);
    }
    if (shape.r == 3) {
      for (u64 t = 0; t < M; t += F::LANES) {
        auto x0 = F::load(x + t), x1 = F::load(x + t + M), x2 = F::load(x + t + 2 * M);
        F::inverse3(x0, x1, x2, c.minus_half, c.third[1], c.k);
        F::store(x + t, x0);
        F::store(x + t + M, x1);
        F::store(x + t + 2 * M, x2);
      }
    }
  }
  const Recombiner<F, W> recombiner(shape, output.bias);
  u64 top = 0;
  const u64 run_words = shape.run_words(), overhang = shape.overhang_words();
  const u64 runs_of_row = shape.tiles();
  Ahead next_tile;
  if (tile + 1 < shape.tiles())
    next_tile = columns_ahead(shape, data + shape.words_of((tile + 1) * T), fetched);
  for (u64 row = 0; row < R; row += recombiner.RUNS) {
    const u64 first = (row * runs_of_row + tile) * run_words;
    if (first >= output.n) break;
    // Runs that do not end within the output are completed aside.
    alignas(64) u64 aside[recombiner.RUNS][MAX_RUN_WORDS];
    RunsTo to;
    to.overhang = output.overhang + (tile * R + row) * overhang;
    for (u64 i = 0; i < recombiner.RUNS; i++) {
      const u64 word = first + i * runs_of_row * run_words;
      to.words[i] = word + run_words <= output.n ? output.words + word : aside[i];
    }
    for (u64 i = 0; i < recombiner.RUNS; i++) { // the next group's words
      const u64 word = first + (recombiner.RUNS + i) * runs_of_row * run_words;
      if (word + run_words > output.n) break;
      const u64* const words = output.words + word;
      if (recombiner.STREAMS && shape.stream) { // but for the lines that it shares with its neighbours
        __builtin_prefetch(words, 1, 3);
        __builtin_prefetch(words + run_words - 1, 1, 3);
        continue;
      }
      for (u64 j = 0; j < run_words + 7; j += 8) __builtin_prefetch(words + j, 1, 3);
    }
    recombiner.put_runs(to, area + row * T, stride, output.top == nullptr ? nullptr : &top, next_tile,
                        fetched * recombiner.RUNS);
    for (u64 i = 0; i < recombiner.RUNS; i++) {
      const u64 word = first + i * runs_of_row * run_words;
      if (to.words[i] == aside[i] && word < output.n)
        std::memcpy(output.words + word, aside[i], 8 * (output.n - word));
    }
  }
  if (shape.stream) F::fence();
  if (output.top != nullptr) {
    u64 seen = output.top->load(std::memory_order_relaxed);
    while (seen < top && !output.top->compare_exchange_weak(seen, top, std::memory_order_relaxed)) {
    }
  }
}

template <class F>
void inverse_tile(const Shape& shape, const u64* data, u64 tile, const Output& output, u64* area) {
  switch (shape.w) {
  case 3:
    return inverse_tile_of<F, 3>(shape, data, tile, output, area);
  case 4:
    return inverse_tile_of<F, 4>(shape, data, tile, output, area);
  case 5:
    return inverse_tile_of<F, 5>(shape, data, tile, output, area);
  case 6:
    return inverse_tile_of<F, 6>(shape, data, tile, output, area);
  case 7:
    return inverse_tile_of<F, 7>(shape, data, tile, output, area);
  default:
    break;
  }
  if constexpr (primes_of(F::BACKEND).count > 7)
    return inverse_tile_of<F, 8>(shape, data, tile, output, area);
}

template <class F> constexpr Kernels make_kernels(const char* name) {
  return {F::BACKEND, name, forward_tile<F>, forward_row<F>, product_row<F>, inverse_tile<F>};
}

} // namespace
} // namespace kelvane::ntt

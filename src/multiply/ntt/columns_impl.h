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

// What is left of the columns' inverse when their residues are recombined: where eight runs are recombined
// side by side, the last step, which joins parts of the tile, is taken on the way, and what it makes is
// neither reduced nor stored.
enum class LastStep { none, four, eight };

// The rows of a tile in groups of RUNS: the same rows of all parts that four or eight are joined from,
// otherwise neighbours.
struct Groups {
  u64 rows, runs;
  u32 parts_log;
  u64 first(u64 group) const { return group * (runs >> parts_log); }
  u64 row(u64 group, u64 run) const {
    const u64 of_part = runs >> parts_log;
    return run / of_part * (rows >> parts_log) + first(group) + run % of_part;
  }
};

// The residues of the runs of a group.
template <class F, LastStep STEP> class Residues {
  using V = typename F::V;

public:
  Residues(const Shape& shape, const u64* x) : T_(shape.tile()), stride_(shape.rows() * T_), x_(x) {
    if constexpr (STEP != LastStep::none) {
      part_ = STEP == LastStep::four ? stride_ / 4 : stride_ / 8;
      for (u32 i = 0; i < shape.w; i++) {
        const PrimeTable& table = prime_table(F::BACKEND, i);
        const Tree tree = column_tree<F>(shape, table, 1, 0);
        const Node<F> root{tree, 0, 0};
        Prime& prime = primes_[i];
        prime.k = typename F::K(table.p);
        prime.factors[4] = root.at(1, 1);
        for (u64 t = 0; t < 4 && STEP == LastStep::eight; t++) prime.factors[t] = root.at(2, t);
      }
    }
  }
  // The group that begins with `row`.
  void select(u64 row) { row_ = x_ + row * T_; }
  // Of run 0, points t and on of prime i.
  const u64* points(u32 i, u64 t) const { return row_ + i * stride_ + t; }
  // A vector of prime i from point t on of every run, run l's in v[l]: in [0, 8).
  KELVANE_INLINE_LARGE void load(u32 i, u64 t, V (&v)[8]) const {
    const u64* const x = points(i, t);
    const typename F::Tw* const factors = primes_[STEP == LastStep::none ? 0 : i].factors;
    const typename F::K& k = primes_[STEP == LastStep::none ? 0 : i].k;
    if constexpr (STEP == LastStep::none) {
#pragma GCC unroll 8
      for (u32 run = 0; run < 8; run++) v[run] = F::load(x + run * T_);
    } else if constexpr (STEP == LastStep::four) {
#pragma GCC unroll 2
      for (u32 row = 0; row < 2; row++) {
#pragma GCC unroll 4
        for (u32 part = 0; part < 4; part++) v[2 * part + row] = F::load(x + part * part_ + row * T_);
        F::inverse4_root(v[row], v[2 + row], v[4 + row], v[6 + row], factors[4], k);
      }
    } else if constexpr (STEP == LastStep::eight) {
#pragma GCC unroll 8
      for (u32 part = 0; part < 8; part++) v[part] = F::load(x + part * part_);
#pragma GCC unroll 4
      for (u32 n = 0; n < 4; n++) F::inverse2(v[2 * n], v[2 * n + 1], factors[n], k);
#pragma GCC unroll 2
      for (u32 n = 0; n < 2; n++) F::inverse4_root(v[n], v[2 + n], v[4 + n], v[6 + n], factors[4], k);
    }
  }

private:
  struct Prime {
    typename F::K k{1};
    typename F::Tw factors[5]; // of the four radix-2 steps, and e(-1/4)
  };
  u64 T_, stride_, part_ = 0; // words
  const u64 *x_, *row_ = nullptr;
  Prime primes_[STEP == LastStep::none ? 1 : MAX_PRIMES];
};

// The last step that is left to the recombination of an output of n words. Joining thirds on the way would
// load each row three times. Joined rows lie all over the tile, which costs more than it saves where much of
// the tile's end lies beyond the output.
inline LastStep last_step(const Shape& shape, u64 n) {
  const u32 levels = levels_of_step(shape.log_rows);
  if (shape.r == 3 || levels < 2 || levels >= shape.log_rows) return LastStep::none;
  if (n < shape.capacity_words() / 8 * 7) return LastStep::none;
  return levels == 2 ? LastStep::four : LastStep::eight;
}

// Columns of tile `tile` up to `last`, into the area.
template <class F, u32 W>
void inverse_columns(const Shape& shape, const u64* data, u64 tile, LastStep last, u32 fetched, u64* area) {
  const u64 T = shape.tile(), column = shape.words_of(tile * T);
  for (u32 i = 0; i < W; i++) {
    const Constants<F> c(prime_table(F::BACKEND, i));
    u64* const x = area + i * shape.rows() * T;
    // Read only: the inverse takes its rows from the matrix and leaves it alone.
    u64* const from = const_cast<u64*>(data) + i * shape.prime_stride() + column;
    const MatrixRows<F> matrix{shape.log_tile, x, from, shape.row_stride(), false, shape.packed};
    if (i + fetched < W) c.ahead = columns_ahead(shape, from + fetched * shape.prime_stride(), 1);
    const u32 size_log = shape.log_rows + shape.log_tile;
    const u64 M = u64{1} << size_log;
    if (last == LastStep::four || last == LastStep::eight) {
      const u32 levels = last == LastStep::four ? 2 : 3;
      const Tree tree = column_tree<F>(shape, c.table, 1, 0);
      for (u64 t = 0; t < u64{1} << levels; t++)
        inverse<F>(tree, c, x + t * (M >> levels), size_log - levels, levels, t, matrix);
      continue;
    }
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
}

template <class F, u32 W, LastStep STEP>
void inverse_tile_by(const Shape& shape, const u64* data, u64 tile, const Output& output, u64* area) {
  const u64 T = shape.tile(), R = shape.rows();
  const u32 fetched = primes_ahead<W>(shape);
  inverse_columns<F, W>(shape, data, tile, STEP, fetched, area);
  const Recombiner<F, W> recombiner(shape, output.bias);
  constexpr u64 RUNS = Recombiner<F, W>::RUNS;
  const Groups groups{R, RUNS, STEP == LastStep::four ? 2u : STEP == LastStep::eight ? 3u : 0u};
  Residues<F, STEP> residues(shape, area);
  u64 top = 0;
  const u64 run_words = shape.run_words(), overhang = shape.overhang_words();
  const auto word_of = [&](u64 row) { return (row * shape.tiles() + tile) * run_words; };
  Ahead next_tile;
  if (tile + 1 < shape.tiles())
    next_tile = columns_ahead(shape, data + shape.words_of((tile + 1) * T), fetched);
  for (u64 group = 0; group < R / RUNS; group++) {
    if (word_of(groups.first(group)) >= output.n) break;
    // Runs that do not end within the output are completed aside.
    alignas(64) u64 aside[RUNS][MAX_RUN_WORDS];
    RunsTo to;
    for (u64 i = 0; i < RUNS; i++) {
      const u64 row = groups.row(group, i), word = word_of(row);
      to.words[i] = word + run_words <= output.n ? output.words + word : aside[i];
      to.overhang[i] = output.overhang + (tile * R + row) * overhang;
    }
    for (u64 i = 0; i < RUNS && group + 1 < R / RUNS; i++) { // the next group's words
      const u64 word = word_of(groups.row(group + 1, i));
      if (word + run_words > output.n) break;
      const u64* const words = output.words + word;
      if (recombiner.STREAMS && shape.stream) { // but for the lines that it shares with its neighbours
        __builtin_prefetch(words, 1, 3);
        __builtin_prefetch(words + run_words - 1, 1, 3);
        continue;
      }
      for (u64 j = 0; j < run_words + 7; j += 8) __builtin_prefetch(words + j, 1, 3);
    }
    residues.select(groups.first(group));
    recombiner.put_runs(to, residues, output.top == nullptr ? nullptr : &top, next_tile, fetched * RUNS);
    for (u64 i = 0; i < RUNS; i++) {
      const u64 word = word_of(groups.row(group, i));
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

template <class F, u32 W>
void inverse_tile_of(const Shape& shape, const u64* data, u64 tile, const Output& output, u64* area) {
  if constexpr (F::BACKEND == Backend::ifma) {
    switch (last_step(shape, output.n)) {
    case LastStep::four:
      return inverse_tile_by<F, W, LastStep::four>(shape, data, tile, output, area);
    case LastStep::eight:
      return inverse_tile_by<F, W, LastStep::eight>(shape, data, tile, output, area);
    case LastStep::none:
      break;
    }
  }
  inverse_tile_by<F, W, LastStep::none>(shape, data, tile, output, area);
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

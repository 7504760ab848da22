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
  Reductions(u32 first, u32 last) : count(last - first) {
    for (u32 i = 0; i < count; i++) {
      const PrimeTable& table = prime_table(F::BACKEND, first + i);
      of[i].k = typename F::K(table.p);
      for (u32 j = 0; j < MAX_LIMBS; j++) of[i].power[j] = F::broadcast(table.limb[j]);
    }
  }
};

// T digits from the beginning of `base` on, as residues of every prime: out + i * stride.
template <class F>
void read_digits(const typename F::DigitReader& reader, const Shape& shape, const Reductions<F>& primes,
                 const u64* base, u64* out, u64 stride) {
  constexpr u32 GROUP = F::LANES == 1 ? 1 : 2; // vectors converted together: their constants are loaded once
  const u64 T = shape.tile();
  for (u64 t = 0; t < T; t += GROUP * F::LANES) {
    typename F::Limb limbs[MAX_LIMBS][GROUP];
    const u32 vectors = T - t < GROUP * F::LANES ? static_cast<u32>((T - t) / F::LANES) : GROUP;
    for (u32 j = 0; j < reader.limbs; j++) {
      for (u32 v = 0; v < vectors; v++) limbs[j][v] = reader.read(base, (t + v * F::LANES) * shape.b, j);
    }
    for (u32 i = 0; i < primes.count; i++) {
      const Reduction<F>& prime = primes.of[i];
      typename F::V sum[GROUP];
      for (u32 v = 0; v < vectors; v++) sum[v] = F::first_limb(limbs[0][v], prime.k);
      for (u32 j = 1; j < reader.limbs; j++) {
        for (u32 v = 0; v < vectors; v++) sum[v] = F::next_limb(sum[v], limbs[j][v], prime.power[j], prime.k);
      }
      for (u32 v = 0; v < vectors; v++)
        F::store(out + i * stride + t + v * F::LANES, F::last_limb(sum[v], prime.k));
    }
  }
}

// The digits from digit `index` on; beyond A's end they are zero.
template <class F>
void read_run(const typename F::DigitReader& reader, const Shape& shape, const Reductions<F>& primes,
              const u64* A, u64 L, u64 index, u64* out, u64 stride) {
  const u64 word = index / 64 * shape.b + index % 64 * shape.b / 64; // a run begins at a whole word
  const u64 needed = shape.run_words() + 4;                          // what the loads may touch
  if (word + needed <= L) return read_digits<F>(reader, shape, primes, A + word, out, stride);
  if (word >= L) {
    for (u32 i = 0; i < primes.count; i++) {
      const auto zero = F::zero_digit(primes.of[i].k);
      for (u64 t = 0; t < shape.tile(); t += F::LANES) F::store(out + i * stride + t, zero);
    }
    return;
  }
  u64 tail[MAX_RUN_WORDS] = {};
  for (u64 i = 0; i < needed && word + i < L; i++) tail[i] = A[word + i];
  read_digits<F>(reader, shape, primes, tail, out, stride);
}

template <class F>
void forward_tile(const Shape& shape, u32 first, u32 last, const u64* A, u64 L, u64 tile, u64* data,
                  u64* area) {
  const u64 T = shape.tile(), R = shape.rows(), stride = R * T, column = tile * T;
  const typename F::DigitReader reader(shape.b);
  const Reductions<F> primes(first, last);
  // Rows that hold digits. When they are at most half, the upper half of a first radix-4 step is zero.
  const u64 digits = L / shape.b * 64 + (L % shape.b * 64 + shape.b - 1) / shape.b;
  const u64 filled = (digits + shape.columns() - 1) >> shape.log_columns;
  const bool half = shape.r == 1 && filled <= R / 2 && shape.log_rows >= 2;
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
        forward<F, false>(tree, c, x + third * M, size_log, shape.log_tile, 0, 0);
      }
    } else {
      const Tree tree = column_tree<F>(shape, c.table, 0, 0);
      if (half) {
        const u64 M = u64{1} << (size_log - 2);
        step4_forward_half<F>(c, x, M);
        if (shape.log_rows > 2) {
          for (u64 t = 0; t < 4; t++)
            forward<F, false>(tree, c, x + t * M, size_log - 2, shape.log_tile, 2, t);
        }
      } else {
        forward<F, false>(tree, c, x, size_log, shape.log_tile, 0, 0);
      }
    }
    u64* const out = data + (i - first) * shape.prime_stride() + column;
    for (u64 row = 0; row < R; row++) {
      for (u64 t = 0; t < T; t += F::LANES) {
        const auto v = F::load(x + row * T + t);
        u64* const to = out + row * shape.row_stride() + t;
        if (shape.stream)
          F::stream(to, v);
        else
          F::store(to, v);
      }
    }
  }
  if (shape.stream) F::fence();
}

template <class F, u32 W>
void inverse_tile_of(const Shape& shape, const u64* data, u64 tile, const Output& output, u64* area) {
  const u64 T = shape.tile(), R = shape.rows(), stride = R * T, column = tile * T;
  for (u32 i = 0; i < W; i++) {
    const Constants<F> c(prime_table(F::BACKEND, i));
    u64* const x = area + i * stride;
    const u64* const in = data + i * shape.prime_stride() + column;
    for (u64 row = 0; row < R; row++) {
      for (u64 t = 0; t < T; t += F::LANES)
        F::store(x + row * T + t, F::load(in + row * shape.row_stride() + t));
    }
    // Meanwhile the next prime's columns come in, after the last prime those of the next tile.
    if (shape.stream && (i + 1 < W || tile + 1 < shape.tiles())) {
      c.ahead = {i + 1 < W ? in + shape.prime_stride() : data + column + T, shape.row_stride(), T / 8, R};
    }
    const u32 size_log = shape.log_rows + shape.log_tile;
    const u64 M = u64{1} << size_log;
    for (u32 third = 0; third < shape.r; third++) {
      const Tree tree = column_tree<F>(shape, c.table, 1, third);
      inverse<F, false>(tree, c, x + third * M, size_log, shape.log_tile, 0, 0);
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
  for (u64 row = 0; row < R; row++) {
    const u64 run = (row << (shape.log_columns - shape.log_tile)) + tile, word = run * run_words;
    if (word >= output.n) continue;
    const u64 ahead = word + (run_words << (shape.log_columns - shape.log_tile + 1));
    if (ahead + run_words <= output.n) {
      for (u64 i = 0; i < run_words + 7; i += 8) __builtin_prefetch(output.words + ahead + i, 1, 3);
    }
    alignas(64) u64 sum[MAX_RUN_WORDS];
    for (u64 i = 0; i < run_words + overhang + 8; i++) sum[i] = 0;
    recombiner.add_run(sum, area + row * T, stride, T, output.top == nullptr ? nullptr : &top);
    const u64 count = output.n - word < run_words ? output.n - word : run_words;
    for (u64 i = 0; i < count; i++) output.words[word + i] = sum[i];
    for (u64 i = 0; i < overhang; i++) output.overhang[(tile * R + row) * overhang + i] = sum[run_words + i];
  }
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

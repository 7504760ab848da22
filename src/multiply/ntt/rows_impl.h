// Rows: forward transform, pointwise products, inverse transform, on a backend F.
//
// The factors of a row are stored ones when the whole transform is short. Otherwise the thread makes the
// row's lists in its area from those of the first row, one product per entry (about 1/4 entry per point),
// which is cheaper than reading long lists from memory.
#pragma once

#include "multiply/ntt/kernels.h"
#include "multiply/ntt/passes_impl.h"

namespace kelvane::ntt {
namespace {

constexpr u32 exponent(u32 tree, u32 level) {
  return (tree << (level & 1)) % 3;
} // tree * 2^level modulo 3

template <class F>
Tree direct_tree(const Shape& shape, const PrimeTable& table, u32 direction, u32 third, u64 row) {
  constexpr BackendShape KERNEL = shape_of(F::BACKEND);
  Tree tree{};
  for (u32 level = 0; level < shape.log_columns; level++) {
    tree.s[level] = table.s[direction][exponent(third, shape.log_rows + level + 1)] + (row << level);
  }
  tree.s_quotients = u64{1} << KERNEL.s_log;
  if constexpr (KERNEL.u_log != 0) {
    const u32 level = shape.log_columns - KERNEL.base_log;
    tree.u = table.u[direction][exponent(third, shape.log_rows + level)] + (row << level) * KERNEL.lanes;
    tree.u_quotients = u64{1} << KERNEL.u_log;
  }
  return tree;
}

// The lists from level `first` on.
template <class F>
Tree made_tree(const Shape& shape, u32 prime, u32 direction, u32 third, u64 row, u32 first, u64* memory,
               const typename F::K& k) {
  constexpr BackendShape KERNEL = shape_of(F::BACKEND);
  constexpr u32 L = F::LANES;
  const PrimeTable& table = prime_table(F::BACKEND, prime);
  RowConstants constants;
  row_constants(constants, F::BACKEND, prime, direction, third, row, shape.log_rows, shape.log_columns);
  const auto reciprocal = F::reciprocal(table.p);
  // Their quotients.
  alignas(64) u64 factors[2 * RowConstants::COUNT];
  const typename F::Scale one{F::broadcast(table.one), reciprocal};
  for (u32 i = 0; i < RowConstants::COUNT; i += L)
    F::store(factors + i, RowConstants::COUNT, F::scale(F::load(constants.value + i), one, k));

  Tree tree{};
  const u64 quotients = shape.row_list_words() / 2; // used by backends that have them
  tree.s_quotients = tree.u_quotients = quotients;
  u64* out = memory;
  const u32 levels = shape.log_columns - KERNEL.base_log + KERNEL.node_levels;
  for (u32 level = first; level < levels; level++) {
    const typename F::Scale by{F::broadcast(factors + level, RowConstants::COUNT), reciprocal};
    tree.s[level] = out;
    for (u64 j = 0; j < u64{1} << level; j += L, out += L) {
      F::store(out, quotients, F::scale(F::load(table.s[direction][0] + j), by, k));
    }
  }
  if constexpr (KERNEL.u_log != 0) {
    const typename F::Scale by{F::lanes(factors + RowConstants::BLOCK, RowConstants::COUNT), reciprocal};
    tree.u = out;
    for (u64 j = 0; j < shape.columns() >> KERNEL.base_log; j++, out += L) {
      F::store(out, quotients, F::scale(F::load(table.u[direction][0] + j * L), by, k));
    }
  }
  return tree;
}

// The factors of a row, from level `first` on.
template <class F>
Tree row_tree(const Shape& shape, u32 prime, u32 direction, u64 row, u32 first, u64* memory,
              const typename F::K& k) {
  const u32 third = static_cast<u32>(row >> shape.log_rows);
  const u64 node = row & ((u64{1} << shape.log_rows) - 1);
  if (shape.direct) return direct_tree<F>(shape, prime_table(F::BACKEND, prime), direction, third, node);
  return made_tree<F>(shape, prime, direction, third, node, first,
                      memory + direction * shape.row_list_words(), k);
}

// to <- the transform of the row at `from`, which may be `to` unless it is packed.
template <class F>
void forward_points(const Shape& shape, const Tree& tree, const Constants<F>& c, const u64* from, u64* to) {
  if constexpr (F::PACKS) {
    if (shape.packed) return forward_packed<F>(tree, c, from, to, shape.log_columns, BaseBlocks<F>());
  }
  forward<F>(tree, c, from, to, shape.log_columns, 0, 0, BaseBlocks<F>());
}

// Row x <- its transform, through `buffer`, a row's points.
template <class F>
void transform_row(const Shape& shape, const Tree& tree, const Constants<F>& c, u64* x, u64* buffer) {
  if constexpr (F::PACKS) {
    if (shape.packed) {
      return forward_packed<F>(tree, c, x, buffer, shape.log_columns, PackedBlocks<F>(buffer, x));
    }
  }
  forward_points<F>(shape, tree, c, x, x);
}

// Fetch the row at x, and the one at `other`, unless null, during the next pass over a row.
template <class F>
void row_ahead(const Shape& shape, const Constants<F>& c, const u64* x, const u64* other = nullptr) {
  constexpr u64 POINTS = u64{1} << shape_of(F::BACKEND).base_log;
  if (!shape.stream) return; // the hardware sees to what is near
  const u64 words = shape.words_of(POINTS);
  c.ahead = {x, words, words / 8, shape.columns() / POINTS, other};
}

template <class F> void forward_row(const Shape& shape, u32 prime, u64 row, u64* x, u64* area) {
  const Constants<F> c(prime_table(F::BACKEND, prime));
  const Tree tree = row_tree<F>(shape, prime, 0, row, 0, area + 2 * shape.columns(), c.k);
  if (row + 1 < shape.rows()) row_ahead<F>(shape, c, x + shape.row_stride());
  transform_row<F>(shape, tree, c, x, area);
}

// The level of the factors by which the products of polynomials are reduced, the last one.
template <class F> u32 moduli_level(const Shape& shape) {
  return shape.log_columns - shape_of(F::BACKEND).base_log + 2;
}

// A transformed row, a factor of pointwise products.
struct Points {
  const u64* at;
  bool packed;
};

// out <- x y with its sign, the first of `count`, or out +- x y.
template <class F, bool PACKED_X, bool PACKED_Y>
void multiply_polynomials(const Shape& shape, const Tree& tree, const Constants<F>& c, u64* out, const u64* x,
                          const u64* y, u32 n, u32 count, bool subtract) {
  const auto& k = c.k;
  const u64* s = tree.s[moduli_level<F>(shape)];
  for (u64 i = 0; i < shape.columns(); i += 64, s += 4) {
    typename F::V v[8];
    c.ahead.advance(1);
    const auto moduli = F::moduli(s, tree.s_quotients, k);
    const u64 *const xi = x + (PACKED_X ? i / 4 * 3 : i), *const yi = y + (PACKED_Y ? i / 4 * 3 : i);
    if (PACKED_X == PACKED_Y && x == y)
      F::template square_polynomials<PACKED_X>(v, xi, moduli, k);
    else
      F::template multiply_polynomials<PACKED_X, PACKED_Y>(v, xi, yi, moduli, k);
    for (u32 t = 0; t < 8; t++) {
      u64* const to = out + i + 8 * t;
      if (n != 0)
        v[t] = F::accumulate(F::load(to), v[t], subtract, k);
      else if (count != 1)
        v[t] = F::first_term(v[t], subtract, k);
      else if (subtract)
        v[t] = F::negative(v[t], k);
      F::store(to, v[t]);
    }
  }
}

template <class F>
void multiply_points(const Shape& shape, const Tree& tree, const Constants<F>& c, u64* out, const Points& x,
                     const Points& y, u32 n, u32 count, bool subtract) {
  const auto& k = c.k;
  if constexpr (shape_of(F::BACKEND).left_levels != 0) {
    const auto multiply =
        x.packed ? (y.packed ? multiply_polynomials<F, true, true> : multiply_polynomials<F, true, false>)
                 : (y.packed ? multiply_polynomials<F, false, true> : multiply_polynomials<F, false, false>);
    multiply(shape, tree, c, out, x.at, y.at, n, count, subtract);
  } else {
    for (u64 i = 0; i < shape.columns(); i += F::LANES) {
      if (i % (u64{1} << shape_of(F::BACKEND).base_log) == 0) c.ahead.advance(1);
      auto v = F::product(F::load(x.at + i), F::load(y.at + i), k);
      if (n != 0)
        v = F::accumulate(F::load(out + i), v, subtract, k);
      else if (subtract)
        v = F::negative(v, k);
      if (n != 0 && n + 1 == count) v = F::settled(v, k);
      F::store(out + i, v);
    }
  }
}

template <class F>
void product_row(const Shape& shape, u32 prime, u64 row, const RowPair* pairs, u32 count, u64* area) {
  const Constants<F> c(prime_table(F::BACKEND, prime));
  const auto& k = c.k;
  const u64 C = shape.columns();
  const bool packed = shape.packed;
  u64* const lists = area + 2 * C;
  bool raw = false;
  for (u32 i = 0; i < count; i++) raw = raw || pairs[i].x_raw || pairs[i].y_raw;
  Tree tree{};
  if (raw)
    tree = row_tree<F>(shape, prime, 0, row, 0, lists, k);
  else if (shape_of(F::BACKEND).left_levels != 0)
    tree = row_tree<F>(shape, prime, 0, row, moduli_level<F>(shape), lists, k);

  // The sum grows where the first row lies, or if that is packed, in the area.
  u64* const out = packed ? area : pairs[0].x;
  for (u32 n = 0; n < count; n++) {
    const RowPair& pair = pairs[n];
    Points x{pair.x, packed};
    if (pair.x_raw && n == 0) {
      if (pair.y != pair.x) row_ahead<F>(shape, c, pair.y);
      forward_points<F>(shape, tree, c, pair.x, out);
      x = {out, false};
    } else if (pair.x_raw) {
      transform_row<F>(shape, tree, c, pair.x, area + C);
    }
    Points y = x;
    if (pair.y != pair.x) {
      y = {pair.y, packed};
      if (pair.y_raw) {
        // A row that may be overwritten is transformed where it lies: elsewhere takes 2 % longer.
        u64* const to = pair.y_free && !packed ? const_cast<u64*>(pair.y) : area + C;
        forward_points<F>(shape, tree, c, pair.y, to);
        y = {to, false};
      }
    }
    // The next row's factors, but for the first, which the inverse fetches.
    if (row + 1 < shape.rows()) {
      const u64 *const next_x = pair.x + shape.row_stride(), *const next_y = pair.y + shape.row_stride();
      if (n != 0)
        row_ahead<F>(shape, c, next_x, pair.y == pair.x ? nullptr : next_y);
      else if (!pair.x_raw && pair.y != pair.x)
        row_ahead<F>(shape, c, next_y);
    }
    multiply_points<F>(shape, tree, c, out, x, y, n, count, pair.subtract);
  }
  const Tree back = row_tree<F>(shape, prime, 1, row, 0, lists, k);
  if (row + 1 < shape.rows()) row_ahead<F>(shape, c, pairs[0].x + shape.row_stride());
  if constexpr (F::PACKS) {
    if (packed) return inverse_packed<F>(back, c, out, pairs[0].x, shape.log_columns, BaseBlocks<F>());
  }
  inverse<F>(back, c, out, shape.log_columns, 0, 0, BaseBlocks<F>());
}

} // namespace
} // namespace kelvane::ntt

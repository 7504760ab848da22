// The transforms of one row, and of the columns of one tile, on a backend F.
//
// Depth first: a node's radix-4 steps run until its part fits the nearest cache and ends in base blocks. The
// inverse mirrors every step. A node is (level, j), its factor tree.s[level][j].
#pragma once

#include <type_traits>

#include "multiply/ntt/shape.h"
#include "multiply/ntt/twiddles.h"

namespace kelvane::ntt {
namespace {

constexpr u32 MAX_LEVELS = MAX_COLUMNS_LOG + 1;

// The factors of one tree in one direction.
struct Tree {
  const u64* s[MAX_LEVELS];
  u64 s_quotients = 0; // from a factor to its quotient
  const u64* u = nullptr;
  u64 u_quotients = 0;
};

// Memory that will be read next, fetched into the second-level cache part by part while this data is worked
// on.
struct Ahead {
  const u64* at = nullptr;
  u64 stride = 0; // words from part to part
  u64 lines = 0;  // cache lines of a part
  u64 parts = 0;
  const u64* other = nullptr; // if there, parts that are fetched together with those at `at`
  void advance(u64 count) {
    for (; count > 0 && parts > 0; count--, parts--) {
      fetch(at);
      if (other != nullptr) fetch(other);
    }
  }

private:
  void fetch(const u64*& part) const {
    for (u64 i = 0; i < lines; i++) __builtin_prefetch(part + 8 * i, 0, 2);
    part += stride;
  }
};

// A prime's constants in registers' form.
template <class F> struct Constants {
  typename F::K k;
  typename F::Tw turns[2][3], minus_half, third[2];
  const PrimeTable& table;
  mutable Ahead ahead; // advanced by one part per base block, or per part that is left alone
  explicit Constants(const PrimeTable& t)
      : k(t.p),
        minus_half(F::broadcast(t.minus_half)), third{F::broadcast(t.third[0]), F::broadcast(t.third[1])},
        table(t) {
    for (int d = 0; d < 2; d++) {
      for (int i = 0; i < 3; i++) turns[d][i] = F::broadcast(t.turns[d][i]);
    }
  }
};

template <class F> struct Node {
  const Tree& tree;
  u32 level;
  u64 j;
  [[gnu::always_inline]] typename F::Tw at(u32 down, u64 child) const {
    return F::broadcast(tree.s[level + down] + ((j << down) + child), tree.s_quotients);
  }
};

// How points lie in memory: a word each; the same, written around the caches; or packed, where four vectors
// make a group of three lines. Packed output goes around the caches from a forward step, the columns' last,
// and into them from an inverse one, the rows' last.
enum class Form { plain, streamed, packed };

// A step of 2^steps parts of M points: from parts `from_stride` words apart to parts `to_stride` words apart,
// which may be the same.
struct Parts {
  const u64* from;
  u64 from_stride;
  u64* to;
  u64 to_stride;
};
inline Parts in_place(u64* d, u64 M) {
  return {d, M, d, M};
}
// A step of PARTS parts, vector by vector: f makes the outputs of a vector of every part from its inputs,
// reduced ones where they are packed. Of packed groups the last vector comes first, as its bits go to the
// lines of the others.
template <class F, u32 PARTS, bool INVERSE, Form FROM, Form TO, class Butterfly>
[[gnu::always_inline]] inline void for_vectors(const Parts& parts, u64 M, const Butterfly& f) {
  constexpr bool GROUPS = FROM == Form::packed || TO == Form::packed;
  constexpr u32 GROUP = (GROUPS ? 4 : 1) * F::LANES; // points
  constexpr u32 FROM_WORDS = FROM == Form::packed ? GROUP / 4 * 3 : GROUP;
  constexpr u32 TO_WORDS = TO == Form::packed ? GROUP / 4 * 3 : GROUP;
  Parts d = parts; // stores to the data cannot change a copy, so it stays in registers
  for (u64 i = 0; i < M; i += GROUP, d.from += FROM_WORDS, d.to += TO_WORDS) {
    typename F::V last[PARTS];
    const auto vector = [&](auto number) __attribute__((always_inline)) {
      constexpr u32 I = number;
      typename F::V x[PARTS];
#pragma GCC unroll 8
      for (u32 t = 0; t < PARTS; t++) {
        const u64* const from = d.from + t * d.from_stride;
        if constexpr (FROM == Form::packed)
          x[t] = F::template unpack<I>(from);
        else
          x[t] = F::load(from + I * F::LANES);
      }
      f(x);
#pragma GCC unroll 8
      for (u32 t = 0; t < PARTS; t++) {
        u64* const to = d.to + t * d.to_stride + I * F::LANES;
        if constexpr (TO == Form::packed) {
          if constexpr (I == 3)
            last[t] = x[t];
          else if constexpr (INVERSE)
            F::store(to, F::template line<I>(x[t], last[t]));
          else
            F::stream(to, F::template line<I>(x[t], last[t]));
        } else if constexpr (TO == Form::streamed) {
          F::stream(to, x[t]);
        } else {
          F::store(to, x[t]);
        }
      }
    };
    if constexpr (GROUPS) vector(std::integral_constant<u32, 3>());
    vector(std::integral_constant<u32, 0>());
    if constexpr (GROUPS) {
      vector(std::integral_constant<u32, 1>());
      vector(std::integral_constant<u32, 2>());
    }
  }
}

// The outputs of a radix-2 step, or of a radix-8 step forward, are reduced behind it: it is seldom packed.
template <class F, u32 PARTS, Form TO>
[[gnu::always_inline]] inline void settle(typename F::V* x, const typename F::K& k) {
  if constexpr (TO == Form::packed) {
    for (u32 t = 0; t < PARTS; t++) x[t] = F::reduce(x[t], k);
  }
}

template <class F, Form FROM, Form TO>
void step2_forward(const Node<F>& n, const typename F::K& constants, const Parts& parts, u64 M) {
  const typename F::K k = constants;
  const auto s = n.at(0, 0);
  for_vectors<F, 2, false, FROM, TO>(parts, M, [&](auto* x) {
    F::forward2(x[0], x[1], s, k);
    settle<F, 2, TO>(x, k);
  });
}
template <class F, Form FROM, Form TO>
void step2_inverse(const Node<F>& n, const typename F::K& constants, const Parts& parts, u64 M) {
  const typename F::K k = constants;
  const auto s = n.at(0, 0);
  for_vectors<F, 2, true, FROM, TO>(parts, M, [&](auto* x) {
    F::inverse2(x[0], x[1], s, k);
    settle<F, 2, TO>(x, k);
  });
}

template <class F, Form FROM, Form TO>
void step4_forward(const Node<F>& n, const typename F::K& constants, const Parts& parts, u64 M) {
  static_assert(FROM != Form::packed || TO != Form::packed);
  const typename F::K k = constants;
  const auto s2 = n.at(0, 0), s = n.at(1, 0), is = n.at(1, 1);
  for_vectors<F, 4, false, FROM, TO>(parts, M, [&](auto* x) {
    if constexpr (FROM == Form::packed)
      F::forward4_unpacked(x[0], x[1], x[2], x[3], s2, s, is, k);
    else if constexpr (TO == Form::packed)
      F::forward4_reduced(x[0], x[1], x[2], x[3], s2, s, is, k);
    else
      F::forward4(x[0], x[1], x[2], x[3], s2, s, is, k);
  });
}
// SETTLED: values as small as the recombination wants them, which backends with SETTLES otherwise leave
// larger.
template <class F, bool SETTLED, Form TO>
[[gnu::always_inline]] inline void
inverse4(typename F::V& x0, typename F::V& x1, typename F::V& x2, typename F::V& x3, const typename F::Tw& s2,
         const typename F::Tw& s, const typename F::Tw& is, const typename F::K& k) {
  if constexpr (TO == Form::packed)
    F::inverse4_reduced(x0, x1, x2, x3, s2, s, is, k);
  else if constexpr (SETTLED && F::SETTLES)
    F::inverse4_settled(x0, x1, x2, x3, s2, s, is, k);
  else
    F::inverse4(x0, x1, x2, x3, s2, s, is, k);
}
template <class F, Form FROM, Form TO, bool SETTLED>
void step4_inverse(const Node<F>& n, const typename F::K& constants, const Parts& parts, u64 M) {
  const typename F::K k = constants;
  const auto s2 = n.at(0, 0), s = n.at(1, 0), is = n.at(1, 1);
  for_vectors<F, 4, true, FROM, TO>(
      parts, M, [&](auto* x) { inverse4<F, SETTLED, TO>(x[0], x[1], x[2], x[3], s2, s, is, k); });
}
// At the root, with nothing in the upper half.
template <class F> void step4_forward_half(const Constants<F>& c, u64* d, u64 M) {
  const auto i4 = c.turns[0][0];
  for (u64 i = 0; i < M; i += F::LANES) {
    u64* const e = d + i;
    auto x0 = F::load(e), x1 = F::load(e + M), x2 = x0, x3 = x0;
    F::forward4_half(x0, x1, x2, x3, i4, c.k);
    F::store(e, x0);
    F::store(e + M, x1);
    F::store(e + 2 * M, x2);
    F::store(e + 3 * M, x3);
  }
}
// Eight parts at node (level, j), each with its neighbours' factors.
template <class F, Form FROM = Form::plain>
[[gnu::always_inline]] inline void split8(const Node<F>& n, typename F::V* x, const typename F::K& k) {
  const auto s2 = n.at(0, 0), s = n.at(1, 0), is = n.at(1, 1);
  for (u32 t = 0; t < 2; t++) {
    if constexpr (FROM == Form::packed)
      F::forward4_unpacked(x[t], x[t + 2], x[t + 4], x[t + 6], s2, s, is, k);
    else
      F::forward4(x[t], x[t + 2], x[t + 4], x[t + 6], s2, s, is, k);
  }
}
template <class F, Form TO = Form::plain, bool SETTLED = false>
[[gnu::always_inline]] inline void join8(const Node<F>& n, typename F::V* x, const typename F::K& k) {
  const auto s2 = n.at(0, 0), s = n.at(1, 0), is = n.at(1, 1);
  for (u32 t = 0; t < 2; t++) inverse4<F, SETTLED, TO>(x[t], x[t + 2], x[t + 4], x[t + 6], s2, s, is, k);
}

// A radix-8 step: a radix-4 step over both halves of every quarter, then a radix-2 step in each quarter.
template <class F, Form FROM, Form TO>
void step8_forward(const Node<F>& n, const typename F::K& constants, const Parts& parts, u64 M) {
  const typename F::K k = constants;
  for_vectors<F, 8, false, FROM, TO>(parts, M, [&](auto* x) {
    split8<F, FROM>(n, x, k);
    for (u64 t = 0; t < 4; t++) F::forward2(x[2 * t], x[2 * t + 1], n.at(2, t), k);
    settle<F, 8, TO>(x, k);
  });
}
template <class F, Form FROM, Form TO, bool SETTLED>
void step8_inverse(const Node<F>& n, const typename F::K& constants, const Parts& parts, u64 M) {
  const typename F::K k = constants;
  for_vectors<F, 8, true, FROM, TO>(parts, M, [&](auto* x) {
    for (u64 t = 0; t < 4; t++) F::inverse2(x[2 * t], x[2 * t + 1], n.at(2, t), k);
    join8<F, TO, SETTLED>(n, x, k);
  });
}

template <class F, Form FROM = Form::plain, Form TO = Form::plain>
void step_forward(u32 steps, const Node<F>& node, const typename F::K& k, const Parts& d, u64 M) {
  if (steps == 2)
    step4_forward<F, FROM, TO>(node, k, d, M);
  else if (steps == 3)
    step8_forward<F, FROM, TO>(node, k, d, M);
  else
    step2_forward<F, FROM, TO>(node, k, d, M);
}
template <class F, Form FROM = Form::plain, Form TO = Form::plain, bool SETTLED = false>
void step_inverse(u32 steps, const Node<F>& node, const typename F::K& k, const Parts& d, u64 M) {
  if (steps == 2)
    step4_inverse<F, FROM, TO, SETTLED>(node, k, d, M);
  else if (steps == 3)
    step8_inverse<F, FROM, TO, SETTLED>(node, k, d, M);
  else
    step2_inverse<F, FROM, TO>(node, k, d, M);
}

// Base blocks j .. j + I - 1, interleaved so that their chains of dependent operations overlap, with all
// loops unrolled so that they stay in registers.
//
// Down to polynomials: eight of eight coefficients a block, coefficient t of all of them in vector t.
template <class F, u32 I>
[[gnu::always_inline]] inline void polynomials_forward(const Tree& tree, const Constants<F>& c, u64* d,
                                                       u32 level, u64 j) {
  const typename F::K k = c.k;
  typename F::V x[I][8];
#pragma GCC unroll 2
  for (u32 n = 0; n < I; n++) {
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; i++) x[n][i] = F::load(d + 8 * (8 * n + i));
  }
#pragma GCC unroll 2
  for (u32 i = 0; i < 2; i++) {
#pragma GCC unroll 2
    for (u32 n = 0; n < I; n++) {
      const Node<F> node{tree, level, j + n};
      F::forward4(x[n][i], x[n][i + 2], x[n][i + 4], x[n][i + 6], node.at(0, 0), node.at(1, 0), node.at(1, 1),
                  k);
    }
  }
#pragma GCC unroll 4
  for (u32 i = 0; i < 4; i++) {
#pragma GCC unroll 2
    for (u32 n = 0; n < I; n++)
      F::forward2_last(x[n][2 * i], x[n][2 * i + 1], Node<F>{tree, level, j + n}.at(2, i), k);
  }
#pragma GCC unroll 2
  for (u32 n = 0; n < I; n++) {
    F::transpose(x[n]);
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; i++) F::store(d + 8 * (8 * n + i), x[n][i]);
  }
}
template <class F, u32 I>
[[gnu::always_inline]] inline void polynomials_inverse(const Tree& tree, const Constants<F>& c, u64* d,
                                                       u32 level, u64 j) {
  const typename F::K k = c.k;
  typename F::V x[I][8];
#pragma GCC unroll 2
  for (u32 n = 0; n < I; n++) {
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; i++) x[n][i] = F::load(d + 8 * (8 * n + i));
    F::transpose(x[n]);
  }
#pragma GCC unroll 4
  for (u32 i = 0; i < 4; i++) {
#pragma GCC unroll 2
    for (u32 n = 0; n < I; n++)
      F::inverse2_first(x[n][2 * i], x[n][2 * i + 1], Node<F>{tree, level, j + n}.at(2, i), k);
  }
#pragma GCC unroll 2
  for (u32 i = 0; i < 2; i++) {
#pragma GCC unroll 2
    for (u32 n = 0; n < I; n++) {
      const Node<F> node{tree, level, j + n};
      F::inverse4(x[n][i], x[n][i + 2], x[n][i + 4], x[n][i + 6], node.at(0, 0), node.at(1, 0), node.at(1, 1),
                  k);
    }
  }
#pragma GCC unroll 2
  for (u32 n = 0; n < I; n++) {
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; i++) F::store(d + 8 * (8 * n + i), x[n][i]);
  }
}
// Down to points, with a cyclic transform across the lanes.
template <class F, u32 I>
[[gnu::always_inline]] inline void blocks_forward(const Tree& tree, const Constants<F>& c, u64* d, u32 level,
                                                  u64 j) {
  constexpr u32 L = F::LANES;
  const auto& k = c.k;
  typename F::V x[I][L];
  for (u32 n = 0; n < I; n++) {
    for (u32 i = 0; i < L; i++) x[n][i] = F::load(d + (n * L + i) * L);
  }
  for (u32 n = 0; n < I; n++) {
    const Node<F> node{tree, level, j + n};
    if constexpr (L == 8) {
      split8<F>(node, x[n], k);
      for (u32 i = 0; i < 4; i++) F::forward2(x[n][2 * i], x[n][2 * i + 1], node.at(2, i), k);
    } else {
      F::forward4(x[n][0], x[n][1], x[n][2], x[n][3], node.at(0, 0), node.at(1, 0), node.at(1, 1), k);
    }
  }
  for (u32 n = 0; n < I; n++) F::transpose(x[n]);
  for (u32 b = 1; b < L; b++) {
    const typename F::Tw z = F::lanes(c.table.lane[0] + b * L, LANE_QUOTIENTS);
    for (u32 n = 0; n < I; n++) x[n][b] = F::mul(x[n][b], z, k);
  }
  for (u32 b = 1; b < L; b++) {
    for (u32 n = 0; n < I; n++) {
      x[n][b] = F::mul(x[n][b], F::broadcast(tree.u + ((j + n) * L + b), tree.u_quotients), k);
    }
  }
  for (u32 n = 0; n < I; n++) F::cyclic(x[n], c.turns[0], k);
  for (u32 n = 0; n < I; n++) {
    for (u32 i = 0; i < L; i++) F::store(d + (n * L + i) * L, x[n][i]);
  }
}
template <class F, u32 I>
[[gnu::always_inline]] inline void blocks_inverse(const Tree& tree, const Constants<F>& c, u64* d, u32 level,
                                                  u64 j) {
  constexpr u32 L = F::LANES;
  const auto& k = c.k;
  typename F::V x[I][L];
  for (u32 n = 0; n < I; n++) {
    for (u32 i = 0; i < L; i++) x[n][i] = F::load(d + (n * L + i) * L);
  }
  for (u32 n = 0; n < I; n++) F::cyclic_inverse(x[n], c.turns[1], k);
  for (u32 b = 1; b < L; b++) {
    const typename F::Tw z = F::lanes(c.table.lane[1] + b * L, LANE_QUOTIENTS);
    for (u32 n = 0; n < I; n++) x[n][b] = F::mul(x[n][b], z, k);
  }
  for (u32 b = 1; b < L; b++) {
    for (u32 n = 0; n < I; n++) {
      x[n][b] = F::mul(x[n][b], F::broadcast(tree.u + ((j + n) * L + b), tree.u_quotients), k);
    }
  }
  for (u32 n = 0; n < I; n++) F::transpose(x[n]);
  for (u32 n = 0; n < I; n++) {
    const Node<F> node{tree, level, j + n};
    if constexpr (L == 8) {
      for (u32 i = 0; i < 4; i++) F::inverse2(x[n][2 * i], x[n][2 * i + 1], node.at(2, i), k);
      join8<F>(node, x[n], k);
    } else {
      F::inverse4(x[n][0], x[n][1], x[n][2], x[n][3], node.at(0, 0), node.at(1, 0), node.at(1, 1), k);
    }
  }
  for (u32 n = 0; n < I; n++) {
    for (u32 i = 0; i < L; i++) F::store(d + (n * L + i) * L, x[n][i]);
  }
}
// One lane: a block is 16 points, two radix-4 steps in registers.
template <class F>
inline void small_forward(const Tree& tree, const Constants<F>& c, u64* d, u32 level, u64 j) {
  typename F::V x[16];
  for (u32 i = 0; i < 16; i++) x[i] = F::load(d + i);
  const Node<F> top{tree, level, j};
  for (u32 i = 0; i < 4; i++) {
    F::forward4(x[i], x[i + 4], x[i + 8], x[i + 12], top.at(0, 0), top.at(1, 0), top.at(1, 1), c.k);
  }
  for (u32 i = 0; i < 4; i++) {
    const Node<F> node{tree, level + 2, 4 * j + i};
    F::forward4(x[4 * i], x[4 * i + 1], x[4 * i + 2], x[4 * i + 3], node.at(0, 0), node.at(1, 0),
                node.at(1, 1), c.k);
  }
  for (u32 i = 0; i < 16; i++) F::store(d + i, x[i]);
}
template <class F>
inline void small_inverse(const Tree& tree, const Constants<F>& c, u64* d, u32 level, u64 j) {
  typename F::V x[16];
  for (u32 i = 0; i < 16; i++) x[i] = F::load(d + i);
  for (u32 i = 0; i < 4; i++) {
    const Node<F> node{tree, level + 2, 4 * j + i};
    F::inverse4(x[4 * i], x[4 * i + 1], x[4 * i + 2], x[4 * i + 3], node.at(0, 0), node.at(1, 0),
                node.at(1, 1), c.k);
  }
  const Node<F> top{tree, level, j};
  for (u32 i = 0; i < 4; i++) {
    F::inverse4(x[i], x[i + 4], x[i + 8], x[i + 12], top.at(0, 0), top.at(1, 0), top.at(1, 1), c.k);
  }
  for (u32 i = 0; i < 16; i++) F::store(d + i, x[i]);
}

template <class F, bool INVERSE, u32 I>
[[gnu::always_inline]] inline void some_blocks(const Tree& tree, const Constants<F>& c, u64* d, u32 level,
                                               u64 j) {
  constexpr bool POLYNOMIALS = shape_of(F::BACKEND).left_levels != 0;
  if constexpr (F::LANES == 1) {
    if constexpr (INVERSE)
      small_inverse<F>(tree, c, d, level, j);
    else
      small_forward<F>(tree, c, d, level, j);
  } else if constexpr (POLYNOMIALS) {
    if constexpr (INVERSE)
      polynomials_inverse<F, I>(tree, c, d, level, j);
    else
      polynomials_forward<F, I>(tree, c, d, level, j);
  } else {
    if constexpr (INVERSE)
      blocks_inverse<F, I>(tree, c, d, level, j);
    else
      blocks_forward<F, I>(tree, c, d, level, j);
  }
}

template <class F, bool INVERSE>
void blocks(const Tree& tree, const Constants<F>& c, u64* d, u64 count, u32 level, u64 j) {
  constexpr BackendShape KERNEL = shape_of(F::BACKEND);
  constexpr u64 POINTS = u64{1} << KERNEL.base_log;
  c.ahead.advance(count);
  constexpr u32 INTERLEAVE = F::LANES == 1 ? 1 : 2;
  u64 i = 0;
  for (; i + INTERLEAVE <= count; i += INTERLEAVE)
    some_blocks<F, INVERSE, INTERLEAVE>(tree, c, d + i * POINTS, level, j + i);
  for (; i < count; i++) some_blocks<F, INVERSE, 1>(tree, c, d + i * POINTS, level, j + i);
}

// Levels taken by the next step of a part with `left` levels to go: an odd one is taken with the first step.
constexpr u32 levels_of_step(u32 left) {
  return left % 2 == 0 ? 2 : left == 1 ? 1 : 3;
}

// What stands at the bottom of the recursion below. Base blocks, in place.
template <class F> struct BaseBlocks {
  static constexpr bool SETTLED = false;
  static constexpr u32 STOP_LOG = shape_of(F::BACKEND).base_log;
  static constexpr u32 stop_log() { return STOP_LOG; }
  void forward(u32 steps, const Node<F>& node, const Constants<F>& c, const u64* from, u64* d) const {
    constexpr u64 M = u64{1} << STOP_LOG;
    step_forward<F>(steps, node, c.k, {from, M, d, M}, M);
    blocks<F, false>(node.tree, c, d, u64{1} << steps, node.level + steps, node.j << steps);
  }
  void inverse(u32 steps, const Node<F>& node, const Constants<F>& c, u64* d) const {
    constexpr u64 M = u64{1} << STOP_LOG;
    blocks<F, true>(node.tree, c, d, u64{1} << steps, node.level + steps, node.j << steps);
    step_inverse<F>(steps, node, c.k, in_place(d, M), M);
  }
};
// The same, and the transformed points are packed: those at base + i go to the row at `to`.
template <class F> struct PackedBlocks : BaseBlocks<F> {
  const u64* base;
  u64* to;
  PackedBlocks(const u64* row, u64* packed) : base(row), to(packed) {}
  void forward(u32 steps, const Node<F>& node, const Constants<F>& c, const u64* from, u64* d) const {
    BaseBlocks<F>::forward(steps, node, c, from, d);
    const u64 at = static_cast<u64>(d - base);
    F::pack_points(to + at / 4 * 3, d, u64{1} << (BaseBlocks<F>::STOP_LOG + steps), c.k);
  }
};
// Rows of a tile, row i at base + i 2^log_tile, which the last forward step brings to the matrix and the
// first inverse step fetches from there, row i at matrix + i stride.
template <class F> struct MatrixRows {
  static constexpr bool SETTLED = true;
  u32 log_tile;
  u64* base;
  u64* matrix;
  u64 stride;
  bool stream, packed;
  u32 stop_log() const { return log_tile; }
  u64* row_of(const u64* d) const { return matrix + (static_cast<u64>(d - base) >> log_tile) * stride; }
  void forward(u32 steps, const Node<F>& node, const Constants<F>& c, const u64* from, u64* d) const {
    const u64 T = u64{1} << log_tile;
    const Parts parts{from, T, row_of(d), stride};
    if constexpr (F::PACKS) {
      if (packed) return step_forward<F, Form::plain, Form::packed>(steps, node, c.k, parts, T);
    }
    if (stream)
      step_forward<F, Form::plain, Form::streamed>(steps, node, c.k, parts, T);
    else
      step_forward<F>(steps, node, c.k, parts, T);
  }
  void inverse(u32 steps, const Node<F>& node, const Constants<F>& c, u64* d) const {
    const u64 T = u64{1} << log_tile;
    c.ahead.advance(u64{1} << steps);
    const Parts parts{row_of(d), stride, d, T};
    if constexpr (F::PACKS) {
      if (packed) return step_inverse<F, Form::packed, Form::plain, SETTLED>(steps, node, c.k, parts, T);
    }
    step_inverse<F, Form::plain, Form::plain, SETTLED>(steps, node, c.k, parts, T);
  }
};

// A part of 2^size_log points at node (level, j), of more than one of what stands at the bottom. The first
// step brings it from `from`, which may be d itself.
template <class F, class Bottom>
void forward(const Tree& tree, const Constants<F>& c, const u64* from, u64* d, u32 size_log, u32 level, u64 j,
             const Bottom& bottom) {
  const u32 steps = levels_of_step(size_log - bottom.stop_log()), part_log = size_log - steps;
  const u64 M = u64{1} << part_log;
  const Node<F> node{tree, level, j};
  if (part_log == bottom.stop_log()) return bottom.forward(steps, node, c, from, d);
  step_forward<F>(steps, node, c.k, {from, M, d, M}, M);
  for (u64 t = 0; t < u64{1} << steps; t++) {
    forward<F>(tree, c, d + t * M, d + t * M, part_log, level + steps, (j << steps) + t, bottom);
  }
}
template <class F, class Bottom>
void inverse(const Tree& tree, const Constants<F>& c, u64* d, u32 size_log, u32 level, u64 j,
             const Bottom& bottom) {
  const u32 steps = levels_of_step(size_log - bottom.stop_log()), part_log = size_log - steps;
  const u64 M = u64{1} << part_log;
  const Node<F> node{tree, level, j};
  if (part_log == bottom.stop_log()) return bottom.inverse(steps, node, c, d);
  for (u64 t = 0; t < u64{1} << steps; t++) {
    inverse<F>(tree, c, d + t * M, part_log, level + steps, (j << steps) + t, bottom);
  }
  step_inverse<F, Form::plain, Form::plain, Bottom::SETTLED>(steps, node, c.k, in_place(d, M), M);
}

// The same with the first or the last step from or to a packed row; of more than one step.
template <class F, class Bottom>
void forward_packed(const Tree& tree, const Constants<F>& c, const u64* from, u64* d, u32 size_log,
                    const Bottom& bottom) {
  const u32 steps = levels_of_step(size_log - bottom.stop_log()), part_log = size_log - steps;
  const u64 M = u64{1} << part_log;
  step_forward<F, Form::packed>(steps, {tree, 0, 0}, c.k, {from, M / 4 * 3, d, M}, M);
  for (u64 t = 0; t < u64{1} << steps; t++)
    forward<F>(tree, c, d + t * M, d + t * M, part_log, steps, t, bottom);
}
template <class F, class Bottom>
void inverse_packed(const Tree& tree, const Constants<F>& c, u64* d, u64* to, u32 size_log,
                    const Bottom& bottom) {
  const u32 steps = levels_of_step(size_log - bottom.stop_log()), part_log = size_log - steps;
  const u64 M = u64{1} << part_log;
  for (u64 t = 0; t < u64{1} << steps; t++) inverse<F>(tree, c, d + t * M, part_log, steps, t, bottom);
  step_inverse<F, Form::plain, Form::packed>(steps, {tree, 0, 0}, c.k, {d, M, to, M / 4 * 3}, M);
}

} // namespace
} // namespace kelvane::ntt

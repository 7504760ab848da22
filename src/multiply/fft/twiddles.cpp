#include "multiply/fft/twiddles.h"

#include <cmath>

#include "multiply/fft/kernels.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/table/parallel.h"
#include "shell/heap.h"

namespace kelvane::km_FFTv2 {

namespace {

using Real = long double; // 64 bits of precision

struct Root {
  Real re, im;
  friend Root operator*(Root a, Root b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
  void store(double* p, u64 distance = 1) const {
    p[0] = static_cast<double>(re);
    p[distance] = static_cast<double>(im);
  }
};

// e(turns), |turns| below 5: an error of a few 2^-64.
Root e(Real turns) {
  constexpr Real TWO_PI = 6.283185307179586476925286766559005768L;
  return {std::cos(TWO_PI * turns), std::sin(TWO_PI * turns)};
}

u64 reversed(u64 x, u32 bits) {
  u64 r = 0;
  for (; bits > 0; bits--, x >>= 1) r = r << 1 | (x & 1);
  return r;
}

// psi_J, exact: (4 rev(t) + 1) / 2^(l+2) for J = 2^l + t.
Real psi(u64 J) {
  const u32 l = 63 - static_cast<u32>(__builtin_clzll(J));
  return static_cast<Real>(4 * reversed(J - (u64{1} << l), l) + 1) / static_cast<Real>(u64{4} << l);
}
Real reversed_fraction(u64 x, u32 bits) {
  return static_cast<Real>(reversed(x, bits)) / static_cast<Real>(u64{1} << bits);
}

constexpr u32 FACTORS[3] = {1, 3, 5};
constexpr u32 MIN_Q = 4;

// The placement of one LaneTable; measures when the layout has no memory.
struct LaneLayout {
  u64 nodes[3] = {0, 0, 0}; // entries for r = 1, 3, 5: J = 1 .. nodes-1
  double* roots = nullptr;
  double* leaves[3] = {nullptr, nullptr, nullptr}; // per node, r = 3, 5
  double* lane_roots = nullptr;
  double* lane_leaves[3] = {nullptr, nullptr, nullptr}; // constants, r = 3, 5

  LaneLayout(Layout& layout, simd::Isa isa, u32 log_lanes, u64 n) {
    for (u32 i = 0; i < 3; i++) {
      for (u32 q = MIN_Q; (u64{FACTORS[i]} << q) <= n; q++) {
        if (kernels_for(isa, q).log_lanes == log_lanes)
          nodes[i] = u64{2} << (q - 2 * log_lanes); // base nodes end there
      }
    }
    const u64 lanes = u64{1} << log_lanes;
    u64 most = 0;
    for (const u64 count : nodes) most = count > most ? count : most;
    if (most == 0) return;
    roots = layout.take<double>(most * 4 * log_lanes);
    lane_roots = layout.take<double>(4 * 2 * lanes);
    for (u32 i = 1; i < 3; i++) {
      if (nodes[i] == 0) continue;
      leaves[i] = layout.take<double>(nodes[i] * 2 * (FACTORS[i] - 1));
      lane_leaves[i] = layout.take<double>(lanes * (FACTORS[i] - 1) * 2 * lanes);
    }
    nodes[0] = most;
  }
};

// e(psi/2), e(psi/4), ...: every third root from scratch, the two before it by squaring.
void fill_node(double* entry, u64 J, u32 log_lanes) {
  const u32 count = 2 * log_lanes;
  const Real angle = psi(J);
  Root root{1, 0};
  for (u32 i = count; i > 0; i--) {
    const bool direct = (count - i) % 3 == 0;
    root = direct ? e(angle / static_cast<Real>(u64{1} << i)) : root * root;
    root.store(entry + 2 * (i - 1));
  }
}

void fill_leaf(double* entry, u64 J, u32 log_lanes, u32 r) {
  const Root w = e(psi(J) / static_cast<Real>(r * (u64{1} << 2 * log_lanes)));
  Root power = w;
  for (u32 c = 1; c < r; c++, power = power * w) power.store(entry + 2 * (c - 1));
}

void fill_lane_constants(const LaneLayout& place, u32 log_lanes) {
  const u64 lanes = u64{1} << log_lanes;
  for (u64 l = 0; l < lanes; l++) {
    const Real turn = reversed_fraction(l, log_lanes);
    for (u32 i = 1; i <= log_lanes; i++) {
      e(turn / static_cast<Real>(u64{1} << i)).store(place.lane_roots + (i - 1) * 2 * lanes + l, lanes);
    }
    if (log_lanes == 3) e(turn / 8 + Real{1} / 8).store(place.lane_roots + 3 * 2 * lanes + l, lanes);
    for (u32 f = 1; f < 3; f++) {
      if (place.lane_leaves[f] == nullptr) continue;
      const u32 r = FACTORS[f];
      for (u64 g = 0; g < lanes; g++) {
        const Real at =
            (reversed_fraction(g, log_lanes) + turn / static_cast<Real>(lanes)) / static_cast<Real>(r);
        for (u32 c = 1; c < r; c++) {
          double* const vector = place.lane_leaves[f] + (g * (r - 1) + c - 1) * 2 * lanes;
          e(static_cast<Real>(c) * at).store(vector + l, lanes);
        }
      }
    }
  }
}

u64 max_points(u64 words) {
  const u64 most = MAX_BITS / 64;
  return make_plan(64 * (words < most ? words : most), 1).N / 2;
}

constexpr u64 NODES_PER_TASK = 4096;

} // namespace

u64 table_d::bytes(u64 n) {
  Layout layout;
  for (u32 log_lanes = 1; log_lanes <= 3; log_lanes++) {
    LaneLayout(layout, simd::active_isa(), log_lanes, max_points(n));
  }
  return layout.used();
}

void table_d::build(void* memory, u64 n, u64 threads) {
  table_ = table_t{};
  table_.isa = simd::active_isa();
  max_words_ = n;
  Layout layout(memory, bytes(n));
  for (u32 log_lanes = 1; log_lanes <= 3; log_lanes++) {
    const LaneLayout place(layout, table_.isa, log_lanes, max_points(n));
    if (place.roots == nullptr) continue;
    fill_lane_constants(place, log_lanes);
    const u64 tasks = (place.nodes[0] + NODES_PER_TASK - 1) / NODES_PER_TASK;
    const auto fill = [&](u64 task, km_MULv3::Worker) {
      const u64 first = task * NODES_PER_TASK, end = first + NODES_PER_TASK;
      for (u64 J = first > 0 ? first : 1; J < end && J < place.nodes[0]; J++) {
        fill_node(place.roots + J * 4 * log_lanes, J, log_lanes);
        for (u32 f = 1; f < 3; f++) {
          if (J < place.nodes[f])
            fill_leaf(place.leaves[f] + J * 2 * (FACTORS[f] - 1), J, log_lanes, FACTORS[f]);
        }
      }
    };
    km_MULv3::run_phases(threads < tasks ? threads : tasks, km_MULv3::Phase{tasks, fill});
    LaneTable& lanes = table_.lanes[log_lanes - 1];
    lanes = {log_lanes,        place.roots,          place.leaves[1],     place.leaves[2],
             place.lane_roots, place.lane_leaves[1], place.lane_leaves[2]};
  }
}

} // namespace kelvane::km_FFTv2

// Base blocks and the steps above them. Part of the kernel sources fft_kernels_*.cpp (internal linkage).
//
// A base block below node J has r L^2 points, L rows of r vectors. One radix-L step down the columns makes
// row l node L J + l of r L points; the transposition of L x L squares turns rows into lanes; one radix-L
// step with the lanes' own roots leaves x^r - c at every lane, and for r = 3, 5 a radix-r step follows.
// Points stay in that order: product and inverse transform take them as they are.
//
// The radix-r step stands here, at the bottom, since its roots then come from one number per block and power;
// at the top each of the r children would need a table of roots of its own.
#pragma once

#include "multiply/fft/butterflies_impl.h"
#include "multiply/fft/kernels.h"

namespace kelvane::km_FFTv2 {
namespace {

template <class V> struct Blocks {
  using C = Cx<V>;
  static constexpr u32 L = V::LANES, LOG = V::LOG_LANES;
  static constexpr u64 VECTOR = 2 * L;       // doubles
  static constexpr u64 NODE_ROOTS = 4 * LOG; // doubles of one node's entry in LaneTable::roots

  KELVANE_INLINE static const double* node(const LaneTable& table, u64 J) {
    return table.roots + J * NODE_ROOTS;
  }

  // The roots of a step of 2^K children below node J, the same in all lanes.
  template <u32 K> KELVANE_INLINE static StepRoots<V> step_roots(const LaneTable& table, u64 J) {
    StepRoots<V> roots;
    roots.w[0] = C::broadcast(node(table, J));
    if constexpr (K >= 2) roots.w[1] = C::broadcast(node(table, 2 * J));
    if constexpr (K >= 3) {
      roots.w[2] = C::broadcast(node(table, 4 * J));
      roots.w[3] = C::broadcast(node(table, 4 * J + 2));
    }
    return roots;
  }

  // Those of a base block's first step: e(psi/2), e(psi/4), e(psi/8) stand side by side.
  KELVANE_INLINE static StepRoots<V> column_roots(const double* entry) {
    StepRoots<V> roots;
    for (u32 i = 0; i < LOG; i++) roots.w[i] = C::broadcast(entry + 2 * i);
    if constexpr (LOG == 3) roots.w[3] = rotate_eighth(roots.w[2]);
    return roots;
  }
  // Those of its second step: lane l works below node L J + l, psi = rev(l) + psi_J / L.
  KELVANE_INLINE static StepRoots<V> lane_roots(const double* entry, const LaneTable& table) {
    StepRoots<V> roots;
    for (u32 i = 0; i < LOG; i++) {
      roots.w[i] = mul(C::broadcast(entry + 2 * (LOG + i)), C::load(table.lane_roots + i * VECTOR));
    }
    if constexpr (LOG == 3) {
      roots.w[3] = mul(C::broadcast(entry + 2 * (LOG + 2)), C::load(table.lane_roots + 3 * VECTOR));
    }
    return roots;
  }

  KELVANE_INLINE static void transpose_square(C* x) {
    V t[L];
    for (u32 i = 0; i < L; i++) t[i] = x[i].r;
    transpose(t);
    for (u32 i = 0; i < L; i++) x[i].r = t[i];
    for (u32 i = 0; i < L; i++) t[i] = x[i].i;
    transpose(t);
    for (u32 i = 0; i < L; i++) x[i].i = t[i];
  }

  // The roots w^c of the radix-R step at the leaves of child g, all lanes.
  template <u32 R> KELVANE_INLINE static void leaf_roots(C* w, const LaneTable& table, u64 J, u32 g) {
    const double* const block = (R == 3 ? table.cubic : table.quintic) + J * (2 * (R - 1));
    const double* const lanes = (R == 3 ? table.lane_cubic : table.lane_quintic) + g * (R - 1) * VECTOR;
    for (u32 c = 1; c < R; c++)
      w[c] = mul(C::broadcast(block + 2 * (c - 1)), C::load(lanes + (c - 1) * VECTOR));
  }

  // The two steps of a base block with r = 3, 5, before its leaves: point p of all lanes to vector p.
  template <u32 R, u32 SKIP>
  KELVANE_INLINE_LARGE static void forward_points(double* points, const double* data, const double* entry,
                                                  const LaneTable& table) {
    const StepRoots<V> columns = column_roots(entry);
    for (u32 c = 0; c < R; c++) {
      C x[L];
      for (u32 l = 0; l < L; l++) x[l] = C::load(data + (l * R + c) * VECTOR);
      radix<LOG, SKIP>(x, columns);
      transpose_square(x);
      for (u32 l = 0; l < L; l++) x[l].store(points + (c * L + l) * VECTOR);
    }
    const StepRoots<V> lanes = lane_roots(entry, table);
    for (u32 c = 0; c < R; c++) {
      C x[L];
      for (u32 h = 0; h < L; h++) x[h] = C::load(points + (h * R + c) * VECTOR);
      radix<LOG>(x, lanes);
      for (u32 h = 0; h < L; h++) x[h].store(points + (h * R + c) * VECTOR);
    }
  }
  template <u32 R, u32 SKIP>
  KELVANE_INLINE_LARGE static void inverse_points(double* data, double* points, const double* entry,
                                                  const LaneTable& table) {
    const StepRoots<V> lanes = lane_roots(entry, table);
    for (u32 c = 0; c < R; c++) {
      C x[L];
      for (u32 h = 0; h < L; h++) x[h] = C::load(points + (h * R + c) * VECTOR);
      inverse_radix<LOG>(x, lanes);
      for (u32 h = 0; h < L; h++) x[h].store(points + (h * R + c) * VECTOR);
    }
    const StepRoots<V> columns = column_roots(entry);
    for (u32 c = 0; c < R; c++) {
      C x[L];
      for (u32 l = 0; l < L; l++) x[l] = C::load(points + (c * L + l) * VECTOR);
      transpose_square(x);
      inverse_radix<LOG, SKIP>(x, columns);
      for (u32 l = 0; l < L; l++) x[l].store(data + (l * R + c) * VECTOR);
    }
  }

  // The points of one leaf; there and back.
  template <u32 R> KELVANE_INLINE static void forward_leaf(C* x, const double* points, const C* w) {
    x[0] = C::load(points);
    for (u32 c = 1; c < R; c++) x[c] = mul(C::load(points + c * VECTOR), w[c]);
    if constexpr (R == 3)
      leaf3<1>(x[0], x[1], x[2]);
    else
      leaf5<1>(x[0], x[1], x[2], x[3], x[4]);
  }
  template <u32 R> KELVANE_INLINE static void inverse_leaf(double* points, C* x, const C* w) {
    if constexpr (R == 3)
      leaf3<-1>(x[0], x[1], x[2]);
    else
      leaf5<-1>(x[0], x[1], x[2], x[3], x[4]);
    x[0].store(points);
    for (u32 c = 1; c < R; c++) mul_conj(x[c], w[c]).store(points + c * VECTOR);
  }

  template <u32 R, u32 SKIP = 0>
  static void forward_base(double* data, u64 J, u64 count, const LaneTable& table) {
    for (; count > 0; count--, J++, data += R * L * VECTOR) {
      const double* const entry = node(table, J);
      if constexpr (R == 1) {
        C x[L];
        for (u32 l = 0; l < L; l++) x[l] = C::load(data + l * VECTOR);
        radix<LOG, SKIP>(x, column_roots(entry));
        transpose_square(x);
        radix<LOG>(x, lane_roots(entry, table));
        for (u32 l = 0; l < L; l++) x[l].store(data + l * VECTOR);
      } else {
        alignas(64) double points[R * L * VECTOR];
        forward_points<R, SKIP>(points, data, entry, table);
        for (u32 g = 0; g < L; g++) {
          C x[R], w[R];
          leaf_roots<R>(w, table, J, g);
          forward_leaf<R>(x, points + g * R * VECTOR, w);
          for (u32 c = 0; c < R; c++) x[c].store(data + (g * R + c) * VECTOR);
        }
      }
    }
  }

  // The pointwise product; of a square (r + i x)^2 = r^2 - x^2 + 2 r x i.
  enum class Pointwise { square, product, sum };
  template <Pointwise KIND> struct Kind { static constexpr Pointwise value = KIND; };
  template <Pointwise KIND> KELVANE_INLINE static C product(C x, const Factors& f, u64 at) {
    if constexpr (KIND == Pointwise::square) {
      return {fnmadd(x.i, x.i, x.r * x.r), (x.r + x.r) * x.i};
    } else {
      const C first = mul(x, C::load(f.other + at));
      if constexpr (KIND == Pointwise::product) return first;
      const C second = mul(C::load(f.x + at), C::load(f.y + at));
      const V sign = V::set1(f.sign);
      return {fmadd(sign, second.r, first.r), fmadd(sign, second.i, first.i)};
    }
  }

  // The steps of a base block with r = 1 about the product. Each goes over all blocks by itself: in a loop
  // over all of them so many instructions would stand between a block and the next one that the processor
  // could not work on two at once.
  template <u32 SKIP> static void forward_columns(double* data, u64 J, u64 count, const LaneTable& table) {
    for (; count > 0; count--, J++, data += L * VECTOR) {
      C x[L];
      for (u32 l = 0; l < L; l++) x[l] = C::load(data + l * VECTOR);
      radix<LOG, SKIP>(x, column_roots(node(table, J)));
      transpose_square(x);
      for (u32 l = 0; l < L; l++) x[l].store(data + l * VECTOR);
    }
  }
  // With FORWARD the lanes' forward step comes before the product.
  template <bool FORWARD, Pointwise KIND>
  static void product_lanes(double* data, const Factors& factors, u64 J, u64 count, const LaneTable& table) {
    const Factors f = factors; // stores to the data cannot change a copy
    for (u64 at = 0; count > 0; count--, J++, at += L * VECTOR) {
      const double* const entry = node(table, J);
      C x[L];
      for (u32 l = 0; l < L; l++) x[l] = C::load(data + at + l * VECTOR);
      if constexpr (FORWARD) radix<LOG>(x, lane_roots(entry, table));
      for (u32 l = 0; l < L; l++) x[l] = product<KIND>(x[l], f, at + l * VECTOR);
      inverse_radix<LOG>(x, lane_roots(entry, table));
      transpose_square(x);
      for (u32 l = 0; l < L; l++) x[l].store(data + at + l * VECTOR);
    }
  }
  template <u32 SKIP> static void inverse_columns(double* data, u64 J, u64 count, const LaneTable& table) {
    for (; count > 0; count--, J++, data += L * VECTOR) {
      C x[L];
      for (u32 l = 0; l < L; l++) x[l] = C::load(data + l * VECTOR);
      inverse_radix<LOG, SKIP>(x, column_roots(node(table, J)));
      for (u32 l = 0; l < L; l++) x[l].store(data + l * VECTOR);
    }
  }

  // The same with r = 3, 5: the leaves' spectrum stays in registers.
  template <u32 R, u32 SKIP, bool FORWARD, Pointwise KIND>
  static void product_leaves(double* data, const Factors& factors, u64 J, u64 count, const LaneTable& table) {
    Factors f = factors;
    for (; count > 0; count--, J++, data += R * L * VECTOR, f = f.behind(R * L * VECTOR)) {
      const double* const entry = node(table, J);
      alignas(64) double points[R * L * VECTOR];
      if constexpr (FORWARD) forward_points<R, SKIP>(points, data, entry, table);
      for (u32 g = 0; g < L; g++) {
        const u64 at = g * R * VECTOR;
        C x[R], w[R];
        leaf_roots<R>(w, table, J, g);
        if constexpr (FORWARD) {
          forward_leaf<R>(x, points + at, w);
        } else {
          for (u32 c = 0; c < R; c++) x[c] = C::load(data + at + c * VECTOR);
        }
        for (u32 c = 0; c < R; c++) x[c] = product<KIND>(x[c], f, at + c * VECTOR);
        inverse_leaf<R>(points + at, x, w);
      }
      inverse_points<R, SKIP>(data, points, entry, table);
    }
  }

  // data <- the inverse of the base blocks' steps of data times the factors. With FORWARD the forward steps
  // of data come before; where the registers hold both, the spectrum never leaves them.
  template <u32 R, u32 SKIP, bool FORWARD>
  static void product_base(double* data, const Factors& f, u64 J, u64 count, const LaneTable& table) {
    constexpr bool IN_REGISTERS = FORWARD && (R == 3 || (R == 1 && L == 8));
    if constexpr (FORWARD && !IN_REGISTERS) forward_base<R, SKIP>(data, J, count, table);
    if constexpr (R == 1 && IN_REGISTERS) forward_columns<SKIP>(data, J, count, table);
    const auto pointwise = [&](auto kind) {
      constexpr Pointwise KIND = decltype(kind)::value;
      if constexpr (R == 1)
        product_lanes<IN_REGISTERS, KIND>(data, f, J, count, table);
      else
        product_leaves<R, SKIP, IN_REGISTERS, KIND>(data, f, J, count, table);
    };
    if (FORWARD || f.x == nullptr) {
      if (data == f.other)
        pointwise(Kind<Pointwise::square>());
      else
        pointwise(Kind<Pointwise::product>());
    } else if constexpr (!FORWARD) {
      pointwise(Kind<Pointwise::sum>()); // the first product may be a square
    }
    if constexpr (R == 1) inverse_columns<SKIP>(data, J, count, table);
  }

  // A step of 2^K children from rows to rows of `vectors` vectors.
  template <u32 K>
  static void forward_rows(double* dst, u64 dst_stride, const double* src, u64 src_stride, u64 vectors, u64 J,
                           const LaneTable& table) {
    const StepRoots<V> roots = step_roots<K>(table, J);
    for (; vectors > 0; vectors--, src += VECTOR, dst += VECTOR) {
      C x[1 << K];
      for (u32 j = 0; j < 1 << K; j++) x[j] = C::load(src + j * src_stride);
      radix<K>(x, roots);
      for (u32 j = 0; j < 1 << K; j++) x[j].store(dst + j * dst_stride);
    }
  }
  template <u32 K>
  static void inverse_rows(double* dst, u64 dst_stride, const double* src, u64 src_stride, u64 vectors, u64 J,
                           const LaneTable& table) {
    const StepRoots<V> roots = step_roots<K>(table, J);
    for (; vectors > 0; vectors--, src += VECTOR, dst += VECTOR) {
      C x[1 << K];
      for (u32 j = 0; j < 1 << K; j++) x[j] = C::load(src + j * src_stride);
      inverse_radix<K>(x, roots);
      for (u32 j = 0; j < 1 << K; j++) x[j].store(dst + j * dst_stride);
    }
  }

  // Depth first: a block is split until it is a base block, so that it is worked on while it is in cache.
  // An odd number of levels ends in one radix-8 step.
  static u32 step_of(u32 levels) { return levels == 1 ? 1 : levels == 3 ? 3 : 2; }

  template <u32 R> static void forward(double* data, u32 levels, u64 J, const LaneTable& table) {
    if (levels == 0) return forward_base<R>(data, J, 1, table);
    const u32 step = step_of(levels);
    const u64 vectors = u64{R * L} << (levels - step), stride = vectors * VECTOR;
    if (step == 1) forward_rows<1>(data, stride, data, stride, vectors, J, table);
    if (step == 2) forward_rows<2>(data, stride, data, stride, vectors, J, table);
    if (step == 3) forward_rows<3>(data, stride, data, stride, vectors, J, table);
    const u64 children = u64{1} << step;
    if (levels == step) return forward_base<R>(data, J * children, children, table);
    for (u64 c = 0; c < children; c++) forward<R>(data + c * stride, levels - step, J * children + c, table);
  }

  // Back from the product; with FORWARD there and back.
  template <u32 R, bool FORWARD>
  static void product_block(double* data, const Factors& f, u32 levels, u64 J, const LaneTable& table) {
    if (levels == 0) return product_base<R, 0, FORWARD>(data, f, J, 1, table);
    const u32 step = step_of(levels);
    const u64 vectors = u64{R * L} << (levels - step), stride = vectors * VECTOR;
    const u64 children = u64{1} << step;
    if constexpr (FORWARD) {
      if (step == 1) forward_rows<1>(data, stride, data, stride, vectors, J, table);
      if (step == 2) forward_rows<2>(data, stride, data, stride, vectors, J, table);
      if (step == 3) forward_rows<3>(data, stride, data, stride, vectors, J, table);
    }
    if (levels == step) {
      product_base<R, 0, FORWARD>(data, f, J * children, children, table);
    } else {
      for (u64 c = 0; c < children; c++) {
        const u64 at = c * stride;
        product_block<R, FORWARD>(data + at, f.behind(at), levels - step, J * children + c, table);
      }
    }
    if (step == 1) inverse_rows<1>(data, stride, data, stride, vectors, J, table);
    if (step == 2) inverse_rows<2>(data, stride, data, stride, vectors, J, table);
    if (step == 3) inverse_rows<3>(data, stride, data, stride, vectors, J, table);
  }

  // What the root's step leaves: four quarters; or, when it has reached into the base blocks (there is one,
  // or there are two), those without the levels of their first step that are done.
  template <u32 R> static void forward_rest_of(double* data, const Shape& shape) {
    const u32 q = shape.q;
    if (q == 2 * LOG) return forward_base<R, 2>(data, 1, 1, *shape.table);
    if (q == 2 * LOG + 1) return forward_base<R, 1>(data, 2, 2, *shape.table);
    if (q == 2 * LOG + 2) return forward_base<R>(data, 4, 4, *shape.table);
    for (u64 i = 0; i < 4; i++) forward<R>(data + i * shape.n / 2, q - 2 - 2 * LOG, 4 + i, *shape.table);
  }
  template <u32 R, bool FORWARD>
  static void product_rest_of(double* data, const Factors& f, const Shape& shape) {
    const u32 q = shape.q;
    const LaneTable& table = *shape.table;
    if (q == 2 * LOG) return product_base<R, 2, FORWARD>(data, f, 1, 1, table);
    if (q == 2 * LOG + 1) return product_base<R, 1, FORWARD>(data, f, 2, 2, table);
    if (q == 2 * LOG + 2) return product_base<R, 0, FORWARD>(data, f, 4, 4, table);
    for (u64 i = 0; i < 4; i++) {
      const u64 at = i * shape.n / 2;
      product_block<R, FORWARD>(data + at, f.behind(at), q - 2 - 2 * LOG, 4 + i, table);
    }
  }

  // The kernels of the table, for every r.
  static void forward_rest(double* data, const Shape& shape) {
    if (shape.r == 1) return forward_rest_of<1>(data, shape);
    if (shape.r == 3) return forward_rest_of<3>(data, shape);
    forward_rest_of<5>(data, shape);
  }
  template <bool FORWARD> static void product_rest(double* data, const Factors& f, const Shape& shape) {
    if (shape.r == 1) return product_rest_of<1, FORWARD>(data, f, shape);
    if (shape.r == 3) return product_rest_of<3, FORWARD>(data, f, shape);
    product_rest_of<5, FORWARD>(data, f, shape);
  }
  static void forward_block(double* data, u32 levels, u64 J, const Shape& shape) {
    if (shape.r == 1) return forward<1>(data, levels, J, *shape.table);
    if (shape.r == 3) return forward<3>(data, levels, J, *shape.table);
    forward<5>(data, levels, J, *shape.table);
  }
  static void inverse_block(double* data, const Factors& f, u32 levels, u64 J, const Shape& shape) {
    if (shape.r == 1) return product_block<1, false>(data, f, levels, J, *shape.table);
    if (shape.r == 3) return product_block<3, false>(data, f, levels, J, *shape.table);
    product_block<5, false>(data, f, levels, J, *shape.table);
  }
  static void forward_step(double* dst, u64 dst_stride, const double* src, u64 src_stride, u64 vectors, u64 J,
                           const Shape& shape) {
    forward_rows<2>(dst, dst_stride, src, src_stride, vectors, J, *shape.table);
  }
  static void inverse_step(double* dst, u64 dst_stride, const double* src, u64 src_stride, u64 vectors, u64 J,
                           const Shape& shape) {
    inverse_rows<2>(dst, dst_stride, src, src_stride, vectors, J, *shape.table);
  }
};

} // namespace
} // namespace kelvane::km_FFTv2

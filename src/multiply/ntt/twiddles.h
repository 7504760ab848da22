// The roots of unity of the transforms.
//
// Order of the transform. A node of a binary tree is a modulus x^(2M) - s^2, which splits into x^M - s (left
// child) and x^M + s (right child). Below the root x^(2M) - 1, node j of its level has s_j = e(a_j), e(t) the
// t-th part of a full turn, with
//     a_0 = 0,  a_2j = a_j / 2,  a_(2j+1) = a_j / 2 + 1/4:    a_j = (j with its n bits reversed) / 2^(n+1).
// So s_(2j) = sqrt(s_j) and s_(2j+1) = i s_(2j): one list serves every level and every length, a whole block
// shares one factor, and nothing is ever put in bit-reversed order. a_j is additive over the bits of j.
//
// Length 3 2^k: a radix-3 step splits x^N - 1 into x^(N/3) - w^t, t = 0, 1, 2, w^3 = 1. Since 2 is its own
// inverse modulo 3, the square roots inside tree t are those of tree 0 times w or w^2, by turns:
//     s(level d, j) = s_j w^(t 2^(d+1)).
//
// Base blocks. A block x^(L^2) - z of a backend with L lanes is split by lanes into x^L - c_k. Backends in
// doubles go down to points: scaled so that one cyclic transform of length L serves all, element b of part k
// is multiplied by u^b Z_k^b, with u^(L^2) = z and Z_k a constant. For node j above a block, u = e(2 a_j /
// L^2), times w^(t 2^d) in tree t. With 52-bit integers the parts themselves are multiplied: modulo x^8 - c a
// product is 128 multiplications for 8 points and one reduction each, three levels in three transforms are
// more.
//
// Scale. A forward transform carries the factor k = (2^product_shift / n)^(1/2) modulo p, n the length that
// the inverse multiplies by, so that the inverse of a product of two needs none. It comes with the reduction
// of the digits for nothing. The root exists: 2 = (e(1/8) + e(-1/8))^2 and 3 = (i (2 w + 1))^2. Where
// residues are recombined in 52-bit arithmetic they are wanted over g M, M the product of the other primes of
// the transform and g the least number for which g M is a square modulo p: its root is a factor of k too.
//
// Rows. Row r of a long transform is a modulus x^C - z too. All factors of its tree are those of tree 0 times
// one constant per level: with y^C = z, the constant of level d is y^(C / 2^(d+1)), and that of the blocks is
// y. A row's lists are made from these when they do not lie in the stored ones (see rows_impl.h).
//
// Stored per prime: s and u, their inverses, each times 1, w, w^2, with quotients where the backend wants
// them: 0.8 MB (ifma), 0.8 MB (double8), 1.2 MB (double4), 3.1 MB (integer1); and factors for the digits'
// limbs, 4 KB, or 25 KB where residues are scaled. Built on first use, 2 to 5 ms a prime.
#pragma once

#include "multiply/ntt/primes.h"
#include "shell/types.h"

namespace kelvane::ntt {

// Transforms of up to 2^DIRECT_LOG points (times 3) find every factor in the stored lists.
inline constexpr u32 DIRECT_LOG = 16;
inline constexpr u32 MAX_COLUMNS_LOG = 16; // longest row

struct BackendShape {
  u32 lanes, log_lanes;
  u32 base_log;   // points of a base block
  bool quotients; // factors carry floor(f 2^quotient_shift / p)
  u32 quotient_shift;
  u32 s_log;         // entries of the list s
  u32 u_log;         // entries of the list u: L per block; 0: none
  u32 node_levels;   // levels of factors inside a base block
  u32 left_levels;   // levels left out: polynomials of 2^left_levels coefficients are multiplied
  u32 limb_bits;     // digits are reduced in limbs of this width
  u32 product_shift; // a pointwise product is x y / 2^product_shift
  bool scaled;       // residues arrive over g M
};

constexpr BackendShape shape_of(Backend backend) {
  switch (backend) {
  case Backend::ifma:
    return {8, 3, 6, true, 52, 13, 0, 3, 3, 52, 52, true};
  case Backend::double8:
    return {8, 3, 6, false, 0, 13, 13, 3, 0, 48, 0, false};
  case Backend::double4:
    return {4, 2, 4, false, 0, 13, 14, 2, 0, 48, 0, false};
  case Backend::integer1:
    break;
  }
  return {1, 0, 4, true, 64, 15, 0, 4, 0, 64, 64, false};
}

// Longest transform in points: the columns' lists have 2^s_log factors.
constexpr u64 max_points(Backend backend) {
  return u64{3} << (shape_of(backend).s_log + 1 + MAX_COLUMNS_LOG);
}

// A residue as its backend stores it (64 bits: an integer or a double), with its quotient.
struct Factor {
  u64 value = 0, quotient = 0;
};

inline constexpr u32 MAX_LIMBS = 4;
inline constexpr u32 LANE_QUOTIENTS = 64; // distance from values to quotients

// What depends on the number w of a transform's primes, where residues are scaled.
inline constexpr u32 TRANSFORM_SETS = MAX_PRIMES - MIN_PRIMES + 1;
constexpr u32 transform_set(Backend backend, u32 w) {
  return shape_of(backend).scaled ? w - MIN_PRIMES : 0;
}

// Everything about one prime. Index [0] is forward, [1] inverse.
struct PrimeTable {
  u64 p = 0;
  const u64* s[2][3] = {}; // [direction][power of w]; the quotients follow the 2^s_log entries
  const u64* u[2][3] = {}; // [j L + b] = u_j^b; the quotients follow the 2^u_log entries
  alignas(64) u64 lane[2][2 * LANE_QUOTIENTS] = {}; // [b L + k] = Z_k^b, then the quotients
  Factor turns[2][3];                               // e(1/4), e(1/8), e(3/8)
  Factor minus_half;                                // (w + w^2) / 2
  Factor third[2];                                  // (w - w^2) / 2
  Factor garner[MAX_PRIMES];                        // 1 / p_i for the primes p_i before this one
  Factor one;
  // [transform_set(w)]: k 2^(limb_bits j), for 2^m and 3 2^m points; g, and 1 / (g M).
  Factor limb[TRANSFORM_SETS][2][ORDER_LOG + 1][MAX_LIMBS];
  u64 multiplier[TRANSFORM_SETS] = {}, scale[TRANSFORM_SETS] = {};
  u64 roots[2][ORDER_LOG + 1] = {}; // e(1 / 2^m)
  u64 omega[2] = {};
};

// The table of prime i, built on first use; safe from any thread.
const PrimeTable& prime_table(Backend backend, u32 i);
// Builds those of all primes of the backend.
void build_tables(Backend backend, u64 threads);
// Bytes that they take.
u64 table_bytes(Backend backend);

Factor encode(Backend backend, const Field& field, u64 x);
// Field of prime i, shared.
const Field& field_of(Backend backend, u32 i);

// The constants that turn the stored lists into those of row r of tree t.
struct RowConstants {
  static constexpr u32 BLOCK = MAX_COLUMNS_LOG, COUNT = BLOCK + 8;
  alignas(64) u64 value[COUNT] = {}; // of the levels; from BLOCK on y^b, for backends that have the list u
};
// For the row of 2^log_columns points at node `row` of level log_rows in tree t.
void row_constants(RowConstants& out, Backend backend, u32 prime, u32 direction, u32 tree, u64 row,
                   u32 log_rows, u32 log_columns);

} // namespace kelvane::ntt

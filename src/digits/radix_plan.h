// The conversion's plan: how W radix words are cut into a tree, and where its buffers lie.
//
// The tree has `levels` levels of products above 2^levels leaves of `base` output words each, with
// base * 2^levels >= W. A node of level j makes up to S(j) = base * 2^(levels - j) words; it is cut
// by a product with R^S(j + 1). Slot s holds the fraction of leaf s, counted from the most
// significant; the leaf makes the output words [W - (s + 1) base, W - s base). A node owns the slots
// of its leaves, and its fraction lies at the high end of them:
//
//   node            |--------------- fraction (l words)|
//   its two halves  |----- lower fraction||----- upper fraction|
//
// The upper half's fraction is the top of the node's, already in place; the lower half's is a
// slice of the product. So the tree needs no memory beyond the slots and one product.
//
// Levels above `fork` run node by node with all threads in each product; the subtrees of level
// `fork` are tasks, drawn by `workers` threads.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"
#include "shell/types.h"

namespace kelvane::CBRv2 {

inline constexpr u64 RADIX = 10000000000000000000u; // R = 10^19
inline constexpr u64 LONGEST_LEAF = 128; // words; longer nodes are cut, so leaves of a tree have 65 or more
inline constexpr u64 OVERLAP = 1;        // words that two halves both make

// Words of fraction that n radix words need: with l = fraction_words(n), R^n < 2^(64 (l - 1)), so
// one unit of the fraction's last word moves the result by less than 2^-64.
constexpr u64 fraction_words(u64 n) {
  constexpr u64 WORDS_PER_RADIX_WORD = 0xfc776eda0390b50e; // ceil(2^64 * 19 log2(10) / 64)
  return static_cast<u64>(static_cast<u128>(n) * WORDS_PER_RADIX_WORD >> 64) + 2;
}

// R^n = 5^(19 n) 2^(19 n) ends in 19 n zero bits; the whole zero words are kept as a count only.
constexpr u64 power_zero_words(u64 n) {
  return 19 * n / 64;
}
// Words that the rest, 5^(19 n) 2^(19 n mod 64), takes at most.
constexpr u64 power_words(u64 n) {
  constexpr u64 WORDS_PER_RADIX_WORD = 0xb0776eda0390b50e; // ceil(2^64 * 19 log2(5) / 64)
  return static_cast<u64>(static_cast<u128>(n) * WORDS_PER_RADIX_WORD >> 64) + 2;
}

// The cost model of both progress displays: one transform for a product of n words, and the word
// multiplications of a leaf; nanoseconds.
double transform_cost(u64 n);
double leaf_cost(u64 n);

struct Plan {
  static constexpr u64 MOST_LEVELS = 48;

  u64 W = 0;
  u64 levels = 0;
  u64 base = 0;
  u64 threads = 0; // that the work can feed
  u64 fork = 0;
  u64 workers = 0;
  km_MULv3::Context wide;   // for levels above fork
  km_MULv3::Context narrow; // for the subtrees

  u64 slot_words() const { return fraction_words(base + OVERLAP); }
  u64 slots() const { return u64{1} << levels; }
  u64 span(u64 level) const { return base << (levels - level); } // S(level)
  // Of the products with which nodes of `level` are cut: words of the longest fraction, and of the whole.
  u64 longest_fraction(u64 level) const { return fraction_words(span(level) + OVERLAP); }
  u64 product_words(u64 level) const { return longest_fraction(level) + power_words(span(level + 1)); }
  const km_MULv3::Context& context(u64 level) const { return level < fork ? wide : narrow; }
  // Words of the square of R^n.
  static constexpr u64 square_words(u64 n) { return 2 * power_words(n); }
};

// Plan for W >= 1 words; refuses a thread count that does not divide over the tree with
// "kmp_CBRv2_ci_btrf_ap_make(): Thread Inconsistancy".
Plan kmp_CBRv2_ci_btrf_ap_make(u64 W, const km_MULv3::Context& context);

// How the nodes of a level are multiplied by its power, whose transform they share.
//
// With l the words of a node's fraction and z the whole zero words of the power R^S = P 2^(64 z), the product
// f P has l - z words of fraction, of which the lower half takes the top `lower`. Its integer part is not
// wanted: the upper half has its own words of f. So a long product is formed modulo 2^(64 m) - 1 with
//
//   m >= l   and   m > power_words + z + lower,
//
// both about l: three quarters of the whole. What of the product lies above word m comes down on its lowest
// c = length - m words, all below the wanted ones. Only a carry out of them could go on into the wanted ones,
// and then all words between have become zero: where they are, the product is formed whole (see cut).
struct NodeProduct {
  km_MULv3::btp_storage storage;
  const km_MULv3::abstract_btp* record;
  const km_MULv3::abstract_ntp* wrapped; // the same record, null where products are formed whole
  u64 words;                             // m, or those of the whole product

  NodeProduct(const Plan& plan, u64 level);
  NodeProduct(const NodeProduct&) = delete;
  NodeProduct& operator=(const NodeProduct&) = delete;
};

// Memory of one product at a time: the work area, in which WorkAreas finds its way, and the product itself.
struct ProductBuffers {
  void* work;
  u64* product;
};

// The parts of a work area, by their byte offsets: the fraction's transform at 0, the power's (on wide levels
// only; the others keep theirs elsewhere), the scratch.
struct WorkAreas {
  u64 power, scratch, bytes;
  WorkAreas(const km_MULv3::abstract_btp& record, bool wide);
};

// The context of products formed whole where they are wrapped as a rule: their work area holds no more.
inline km_MULv3::Context whole_context(const Plan& plan, u64 level) {
  km_MULv3::Context context = plan.context(level);
  context.reduced_memory = true;
  return context;
}

// Placement of all buffers of a conversion.
struct Workspace {
  u64* slots;
  u64* overlaps;                             // one per subtree
  u64* powers[Plan::MOST_LEVELS];            // of level j: R^S(j + 1) without its zero words
  void* power_transforms[Plan::MOST_LEVELS]; // of the subtrees' levels, all kept; null for the wide ones,
                                             // whose power is the second factor in wide.work
  ProductBuffers squaring;
  ProductBuffers wide;     // of the levels above fork, one level at a time
  ProductBuffers* workers; // the table itself lies in the workspace

  Workspace(Layout& layout, const Plan& plan);
};

} // namespace kelvane::CBRv2

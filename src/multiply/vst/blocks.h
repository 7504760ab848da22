// Operands in blocks: products longer than any one transform.
//
// With blocks of B words an operand is a polynomial in x = 2^(64 B), and one transform is long enough for the
// sum of some products of two blocks. Each block is transformed once. Block m of the product,
//     sum of A_i B_j, i + j = m,
// is formed from the kept transforms, MAX_SUM products to one inverse, and added to the words from m B on.
// The pointwise products and inverses grow with the square of the number of blocks, which is small: a
// transform carries about 2^33 words.
#pragma once

#include "multiply/ntt/engine.h"
#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"
#include "shell/types.h"

namespace kelvane::km_VSTv2 {

// How a product is laid over transforms of one shape.
struct Division {
  ntt::Shape shape;
  u64 block_words = 0; // the whole product's when blocks == 1
  u64 blocks = 1;      // of the product, and at most of an operand

  u64 words() const { return blocks * block_words; }
};
// For a product of n words with shapes of at most the capacity of `largest`.
Division divide(u64 n, const ntt::Shape& largest);

// A transformed operand in blocks: a header, then the blocks' transforms.
struct BlockTransform {
  static constexpr u64 HEADER = 64;

  static u64 bytes(const ntt::Engine& engine, u64 blocks) {
    return HEADER + blocks * engine.transform_bytes();
  }
  static u64& count(void* T) { return *static_cast<u64*>(T); } // blocks in use
  static u64 count(const void* T) { return *static_cast<const u64*>(T); }
  static void* block(const ntt::Engine& engine, void* T, u64 i) {
    return static_cast<u8*>(T) + HEADER + i * engine.transform_bytes();
  }
  static const void* block(const ntt::Engine& engine, const void* T, u64 i) {
    return static_cast<const u8*>(T) + HEADER + i * engine.transform_bytes();
  }
};

// Scratch of products in blocks: the transform's own, the transform that an inverse uses up, and its words.
struct BlockScratch {
  void* engine;
  void* result;
  u64* words; // 2 block_words + 1

  BlockScratch(Layout& layout, const ntt::Engine& transform, const Division& division)
      : engine(layout.take_bytes(transform.scratch_bytes())),
        result(layout.take_bytes(transform.transform_bytes())),
        words(layout.take<u64>(2 * division.block_words + 1)) {}
};

// out +- x[0, count) 2^(64 at) modulo 2^(64 n), or modulo 2^(64 n) - 1 when wrapped. at < n.
void accumulate(u64* out, u64 n, u64 at, const u64* x, u64 count, bool subtract, bool wrapped);

} // namespace kelvane::km_VSTv2

// The table of one instruction set's kernels. Last include of the kernel sources fft_kernels_*.cpp.
//
// The *_impl.h headers are compiled once per instruction set. All they define has internal linkage, and they
// call no inline function of the standard library: a function that the linker merges across files could be
// kept in the copy that the oldest processor cannot run.
#pragma once

#include "multiply/fft/blocks_impl.h"
#include "multiply/fft/carry_impl.h"
#include "multiply/fft/digits_impl.h"

namespace kelvane::km_FFTv2 {
namespace {

template <class V, class I> constexpr Kernels make_kernels(const char* name) {
  return {name,
          V::LOG_LANES,
          Digits<V>::digits_step,
          Digits<V>::digits_norm_step,
          Blocks<V>::forward_rest,
          Blocks<V>::forward_block,
          Blocks<V>::forward_step,
          Blocks<V>::template product_rest<false>,
          Blocks<V>::template product_rest<true>,
          Blocks<V>::inverse_block,
          Blocks<V>::inverse_step,
          Carry<V, I>::carry};
}

} // namespace
} // namespace kelvane::km_FFTv2

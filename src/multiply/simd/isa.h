// The instruction set that the vector kernels use.
//
// Kernels are compiled once per set, each in its own file and with internal linkage, and reached through
// tables of function pointers; nothing of a set runs before the processor has been asked for it.
#pragma once

namespace kelvane::simd {

enum class Isa {
  sse3,       // 2 doubles, the baseline
  avx2,       // 4 doubles, fused multiply-add
  avx512,     // 8 doubles: AVX-512 F, DQ, VL, BW, CD
  avx512ifma, // the same, 52-bit integer multiplication, permutation of bytes (IFMA, VBMI)
};

// The set in force: the best one of the processor, lowered by the environment variable KELVANE_ISA (sse3,
// avx2, avx512 or avx512ifma, read once at the first call) and by force_isa.
Isa active_isa();

// Whether processor and operating system support the set.
bool supported(Isa isa);

// For tests and benchmarks: puts a supported set in force (an unsupported one is ignored) and returns the one
// in force. Not while other threads multiply; tables of roots are to be built again.
Isa force_isa(Isa isa);

const char* name(Isa isa);

} // namespace kelvane::simd

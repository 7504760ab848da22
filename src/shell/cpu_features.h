// What the processor and the operating system offer.
#pragma once

#include "shell/types.h"

namespace kelvane {

// The feature record shown to the user and checked at the start.
struct CpuFeatures {
  bool AMD = false;
  bool Intel = false;
  bool OS_64bit = false;
  // The system saves SSE or AVX registers. "Either" is deliberate: the record says that the system manages
  // extended state at all. Kernels are chosen by SimdSupport, which asks for every register it needs.
  bool OS_AVX = false;
  bool MMX = false;
  bool x64 = false;
  bool ABM = false;
  bool RDRAND = false;
  bool BMI1 = false;
  bool BMI2 = false;
  bool ADX = false;
  bool SSE = false;
  bool SSE2 = false;
  bool SSE3 = false;
  bool SSSE3 = false;
  bool SSE41 = false;
  bool SSE42 = false;
  bool SSE4a = false;
  bool AES = false;
  bool SHA = false;
  bool AVX = false;
  bool XOP = false;
  bool FMA3 = false;
  bool FMA4 = false;
  bool AVX2 = false;
  bool AVX512F = false;
  bool AVX512PF = false;
  bool AVX512ER = false;
  bool AVX512CD = false;
};

// Instruction sets that a kernel may use: the processor has every instruction that the kernels' files are
// compiled with, and the system saves every register they touch (XCR0).
struct SimdSupport {
  bool avx2 = false;       // AVX2, FMA, BMI1, BMI2
  bool avx512 = false;     // the above and AVX-512 F, DQ, VL, BW, CD
  bool avx512ifma = false; // the above and AVX-512 IFMA, VBMI
  bool adx = false;        // BMI1, BMI2 and ADX (general registers only)
};

// The identification instructions, replaceable so that tests can describe any processor.
struct CpuId {
  struct Registers {
    u32 eax, ebx, ecx, edx;
  };
  Registers (*cpuid)(u32 leaf, u32 subleaf);
  u64 (*xgetbv)(); // XCR0; called only when the system has enabled it (OSXSAVE)
};
extern const CpuId THIS_CPU;

void detect_cpu_features(CpuFeatures& features);
void detect_cpu_features(CpuFeatures& features, const CpuId& cpu);
SimdSupport detect_simd_support(const CpuId& cpu);
// This machine's, asked once.
const SimdSupport& simd_support();

// SSE, SSE2, SSE3, x64 and a 64-bit operating system: what the whole program is compiled for.
bool cpu_meets_build_requirements(const CpuFeatures& features);

} // namespace kelvane

// Detection by CPUID and XGETBV. See cpu_features.h.

#include "shell/cpu_features.h"

#include <cpuid.h>
#include <cstring>
#include <initializer_list>

namespace kelvane {

namespace {

CpuId::Registers run_cpuid(u32 leaf, u32 subleaf) {
  CpuId::Registers r{};
  __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
  return r;
}

u64 run_xgetbv() {
  u32 low = 0;
  u32 high = 0;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return static_cast<u64>(high) << 32 | low;
}

bool bit(u64 value, int position) {
  return (value >> position & 1) != 0;
}

// The leaves that features are read from; a leaf that the processor does not have reads as zeros.
struct Leaves {
  explicit Leaves(const CpuId& cpu) {
    const CpuId::Registers vendor = cpu.cpuid(0, 0);
    std::memcpy(vendor_text, &vendor.ebx, 4);
    std::memcpy(vendor_text + 4, &vendor.edx, 4);
    std::memcpy(vendor_text + 8, &vendor.ecx, 4);
    if (vendor.eax > 0) leaf1 = cpu.cpuid(1, 0);
    if (vendor.eax > 6) leaf7 = cpu.cpuid(7, 0);
    if (cpu.cpuid(0x80000000, 0).eax > 0x80000000) extended = cpu.cpuid(0x80000001, 0);
    if (bit(leaf1.ecx, 27)) xcr0 = cpu.xgetbv();
  }
  char vendor_text[13] = {};
  CpuId::Registers leaf1{};
  CpuId::Registers leaf7{};
  CpuId::Registers extended{};
  u64 xcr0 = 0;
};

} // namespace

const CpuId THIS_CPU = {run_cpuid, run_xgetbv};

void detect_cpu_features(CpuFeatures& features) {
  detect_cpu_features(features, THIS_CPU);
}

void detect_cpu_features(CpuFeatures& f, const CpuId& cpu) {
  const Leaves l(cpu);
  f = {};
  f.AMD = std::strcmp(l.vendor_text, "AuthenticAMD") == 0;
  f.Intel = std::strcmp(l.vendor_text, "GenuineIntel") == 0;
  f.OS_64bit = true;
  f.OS_AVX = bit(l.leaf1.ecx, 27) && bit(l.leaf1.ecx, 28) && (bit(l.xcr0, 1) || bit(l.xcr0, 2));

  f.MMX = bit(l.leaf1.edx, 23);
  f.SSE = bit(l.leaf1.edx, 25);
  f.SSE2 = bit(l.leaf1.edx, 26);
  f.SSE3 = bit(l.leaf1.ecx, 0);
  f.SSSE3 = bit(l.leaf1.ecx, 9);
  f.FMA3 = bit(l.leaf1.ecx, 12);
  f.SSE41 = bit(l.leaf1.ecx, 19);
  f.SSE42 = bit(l.leaf1.ecx, 20);
  f.AES = bit(l.leaf1.ecx, 25);
  f.AVX = bit(l.leaf1.ecx, 28);
  f.RDRAND = bit(l.leaf1.ecx, 30);

  f.BMI1 = bit(l.leaf7.ebx, 3);
  f.AVX2 = bit(l.leaf7.ebx, 5);
  f.BMI2 = bit(l.leaf7.ebx, 8);
  f.AVX512F = bit(l.leaf7.ebx, 16);
  f.ADX = bit(l.leaf7.ebx, 19);
  f.AVX512PF = bit(l.leaf7.ebx, 26);
  f.AVX512ER = bit(l.leaf7.ebx, 27);
  f.AVX512CD = bit(l.leaf7.ebx, 28);
  f.SHA = bit(l.leaf7.ebx, 29);

  f.x64 = bit(l.extended.edx, 29);
  f.ABM = bit(l.extended.ecx, 5);
  f.SSE4a = bit(l.extended.ecx, 6);
  f.XOP = bit(l.extended.ecx, 11);
  f.FMA4 = bit(l.extended.ecx, 16);
}

SimdSupport detect_simd_support(const CpuId& cpu) {
  const Leaves l(cpu);
  constexpr u64 YMM = 0x06; // XCR0: SSE and AVX state
  constexpr u64 ZMM = 0xE0; // XCR0: mask registers, upper halves, upper registers
  const bool ymm_saved = (l.xcr0 & YMM) == YMM;
  const bool zmm_saved = ymm_saved && (l.xcr0 & ZMM) == ZMM;
  const bool bmi = bit(l.leaf7.ebx, 3) && bit(l.leaf7.ebx, 8);

  SimdSupport s;
  s.adx = bmi && bit(l.leaf7.ebx, 19);
  s.avx2 = ymm_saved && bmi && bit(l.leaf1.ecx, 28) && bit(l.leaf1.ecx, 12) && bit(l.leaf7.ebx, 5);
  s.avx512 = s.avx2 && zmm_saved;
  for (const int feature : {16, 17, 28, 30, 31})
    s.avx512 = s.avx512 && bit(l.leaf7.ebx, feature); // F DQ CD BW VL
  s.avx512ifma = s.avx512 && bit(l.leaf7.ebx, 21) && bit(l.leaf7.ecx, 1); // VBMI: every such processor
  return s;
}

const SimdSupport& simd_support() {
  static const SimdSupport support = detect_simd_support(THIS_CPU);
  return support;
}

bool cpu_meets_build_requirements(const CpuFeatures& f) {
  return f.SSE && f.SSE2 && f.SSE3 && f.OS_64bit && f.x64;
}

} // namespace kelvane

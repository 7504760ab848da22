#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "shell/cpu_features.h"
#include "shell/system_info.h"
#include "shell/thread.h"
#include "support/capture.h"

namespace kelvane {
namespace {

// The processor that CPUID describes in these tests.
std::map<u32, CpuId::Registers> leaves;
u64 xcr0;
const CpuId FAKE = {[](u32 leaf, u32) { return leaves.count(leaf) != 0 ? leaves[leaf] : CpuId::Registers{}; },
                    [] { return xcr0; }};

void describe(const char* vendor, u32 highest, u32 highest_extended) {
  const auto text = [&](int i) {
    u32 word = 0;
    std::memcpy(&word, vendor + 4 * i, 4);
    return word;
  };
  leaves = {{0, {highest, text(0), text(2), text(1)}}, {0x80000000, {highest_extended, 0, 0, 0}}};
  for (const u32 leaf : {1u, 7u, 0x80000001u}) leaves[leaf] = {~0u, ~0u, ~0u, ~0u};
  xcr0 = 0xE7;
}

CpuFeatures features() {
  CpuFeatures f;
  detect_cpu_features(f, FAKE);
  return f;
}

TEST(CpuFeatures, VendorAndLeaves) {
  describe("GenuineIntel", 7, 0x80000008);
  CpuFeatures f = features();
  EXPECT_TRUE(f.Intel && !f.AMD && f.OS_64bit && f.OS_AVX && f.x64 && f.SSE3 && f.AVX2 && f.SHA && f.FMA4);
  EXPECT_TRUE(cpu_meets_build_requirements(f));

  describe("AuthenticAMD", 6, 0x80000008);
  f = features();
  EXPECT_TRUE(f.AMD && !f.Intel && f.SSE42 && f.XOP);
  EXPECT_FALSE(f.BMI1 || f.BMI2 || f.AVX2 || f.ADX || f.SHA || f.AVX512F || f.AVX512PF || f.AVX512CD);

  describe("SomeoneElse!", 0, 0x80000000);
  f = features();
  EXPECT_FALSE(f.AMD || f.Intel || f.SSE || f.OS_AVX || f.x64 || f.ABM);
  EXPECT_TRUE(f.OS_64bit);
  EXPECT_FALSE(cpu_meets_build_requirements(f));
}

TEST(CpuFeatures, EachBitSetsItsOwnField) {
  struct Case {
    u32 leaf;
    u32 CpuId::Registers::*reg;
    int bit;
    bool CpuFeatures::*field;
  };
  using R = CpuId::Registers;
  using F = CpuFeatures;
  const Case cases[] = {
      {1, &R::edx, 23, &F::MMX},           {1, &R::edx, 25, &F::SSE},
      {1, &R::edx, 26, &F::SSE2},          {1, &R::ecx, 0, &F::SSE3},
      {1, &R::ecx, 9, &F::SSSE3},          {1, &R::ecx, 12, &F::FMA3},
      {1, &R::ecx, 19, &F::SSE41},         {1, &R::ecx, 20, &F::SSE42},
      {1, &R::ecx, 25, &F::AES},           {1, &R::ecx, 28, &F::AVX},
      {1, &R::ecx, 30, &F::RDRAND},        {7, &R::ebx, 3, &F::BMI1},
      {7, &R::ebx, 5, &F::AVX2},           {7, &R::ebx, 8, &F::BMI2},
      {7, &R::ebx, 16, &F::AVX512F},       {7, &R::ebx, 19, &F::ADX},
      {7, &R::ebx, 26, &F::AVX512PF},      {7, &R::ebx, 27, &F::AVX512ER},
      {7, &R::ebx, 28, &F::AVX512CD},      {7, &R::ebx, 29, &F::SHA},
      {0x80000001, &R::edx, 29, &F::x64},  {0x80000001, &R::ecx, 5, &F::ABM},
      {0x80000001, &R::ecx, 6, &F::SSE4a}, {0x80000001, &R::ecx, 11, &F::XOP},
      {0x80000001, &R::ecx, 16, &F::FMA4},
  };
  for (const Case& c : cases) {
    describe("GenuineIntel", 7, 0x80000008);
    for (const u32 leaf : {1u, 7u, 0x80000001u}) leaves[leaf] = {};
    leaves[c.leaf].*c.reg = 1u << c.bit;
    const CpuFeatures f = features();
    EXPECT_TRUE(f.*c.field) << c.leaf << " bit " << c.bit;
    bool flags[sizeof f];
    std::memcpy(flags, &f, sizeof f);
    EXPECT_EQ(std::count(flags, flags + sizeof f, true), 3) << "vendor, system and the one feature";
  }
}

TEST(CpuFeatures, SystemSupport) {
  const auto with_xcr0 = [](u64 value) {
    describe("GenuineIntel", 7, 0x80000008);
    xcr0 = value;
    return std::pair{features().OS_AVX, detect_simd_support(FAKE)};
  };
  EXPECT_FALSE(with_xcr0(1).first);
  for (const u64 either : {u64{2}, u64{4}}) {
    EXPECT_TRUE(with_xcr0(either).first);
    EXPECT_FALSE(with_xcr0(either).second.avx2) << "kernels need both";
  }
  SimdSupport s = with_xcr0(6).second;
  EXPECT_TRUE(s.avx2 && s.adx && !s.avx512 && !s.avx512ifma);
  s = with_xcr0(0x67).second;
  EXPECT_FALSE(s.avx512) << "the upper registers are not saved";
  s = with_xcr0(0xE7).second;
  EXPECT_TRUE(s.avx512 && s.avx512ifma);
  leaves[7].ecx &= ~2u;
  EXPECT_FALSE(detect_simd_support(FAKE).avx512ifma) << "its kernels permute bytes";

  // A processor without the system's consent: XGETBV must not even be run.
  describe("GenuineIntel", 7, 0x80000008);
  leaves[1].ecx &= ~(1u << 27);
  s = detect_simd_support(FAKE);
  EXPECT_FALSE(s.avx2 || s.avx512);
  EXPECT_TRUE(s.adx);
  for (const int bit : {16, 17, 28, 30, 31}) {
    describe("GenuineIntel", 7, 0x80000008);
    leaves[7].ebx &= ~(1u << bit);
    EXPECT_FALSE(detect_simd_support(FAKE).avx512) << bit;
  }
}

TEST(SystemInfo, ThisMachine) {
  CpuFeatures f;
  detect_cpu_features(f);
  EXPECT_TRUE(cpu_meets_build_requirements(f)) << "this test runs";
  EXPECT_GT(physical_memory(), u64{1} << 26);
  EXPECT_GT(available_memory(), 0u);
  EXPECT_LE(available_memory(), physical_memory());
  const u64 hz = measure_cpu_frequency();
  EXPECT_GT(hz, 100'000'000u);
  EXPECT_LT(hz, 20'000'000'000u);

  const std::string text = capture([] { print_system_info(); }).output;
  size_t position = 0;
  for (const char* label : {"Version:          0.6.5 Build 9444b (fix 2) (x64 SSE3 - Linux",
                            "\nProcessor(s):     ", "\nLogical Cores:    ", "\nPhysical Memory:  ",
                            "\nCPU Frequency:    ", " Hz  (frequency may be inaccurate)\n"}) {
    position = text.find(label, position);
    ASSERT_NE(position, std::string::npos) << label << '\n' << text;
  }
}

} // namespace
} // namespace kelvane

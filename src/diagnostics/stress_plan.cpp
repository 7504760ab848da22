// See stress_plan.h.

#include "diagnostics/stress_plan.h"

#include <algorithm>
#include <cmath>
#include <unistd.h>

#include "multiply/basecase/km_MULB.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/hnt/km_HNT.h"
#include "multiply/ntt/kernels.h"
#include "multiply/simd/isa.h"
#include "multiply/vst/km_VSTv2.h"
#include "shell/reservation.h"

namespace kelvane {

namespace {

using km_MULv3::abstract_btp;
using km_MULv3::btp_storage;
using km_MULv3::Context;

const km_MULB::algorithm_c32_p BKT32;
const km_MULB::algorithm_c64_p BKT;
const km_FFTv2::algorithm<u64> FFT;
const km_HNT::algorithm<u64> HNT;
const km_VSTv2::algorithm<u64> VST;

abstract_btp* second_bkt(u64 n, const Context& context, btp_storage* storage) {
  return BKT32.make_parameters(2 * n, context, storage);
}
abstract_btp* second_fft(u64 n, const Context& context, btp_storage* storage) {
  return FFT.make_parameters(n, context, storage);
}
abstract_btp* second_hnt(u64 n, const Context& context, btp_storage* storage) {
  return HNT.make_parameters(n, context, storage);
}

constexpr u64 K = 1024, M = 1024 * 1024;

constexpr bool IN_CACHE = true, IN_MEMORY = false;
constexpr bool TABLES = true, NO_TABLES = false;
// clang-format off
const StressTest TESTS[STRESS_TESTS] = {
    {"BKT (Basic Multiplication)      ", "CPU: Integer            ", &BKT, second_bkt, 54, 54, 64 * M, IN_CACHE, NO_TABLES},
    {"FFT (Fast Fourier Transform)    ", "Memory                  ", &FFT, second_hnt, 128, 1 * M, 32 * M, IN_MEMORY, TABLES},
    {"HNT (Hybrid NTT)                ", "CPU + Cache + Memory    ", &HNT, second_fft, 2 * K, 64 * M, 32 * M, IN_MEMORY, TABLES},
    {"VST (Vector Transform)          ", "CPU: Floating-Point     ", &VST, second_fft, 2 * K, 64 * K, 32 * M, IN_CACHE, TABLES},
};
// clang-format on

u64 cache_bytes() {
  constexpr u64 LEAST = 256 * K;
  const long size = sysconf(_SC_LEVEL2_CACHE_SIZE);
  return std::max(LEAST, size < 0 ? u64{0} : static_cast<u64>(size));
}

u64 window_bytes(const StressPlan& plan) {
  const Context context;
  btp_storage storage, sample_storage;
  const abstract_btp* const record = plan.test->algorithm->make_parameters(plan.words, context, &storage);
  const abstract_btp* const sample = plan.test->second(2 * plan.sample_words(), context, &sample_storage);
  Layout layout;
  StressWindow(layout, plan, *record, *sample);
  return layout.used();
}

// Lengths in steps of an eighth of an octave, even.
u64 length_of_step(u64 step) {
  return static_cast<u64>(std::exp2(static_cast<double>(step) / 8) / 2 + 0.001) * 2;
}

} // namespace

const StressTest& stress_test(u64 index) {
  return TESTS[index];
}

StressWindow::StressWindow(Layout& layout, const StressPlan& plan, const abstract_btp& record,
                           const abstract_btp& sample)
    : pool_words(2 * plan.operand_words() + POOL_SHIFTS) {
  pool = layout.take<u64>(pool_words);
  product = layout.take<u64>(plan.words);
  TA = layout.take_bytes(record.transform_bytes());
  TB = layout.take_bytes(record.second_bytes());
  scratch = layout.take_bytes(record.scratch_bytes());
  sample_product = layout.take<u64>(2 * plan.sample_words());
  sample_TA = layout.take_bytes(sample.transform_bytes());
  sample_TB = layout.take_bytes(sample.second_bytes());
  sample_scratch = layout.take_bytes(sample.scratch_bytes());
}

StressPlan plan_stress(const StressTest& test, u64 share_bytes) {
  const u64 limit = test.in_cache ? std::min(share_bytes, cache_bytes()) : share_bytes;
  const auto fits = [&](u64 words, u64 bytes) {
    StressPlan plan;
    plan.test = &test;
    plan.words = words;
    plan.window = window_bytes(plan);
    plan.windows = share_bytes / std::max(u64{1}, plan.window);
    plan.products = std::max(u64{1}, test.pass_words / words);
    if (plan.window > bytes) plan.words = 0;
    return plan;
  };
  for (u64 step = 8 * 26; length_of_step(step) > test.least_words; step--) {
    if (length_of_step(step) > test.most_words) continue;
    const StressPlan plan = fits(length_of_step(step), limit);
    if (plan.words != 0) return plan;
  }
  return fits(test.least_words, share_bytes);
}

u64 stress_table_bytes() {
  return km_FFTv2::table_d::bytes(TESTS[1].most_words) +
         ntt::table_bytes(ntt::backend_of(simd::active_isa()));
}

StressTables::StressTables(u64 threads)
    : bytes_(km_FFTv2::table_d::bytes(TESTS[1].most_words)), memory_(reserve_memory(bytes_, threads)) {
  fft_.build(memory_, TESTS[1].most_words, threads);
  ntt::build_tables(ntt::backend_of(simd::active_isa()), threads);
  set_.fft = &fft_;
}

StressTables::~StressTables() {
  release_memory(memory_, bytes_);
}

} // namespace kelvane

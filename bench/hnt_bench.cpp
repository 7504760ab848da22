// Products of the hybrid NTT's row beside GMP's, alternating in one process: medians and ratios.
//
//   hnt_bench [log2 of the smallest operand in words] [largest] [runs]
//
// For every supported instruction set and 1 and 2 threads.
#include <gmp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "multiply/ntt/kernels.h"
#include "multiply/simd/isa.h"
#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"

namespace {

using namespace kelvane;

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

template <class F> double timed(const F& f) {
  const double start = seconds();
  f();
  return seconds() - start;
}

double median(std::vector<double> x) {
  std::nth_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(x.size() / 2), x.end());
  return x[x.size() / 2];
}

// Milliseconds of GMP and of Kelvane on each set and thread count, for operands of n words.
void line(u64 n, int runs, const std::vector<simd::Isa>& isas) {
  std::mt19937_64 random(n);
  std::vector<u64> a(n), b(n), want(2 * n);
  for (u64& x : a) x = random();
  for (u64& x : b) x = random();
  u64 bytes = 0;
  for (const simd::Isa isa : isas) {
    simd::force_isa(isa);
    bytes = std::max({bytes, km_MULv3::product_cost(2 * n, 1), km_MULv3::product_cost(2 * n, 2)});
  }
  Heap heap; // committed memory in huge pages, as in a computation
  heap.create_root(bytes + 16 * n + (u64{1} << 20), 2);
  void* const work = heap.allocate_aligned(bytes, 64);
  u64* const out = static_cast<u64*>(heap.allocate_aligned(16 * n, 64));
  std::vector<std::vector<double>> times(1 + 2 * isas.size());
  for (int run = 0; run < runs; run++) {
    times[0].push_back(timed([&] { mpn_mul_n(want.data(), a.data(), b.data(), static_cast<mp_size_t>(n)); }));
    for (u64 i = 0; i < 2 * isas.size(); i++) {
      simd::force_isa(isas[i / 2]);
      km_MULv3::Context context;
      context.threads = 1 + i % 2;
      if (run == 0) ntt::build_tables(ntt::backend_of(simd::active_isa()), 2);
      times[1 + i].push_back(
          timed([&] { km_MULv3::multiply(context, out, a.data(), n, b.data(), n, work); }));
      if (run == 0 && !std::equal(want.begin(), want.end(), out)) {
        std::printf("WRONG PRODUCT: %s, %llu words\n", name(isas[i / 2]), static_cast<unsigned long long>(n));
        std::exit(1);
      }
    }
  }
  const double gmp = median(times[0]);
  std::printf("%9llu  GMP %9.3f ms", static_cast<unsigned long long>(n), gmp * 1e3);
  for (u64 i = 0; i < isas.size(); i++) {
    const double one = median(times[1 + 2 * i]), two = median(times[2 + 2 * i]);
    std::printf("  | %s %8.3f  x%5.2f  2 thr x%4.2f", name(isas[i]), one * 1e3, gmp / one, one / two);
  }
  std::printf("\n");
  heap.free_aligned(work);
  heap.free_aligned(out);
}

} // namespace

int main(int argc, char** argv) {
  const int first = argc > 1 ? std::atoi(argv[1]) : 15, last = argc > 2 ? std::atoi(argv[2]) : 22;
  const int runs = argc > 3 ? std::atoi(argv[3]) : 5;
  std::vector<kelvane::simd::Isa> isas;
  for (const auto isa : {simd::Isa::avx512ifma, simd::Isa::avx512, simd::Isa::avx2, simd::Isa::sse3}) {
    if (kelvane::simd::supported(isa)) isas.push_back(isa);
  }
  for (int k = first; k <= last; k++) line(u64{1} << k, runs, isas);
}

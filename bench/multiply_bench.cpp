// Products of the basecase's and the FFT's rows beside GMP's, alternating in one process: medians and ratios.
//
//   multiply_bench [largest operand in words, default 8704] [runs, default 15]
//
// One thread, equal lengths, every supported instruction set; the tables are built outside the timing.
#include <gmp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "multiply/simd/isa.h"
#include "multiply/table/km_MULv3.h"
#include "multiply/table/tables.h"
#include "shell/heap.h"

namespace {

using namespace kelvane;

constexpr u64 LENGTHS[] = {4,   8,   16,  27,   28,   32,   40,   50,   64,   100,  160,
                           250, 400, 640, 1000, 1600, 2500, 4000, 6400, 8704, 16000};
constexpr double TIME_OF_A_RUN = 4e-4; // seconds; short products are repeated

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Seconds of one call.
template <class F> double timed(u64 repeats, const F& f) {
  const double start = seconds();
  for (u64 i = 0; i < repeats; i++) f();
  return (seconds() - start) / static_cast<double>(repeats);
}

double median(std::vector<double> x) {
  std::nth_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(x.size() / 2), x.end());
  return x[x.size() / 2];
}

struct Memory {
  explicit Memory(u64 bytes) : data(aligned_malloc(bytes, 64)) {}
  ~Memory() { aligned_free(data); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  void* const data;
};

// One instruction set with its tables.
struct Engine {
  simd::Isa isa;
  Memory memory;
  km_MULv3::Tables tables;
  km_MULv3::Context context;
  Engine(simd::Isa isa_, u64 words) : isa(simd::force_isa(isa_)), memory(km_MULv3::Tables::bytes(words)) {
    tables.build(memory.data, words, 1);
    context.tables = &tables.set();
  }
};

void line(u64 n, int runs, const std::vector<std::unique_ptr<Engine>>& engines) {
  std::mt19937_64 random(n);
  std::vector<u64> a(n), b(n), want(2 * n), out(2 * n);
  for (u64& x : a) x = random();
  for (u64& x : b) x = random();
  const auto gmp_product = [&] { mpn_mul_n(want.data(), a.data(), b.data(), static_cast<mp_size_t>(n)); };
  const u64 repeats = 1 + static_cast<u64>(TIME_OF_A_RUN / timed(3, gmp_product));
  std::vector<double> gmp;
  std::vector<std::vector<double>> times(engines.size());
  for (int run = 0; run < runs; run++) {
    gmp.push_back(timed(repeats, gmp_product));
    for (u64 i = 0; i < engines.size(); i++) {
      simd::force_isa(engines[i]->isa);
      const Memory work(km_MULv3::product_cost(2 * n, 1));
      const auto product = [&] {
        km_MULv3::multiply(engines[i]->context, out.data(), a.data(), n, b.data(), n, work.data);
      };
      product();
      times[i].push_back(timed(repeats, product));
      if (out != want) {
        std::printf("WRONG PRODUCT: %s, %llu words\n", name(engines[i]->isa),
                    static_cast<unsigned long long>(n));
        std::exit(1);
      }
    }
  }
  const double peer = median(gmp) * 1e6;
  std::printf("%7llu  %10.3f", static_cast<unsigned long long>(n), peer);
  for (const std::vector<double>& t : times) {
    const double mine = median(t) * 1e6;
    std::printf("  | %10.3f  x%5.2f", mine, peer / mine);
  }
  std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
  const u64 largest = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 8704;
  const int runs = argc > 2 ? std::atoi(argv[2]) : 15;
  std::vector<std::unique_ptr<Engine>> engines;
  std::printf("Microseconds for a product of two numbers of n words, and how many times faster than GMP\n");
  std::printf("%7s  %10s", "n", "GMP");
  for (const simd::Isa isa : {simd::Isa::avx512ifma, simd::Isa::avx512, simd::Isa::avx2, simd::Isa::sse3}) {
    // Both AVX-512 sets have the same kernels here.
    if (!simd::supported(isa) || (isa == simd::Isa::avx512 && !engines.empty())) continue;
    engines.push_back(std::make_unique<Engine>(isa, 2 * largest));
    std::printf("  | %18s", name(isa));
  }
  std::printf("\n");
  for (const u64 n : LENGTHS) {
    if (n <= largest) line(n, runs, engines);
  }
}

// Products beside GMP's mpn_mul_n and mpn_sqr, alternating in one process: medians, and how many times
// faster.
//
//   products floors [runs]                     lengths from 4 to 2^24 words, every instruction set on one
//   thread, the best
//                                              one on two
//   products lengths ISA RUNS WORDS...         the same lengths for one instruction set: product on 1 and 2
//   threads, square products steps LOG2FIRST LOG2LAST [runs]   from 2^first to 2^last words in eighths of an
//   octave: nanoseconds a word
//
// ISA: avx512ifma, avx512, avx2, sse3. Tables are built and memory is committed, in huge pages, outside the
// timing.
#include <gmp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "measure.h"
#include "multiply/simd/isa.h"
#include "multiply/table/km_MULv3.h"
#include "multiply/table/tables.h"

namespace {

using namespace kelvane;
using namespace bench;

constexpr double TIME_OF_A_RUN = 4e-2; // seconds; short products are repeated

// One instruction set with its tables.
struct Engine {
  simd::Isa isa;
  Memory memory;
  km_MULv3::Tables tables;
  Engine(simd::Isa isa_, u64 words) : isa(simd::force_isa(isa_)), memory(km_MULv3::Tables::bytes(2 * words)) {
    tables.build(memory.data, 2 * words, 2);
  }
  km_MULv3::Context context(u64 threads) const {
    simd::force_isa(isa);
    km_MULv3::Context c;
    c.tables = &tables.set();
    c.threads = threads;
    return c;
  }
};

struct Operands {
  u64 n;
  Memory a, b, want, out;
  explicit Operands(u64 n_) : n(n_), a(8 * n), b(8 * n, 1024), want(16 * n, 3072), out(16 * n, 2048) {
    const std::vector<u64> random = random_words(2 * n, n);
    std::copy_n(random.data(), n, a.words());
    std::copy_n(random.data() + n, n, b.words());
  }
  void gmp_product() const { mpn_mul_n(want.words(), a.words(), b.words(), static_cast<mp_size_t>(n)); }
  void gmp_square() const { mpn_sqr(want.words(), a.words(), static_cast<mp_size_t>(n)); }
};

// A way to form the product or the square: of the peer or of Kelvane.
struct Entry {
  const Engine* engine = nullptr; // null: GMP
  u64 threads = 1;
  bool square = false;
  std::vector<double> times = {};
  double seconds() const { return median(times); }
};

void measure(const Operands& o, std::vector<Entry>& entries, int runs) {
  u64 bytes = 0;
  for (const Entry& e : entries) {
    if (e.engine == nullptr) continue;
    simd::force_isa(e.engine->isa);
    bytes = std::max(bytes, km_MULv3::product_cost(2 * o.n, e.threads));
  }
  const Memory work(bytes);
  const u64 repeats = 1 + static_cast<u64>(TIME_OF_A_RUN / timed([&] { o.gmp_product(); }));
  for (int run = 0; run < runs; run++) {
    for (Entry& e : entries) {
      if (e.engine == nullptr) {
        e.times.push_back(timed([&] { e.square ? o.gmp_square() : o.gmp_product(); }, repeats));
        continue;
      }
      const km_MULv3::Context context = e.engine->context(e.threads);
      const auto product = [&] {
        if (e.square)
          km_MULv3::square(context, o.out.words(), o.a.words(), o.n, work.data);
        else
          km_MULv3::multiply(context, o.out.words(), o.a.words(), o.n, o.b.words(), o.n, work.data);
      };
      if (run == 0) product(); // its memory is touched
      e.times.push_back(timed(product, repeats));
      if (run != 0) continue;
      e.square ? o.gmp_square() : o.gmp_product();
      if (!std::equal(o.want.words(), o.want.words() + 2 * o.n, o.out.words())) {
        std::printf("WRONG PRODUCT: %s, %llu words\n", name(e.engine->isa),
                    static_cast<unsigned long long>(o.n));
        std::exit(1);
      }
    }
  }
}

std::vector<std::unique_ptr<Engine>> engines(u64 words) {
  std::vector<std::unique_ptr<Engine>> all;
  for (const simd::Isa isa : {simd::Isa::avx512ifma, simd::Isa::avx512, simd::Isa::avx2, simd::Isa::sse3}) {
    if (simd::supported(isa)) all.push_back(std::make_unique<Engine>(isa, words));
  }
  return all;
}

void floors(int runs) {
  struct Line {
    u64 words;
    double floor; // times faster than GMP
  };
  const Line lines[] = {{4, .8},      {8, .8},      {16, .8},     {27, .8},     {64, 1.3},
                        {250, 2.5},   {1000, 4},    {4000, 6},    {16000, 6.3}, {1 << 17, 6},
                        {1 << 18, 0}, {1 << 20, 8}, {1 << 22, 8}, {1 << 24, 8}};
  const auto all = engines(1 << 14);
  std::printf("%9s %6s  %12s", "words", "floor", "GMP us");
  for (const auto& e : all) std::printf("  %18s", name(e->isa));
  std::printf("  %12s\n", "2 threads");
  for (const Line& line : lines) {
    const Operands operands(line.words);
    std::vector<Entry> entries{{}};
    for (const auto& e : all) {
      // The slow sets at the largest lengths tell nothing new and take minutes.
      if (line.words > (1 << 20) && e != all.front()) continue;
      entries.push_back({e.get()});
    }
    if (line.words >= (1 << 17)) entries.push_back({all.front().get(), 2});
    const int times = line.words >= (1 << 22)   ? std::min(runs, 3)
                      : line.words >= (1 << 20) ? std::min(runs, 5)
                                                : runs;
    measure(operands, entries, times);
    const double gmp = entries[0].seconds();
    std::printf("%9llu %6.2f  %12.3f", static_cast<unsigned long long>(line.words), line.floor, gmp * 1e6);
    for (u64 i = 1; i < entries.size(); i++) {
      const double t = entries[i].seconds();
      if (entries[i].threads == 2)
        std::printf("  %6.2f of one", entries[1].seconds() / t);
      else
        std::printf("  %11.3f %6.2f", t * 1e6, gmp / t);
    }
    std::printf("\n");
    std::fflush(stdout);
  }
}

void lengths(simd::Isa isa, int runs, const std::vector<u64>& words) {
  const Engine engine(isa, 1 << 14);
  std::printf("%9s  %11s  %11s %6s  %10s  %11s %9s  %11s\n", "words", "GMP us", "product", "times",
              "2 threads", "square", "of prod.", "GMP square");
  for (const u64 n : words) {
    const Operands operands(n);
    std::vector<Entry> e{{}, {&engine}, {&engine, 2}, {&engine, 1, true}, {nullptr, 1, true}};
    measure(operands, e, runs);
    std::printf("%9llu  %11.3f  %11.3f %6.2f  %10.2f  %11.3f %9.3f  %11.3f\n",
                static_cast<unsigned long long>(n), e[0].seconds() * 1e6, e[1].seconds() * 1e6,
                e[0].seconds() / e[1].seconds(), e[1].seconds() / e[2].seconds(), e[3].seconds() * 1e6,
                e[3].seconds() / e[1].seconds(), e[4].seconds() * 1e6);
    std::fflush(stdout);
  }
}

void steps(int first, int last, int runs) {
  const Engine engine(simd::active_isa(), 1 << 14);
  std::printf("words gmp_ns_per_word kelvane_ns_per_word times two_threads\n");
  for (int eighth = 8 * first; eighth <= 8 * last; eighth++) {
    const u64 n = static_cast<u64>(std::llround(std::exp2(eighth / 8.0)));
    const Operands operands(n);
    std::vector<Entry> e{{}, {&engine}, {&engine, 2}};
    measure(operands, e, runs);
    const double words = static_cast<double>(n);
    std::printf("%llu %.2f %.2f %.2f %.2f\n", static_cast<unsigned long long>(n),
                e[0].seconds() * 1e9 / words, e[1].seconds() * 1e9 / words, e[0].seconds() / e[1].seconds(),
                e[1].seconds() / e[2].seconds());
    std::fflush(stdout);
  }
}

} // namespace

int main(int argc, char** argv) {
  const auto number = [&](int i, int otherwise) { return argc > i ? std::atoi(argv[i]) : otherwise; };
  if (argc > 1 && std::strcmp(argv[1], "floors") == 0) {
    floors(number(2, 9));
  } else if (argc > 3 && std::strcmp(argv[1], "steps") == 0) {
    steps(number(2, 18), number(3, 22), number(4, 3));
  } else if (argc > 4 && std::strcmp(argv[1], "lengths") == 0) {
    std::vector<u64> words;
    for (int i = 4; i < argc; i++) words.push_back(std::strtoull(argv[i], nullptr, 10));
    for (const simd::Isa isa : {simd::Isa::avx512ifma, simd::Isa::avx512, simd::Isa::avx2, simd::Isa::sse3}) {
      if (std::strcmp(argv[2], name(isa)) == 0 && simd::supported(isa)) lengths(isa, number(3, 5), words);
    }
  } else {
    std::fprintf(stderr,
                 "usage: products floors [runs] | lengths ISA RUNS WORDS... | steps FIRST LAST [runs]\n");
    return 1;
  }
}

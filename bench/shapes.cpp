// The prime-field transforms from inside: what decides their cost model, and where a product's time goes.
//
//   shapes ISA list WORDS [runs]     one thread: every shape that carries a product of two operands of WORDS
//                                    words, its time beside the model's, and a square's
//   shapes ISA shares WORDS [runs]   the phases of one product in the shape that is chosen, then rows of a
//                                    square and of kept transforms: nanoseconds a point and prime, bytes
//                                    moved a second, on 1 and 2 threads
//
// ISA: avx512ifma, avx512, avx2, sse3.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "measure.h"
#include "multiply/ntt/engine.h"
#include "multiply/simd/isa.h"

namespace {

using namespace kelvane;
using namespace bench;

void print_shape(const ntt::Shape& s) {
  std::printf("w %u  b %3u  N %llu * 2^%2u  rows %6llu  columns 2^%2u  tile %2llu%s%s%s", s.w, s.b,
              static_cast<unsigned long long>(s.r), s.log_rows + s.log_columns,
              static_cast<unsigned long long>(s.rows()), s.log_columns,
              static_cast<unsigned long long>(s.tile()), s.direct ? " direct" : "",
              s.stream ? " stream" : "", s.packed ? " packed" : "");
}

// All shapes worth a look, in turn, so that a slow moment of the machine hits all of them.
void list(ntt::Backend backend, u64 words, int runs) {
  const ntt::ShapeList all = ntt::every_shape(backend);
  const ntt::Shape& chosen = *ntt::choose_shape(backend, 128 * words);
  std::vector<const ntt::Shape*> shapes;
  u64 transform = 0, scratch = 0;
  for (u64 i = 0; i < all.count; i++) {
    const ntt::Shape& s = all.first[i];
    if (s.capacity_bits() < 128 * words ||
        ntt::product_nanoseconds(s) > 1.45 * ntt::product_nanoseconds(chosen))
      continue;
    const ntt::Engine engine(s, 1, nullptr);
    transform = std::max(transform, engine.transform_bytes());
    scratch = std::max(scratch, engine.scratch_bytes());
    shapes.push_back(&s);
  }
  const Memory TA(transform), TB(transform), work(scratch), a(8 * words), b(8 * words), out(16 * words);
  const std::vector<u64> random = random_words(2 * words, words);
  std::copy_n(random.data(), words, a.words());
  std::copy_n(random.data() + words, words, b.words());
  std::vector<std::vector<double>> times(shapes.size()), squares(shapes.size());
  for (int run = 0; run <= runs; run++) {
    for (u64 i = 0; i < shapes.size(); i++) {
      const ntt::Engine engine(*shapes[i], 1, nullptr);
      const double t = timed([&] {
        engine.product(out.words(), 2 * words, a.words(), words, b.words(), words, TA.data, TB.data,
                       work.data);
      });
      const double square = timed([&] {
        engine.product(out.words(), 2 * words, a.words(), words, nullptr, 0, TA.data, nullptr, work.data);
      });
      if (run == 0) continue;
      times[i].push_back(t);
      squares[i].push_back(square);
    }
  }
  for (u64 i = 0; i < shapes.size(); i++) {
    const double t = median(times[i]), model = ntt::product_nanoseconds(*shapes[i]);
    print_shape(*shapes[i]);
    std::printf("  %9.3f ms  model %9.3f  %.3f  square %9.3f ms%s\n", t * 1e3, model * 1e-6, t * 1e9 / model,
                median(squares[i]) * 1e3, *shapes[i] == chosen ? "  chosen" : "");
  }
}

// One phase: the median over runs, and what it moves.
void phase(const char* name, const ntt::Shape& s, double t, double total, double bytes) {
  const double points = static_cast<double>(s.N()) * s.w;
  std::printf("  %-34s %9.3f ms  %5.1f %%  %6.3f ns a point and prime  %6.1f GB/s\n", name, t * 1e3,
              100 * t / total, t * 1e9 / points, bytes / t * 1e-9);
}

void shares(ntt::Backend backend, u64 words, int runs, u64 threads) {
  const ntt::Shape& s = *ntt::choose_shape(backend, 128 * words);
  const ntt::Kernels& kernels = ntt::kernels_of(backend);
  print_shape(s);
  std::printf("\n");
  const Memory x(8 * s.w * s.prime_stride()), y(8 * s.w * s.prime_stride()),
      areas(8 * threads * (s.area_words() + 8));
  const Memory a(8 * words), out(16 * words), overhang(8 * s.runs() * s.overhang_words());
  const std::vector<u64> random = random_words(words, words);
  std::copy_n(random.data(), words, a.words());
  const auto area = [&](km_MULv3::Worker worker) {
    return areas.words() + worker.index * ((s.area_words() + 7) & ~7ull);
  };
  const auto on_all = [&](u64 tasks, const auto& f) {
    return timed([&] { km_MULv3::run_phases(threads, km_MULv3::Phase{tasks, f}); });
  };
  const auto product_rows = [&](bool square, bool raw) {
    return on_all(s.w * s.rows(), [&, square, raw](u64 task, km_MULv3::Worker worker) {
      const u32 prime = static_cast<u32>(task / s.rows());
      const u64 row = task % s.rows(), at = prime * s.prime_stride() + row * s.row_stride();
      const ntt::RowPair pair{x.words() + at, (square ? x : y).words() + at, raw, raw, raw, false};
      kernels.product_row(s, prime, row, &pair, 1, area(worker));
    });
  };
  std::vector<double> forward, rows, inverse, square, kept, keep;
  for (int run = 0; run <= runs; run++) {
    const double f = on_all(2 * s.tiles(), [&](u64 task, km_MULv3::Worker worker) {
      u64* const to = task < s.tiles() ? x.words() : y.words();
      kernels.forward_tile(s, 0, s.w, a.words(), words, task % s.tiles(), to, area(worker));
    });
    const double r = product_rows(false, true), q = product_rows(true, true), m = product_rows(false, false);
    const double t = on_all(s.w * s.rows(), [&](u64 task, km_MULv3::Worker worker) {
      const u32 prime = static_cast<u32>(task / s.rows());
      const u64 row = task % s.rows();
      kernels.forward_row(s, prime, row, x.words() + prime * s.prime_stride() + row * s.row_stride(),
                          area(worker));
    });
    const ntt::Output output{out.words(), 2 * words, overhang.words()};
    const double i = on_all(s.tiles(), [&](u64 tile, km_MULv3::Worker worker) {
      kernels.inverse_tile(s, x.words(), tile, output, area(worker));
    });
    if (run == 0) continue;
    forward.push_back(f);
    rows.push_back(r);
    inverse.push_back(i);
    square.push_back(q);
    kept.push_back(m);
    keep.push_back(t);
  }
  const double f = median(forward), r = median(rows), i = median(inverse), total = f + r + i;
  // Packed rows are written once, the product's; otherwise both are transformed where they lie.
  const double data = static_cast<double>(8 * s.w * s.words_of(s.N()));
  std::printf("product %.3f ms on %llu threads, the phases one after another:\n", total * 1e3,
              static_cast<unsigned long long>(threads));
  phase("words to residues, columns (twice)", s, f, total, 2 * data + 16.0 * static_cast<double>(words));
  phase("rows: forward, product, inverse", s, r, total, (s.packed ? 3 : 4) * data);
  phase("columns back, words", s, i, total, data + 16.0 * static_cast<double>(words));
  std::printf("rows otherwise:\n");
  phase("of a square", s, median(square), total, 2 * data);
  phase("forward, to be kept", s, median(keep), total, 2 * data);
  phase("of two kept ones: product, inverse", s, median(kept), total, 3 * data);
}

} // namespace

int main(int argc, char** argv) {
  const simd::Isa isas[] = {simd::Isa::avx512ifma, simd::Isa::avx512, simd::Isa::avx2, simd::Isa::sse3};
  const int runs = argc > 4 ? std::atoi(argv[4]) : 5;
  for (const simd::Isa isa : isas) {
    if (argc < 4 || std::strcmp(argv[1], simd::name(isa)) != 0 || !simd::supported(isa)) continue;
    simd::force_isa(isa);
    const ntt::Backend backend = ntt::backend_of(isa);
    ntt::build_tables(backend, 2);
    const u64 words = std::strtoull(argv[3], nullptr, 10);
    if (std::strcmp(argv[2], "list") == 0)
      list(backend, words, runs);
    else
      for (u64 threads = 1; threads <= 2; threads++) shares(backend, words, runs, threads);
    return 0;
  }
  std::fprintf(stderr, "usage: shapes ISA list|shares WORDS [runs]\n");
  return 1;
}

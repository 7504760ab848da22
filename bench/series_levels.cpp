// Where the time of a series goes, by level of its recursion.
//
//   series_levels SERIES DIGITS [THREADS]       SERIES: chudnovsky, ramanujan, zeta3_1, zeta3_2, lupas,
//   huvent
//
// Sums every segment of the schedule, in order, without the merges of segments, and prints for each level (by
// the words of a range's integers) how many ranges there were and the processor seconds of their merges: wall
// time of a merge times the threads that it was given. A range appended term by term counts as "leaf".
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "multiply/table/tables.h"
#include "series/recursion.h"
#include "series/series_catalan.h"
#include "series/series_pi.h"
#include "series/series_zeta3.h"

namespace {

using namespace kelvane;

struct Level {
  std::atomic<u64> ranges{0}, nanoseconds{0};
};
struct Levels {
  Level leaf;
  std::array<Level, 48> merge; // by log2 of the words
};

// Adds the time of its life to a level.
class Timer {
public:
  Timer(Level& level, u64 threads) : level_(level), threads_(threads) {}
  ~Timer() {
    const auto time = std::chrono::steady_clock::now() - start_;
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
    level_.ranges++;
    level_.nanoseconds += static_cast<u64>(ns) * threads_;
  }

private:
  Level& level_;
  u64 threads_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// A shape of the recursion that times another one's steps.
template <class Series> struct Timed {
  static constexpr u64 INTEGERS = Series::INTEGERS;
  const Series& series;
  Levels& levels;

  u64 capacity(u64 a, u64 b, u64 divided) const { return series.capacity(a, b, divided); }
  u64 first_capacity(u64 a, u64 b, u64 divided) const { return series.first_capacity(a, b, divided); }
  u64 divided_level(u64 a, u64 b) const { return series.divided_level(a, b); }
  const CommonFactors* common_factors() const { return series.common_factors(); }
  bool is_leaf(u64 a, u64 b) const { return series.is_leaf(a, b); }
  void leaf(u64 a, u64 b, kob_cdi_EFPh* out) const {
    const Timer timer(levels.leaf, 1);
    series.leaf(a, b, out);
  }
  u64 merge_bytes(u64 words, const km_MULv3::Context& context) const {
    return series.merge_bytes(words, context);
  }
  void merge(const km_MULv3::Context& context, u64 a, u64 m, u64 b, const kob_cdi_EFPh* left,
             const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool need_first, void* work, u64 bytes) const {
    const u64 level = static_cast<u64>(std::bit_width(series.range_words(a, b)));
    const Timer timer(levels.merge[level], context.threads);
    series.merge(context, a, m, b, left, right, out, need_first, work, bytes);
  }
  double merge_cost(u64 words) const { return series.merge_cost(words); }
};

template <class Series> void run(const Series& series, u64 digits, u64 threads) {
  const u64 words = static_cast<u64>(static_cast<double>(digits) * std::log2(10.0) / 64) + 3;
  const Schedule schedule = build_schedule(series, words);
  Levels levels;
  const Timed<Series> timed{series, levels};
  using Tree = Recursion<Timed<Series>>;

  km_MULv3::Tables tables;
  const u64 longest = 2 * (schedule.largest_segment() + 64);
  std::unique_ptr<void, void (*)(void*)> table_memory(aligned_malloc(km_MULv3::Tables::bytes(longest), 64),
                                                      aligned_free);
  tables.build(table_memory.get(), longest, threads);
  SeriesContext context;
  context.multiply.tables = &tables.set();
  context.multiply.threads = threads;

  u64 bytes = 0, result = 0;
  for (u64 i = 0; i < schedule.count; i++) {
    const Segment& s = schedule.list[i];
    const RecursionLevels plan = Tree::plan(timed, s.begin, s.end, threads);
    bytes = std::max(bytes, Tree::work_bytes(timed, s.begin, s.end, context.multiply, plan));
    result = std::max(result, series.segment_capacity(s.begin, s.end));
  }
  Heap heap;
  heap.create_root(bytes + Series::INTEGERS * (result + 16) * sizeof(u64) + 4096, threads);
  {
    const HeapBlock work(heap, bytes), out(heap, Series::INTEGERS * result * sizeof(u64));
    const auto start = std::chrono::steady_clock::now();
    for (u64 i = schedule.count; i-- > 0;) {
      const Segment& s = schedule.list[i];
      kob_cdi_EFPh integers[Series::INTEGERS];
      for (u64 j = 0; j < Series::INTEGERS; j++) integers[j].attach(out.words() + j * result, result);
      Tree(timed, context)
          .run(s.begin, s.end, integers, Series::INTEGERS == 2 || i + 1 < schedule.count, threads,
               Tree::plan(timed, s.begin, s.end, threads), work.data(), bytes);
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    std::printf("%lu words, %lu terms, %lu segments, %.2f seconds\n", words, schedule.terms, schedule.count,
                wall.count());
  }
  std::printf("| words of a range | ranges | processor seconds |\n|---|---|---|\n");
  const auto row = [](const char* name, const Level& level) {
    if (level.ranges != 0)
      std::printf("| %s | %lu | %.3f |\n", name, level.ranges.load(),
                  static_cast<double>(level.nanoseconds) * 1e-9);
  };
  row("leaf", levels.leaf);
  for (u64 i = 0; i < levels.merge.size(); i++)
    row((std::string("2^") + std::to_string(i - 1) + " to 2^" + std::to_string(i)).c_str(), levels.merge[i]);
  heap.destroy();
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: series_levels SERIES DIGITS [THREADS]\n");
    return 1;
  }
  const u64 digits = std::strtoull(argv[2], nullptr, 10);
  const u64 threads = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1;
  const std::string name = argv[1];
  if (name == "chudnovsky") run(Series_Pi_Chudnovsky(), digits, threads);
  if (name == "ramanujan") run(Series_Pi_Ramanujan(), digits, threads);
  if (name == "zeta3_1") run(Series_Zeta3_AZ1(), digits, threads);
  if (name == "zeta3_2") run(Series_Zeta3_AZ2(), digits, threads);
  if (name == "lupas") run(Series_Catalan_Lupas(), digits, threads);
  if (name == "huvent") run(Series_Catalan_Huvent(), digits, threads);
  return 0;
}

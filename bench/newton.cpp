// Newton's iterations in units of a full product of their precision.
//
//   newton [THREADS [LOG2_WORDS ...]]      (default 2 threads; 18 20 22)
//
// Each line: words p, milliseconds of a product of p by p words, and reciprocal, quotient and inverse square
// root to p words over that. Medians of rounds in which the four alternate.
#include <cstdio>
#include <cstdlib>

#include "arithmetic/kcm_div.h"
#include "arithmetic/kcm_invsqrt.h"
#include "arithmetic/kcm_rcp.h"
#include "measure.h"
#include "multiply/table/tables.h"

using namespace kelvane;

namespace {

kob_cdi_GFP number(std::vector<u64>& words) {
  kob_cdi_GFP x;
  x.attach(words.data(), words.size());
  words.back() |= 1;
  x.set_value(words.size(), 0, 1);
  return x;
}

void run(u64 p, const km_MULv3::Context& context) {
  std::vector<u64> a = bench::random_words(p + 2, 1), b = bench::random_words(p + 2, 2), out(2 * p + 4),
                   temporaries(kcm_div_words(p));
  const kob_cdi_GFP A = number(a), B = number(b);
  kob_cdi_GFP T;
  T.attach(out.data(), out.size());
  bench::Memory work(std::max({km_MULv3::product_cost(2 * p, context.threads), kcm_div_work_bytes(p, context),
                               kcm_rcp_work_bytes(p, context), kcm_invsqrt_work_bytes(p, context)}));
  const newton::Meter silent;
  std::vector<double> seconds[4];
  const u64 rounds = p < u64{1} << 20 ? 15 : p < u64{1} << 22 ? 7 : 5;
  for (u64 round = 0; round <= rounds; round++) {
    const double now[4] = {
        bench::timed([&] { km_MULv3::multiply(context, out.data(), a.data(), p, b.data(), p, work.data); }),
        bench::timed([&] {
          if (kcm_rcp_B(context, T, A, p, temporaries.data(), temporaries.size(), work.data, silent) != 0)
            std::exit(1);
        }),
        bench::timed([&] {
          if (kcm_div_t9_B(context, T, A, B, p, temporaries.data(), temporaries.size(), work.data, silent) !=
              0)
            std::exit(1);
        }),
        bench::timed([&] {
          if (kcm_invsqrt_udw_B(context, T, 10005, p, temporaries.data(), temporaries.size(), work.data,
                                silent) != 0)
            std::exit(1);
        })};
    for (int i = 0; i < 4; i++)
      if (round > 0) seconds[i].push_back(now[i]); // the first one touches the memory
  }
  const double product = bench::median(seconds[0]);
  std::printf("%10llu words: product %8.3f ms, reciprocal %.2f, quotient %.2f, inverse square root %.2f\n",
              static_cast<unsigned long long>(p), 1e3 * product, bench::median(seconds[1]) / product,
              bench::median(seconds[2]) / product, bench::median(seconds[3]) / product);
  std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
  std::vector<u64> logs;
  for (int i = 2; i < argc; i++) logs.push_back(std::strtoull(argv[i], nullptr, 10));
  if (logs.empty()) logs = {18, 20, 22};
  const u64 longest = u64{4} << *std::max_element(logs.begin(), logs.end());
  km_MULv3::Context context;
  context.threads = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2;
  bench::Memory roots(km_MULv3::Tables::bytes(longest));
  km_MULv3::Tables tables;
  tables.build(roots.data, longest, context.threads);
  context.tables = &tables.set();
  for (const u64 log : logs) run(u64{1} << log, context);
}

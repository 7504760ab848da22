#include "series/series_e.h"

#include <algorithm>
#include <cmath>

#include "arithmetic/words/add.h"
#include "series/recursion.h"
#include "series/schedule.h"
#include "series/shared_products.h"
#include "series/sum_P2B3.h"
#include "shell/console.h"
#include "shell/status_line.h"

namespace kelvane {

using Tree = Recursion<Series_E_Taylor>;

u64 Series_E_Taylor::terms(u64 precision_words) const {
  const double target = NATS_PER_WORD * static_cast<double>(precision_words) + 1;
  const auto enough = [&](u64 n) { return log_factorial(static_cast<double>(n)) > target; };
  u64 high = 2;
  while (!enough(high)) high *= 2;
  u64 low = high / 2; // never enough, except that 1 is not asked
  while (high - low > 1) {
    const u64 middle = low + (high - low) / 2;
    (enough(middle) ? high : low) = middle;
  }
  return high;
}

double Series_E_Taylor::log_size(u64 x) const {
  return log_factorial(static_cast<double>(x));
}

double Series_E_Taylor::log_convergence(u64 a, u64 b) const {
  return log_size(b) - log_size(a);
}

// Terms a..b-1 appended one by one: P <- P k +/- 1, Q <- Q k.
void Series_E_Taylor::leaf(u64 a, u64 b, kob_cdi_EFPh* out) const {
  u64 P[2 * END_THRESHOLD] = {1}, Q[2 * END_THRESHOLD] = {a};
  u64 nP = 1, nQ = 1;
  for (u64 k = a + 1; k < b; k++) {
    P[nP] = words::mul_word(P, P, nP, k);
    nP += P[nP] != 0;
    Q[nQ] = words::mul_word(Q, Q, nQ, k);
    nQ += Q[nQ] != 0;
    if (alternating && ((k - a) & 1) != 0) {
      words::sub_word(P, nP, 1);
      nP = words::normalized_length(P, nP);
    } else {
      P[nP] = words::add_word(P, nP, 1);
      nP += P[nP] != 0;
    }
  }
  out[0].set_words(P, nP);
  out[1].set_words(Q, nQ);
}

namespace {

struct MergePlacement {
  void* work;
  MergePlacement(Layout& layout, u64 product_words, const km_MULv3::Context& context)
      : work(layout.take_bytes(
            km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory))) {}
};

} // namespace

u64 Series_E_Taylor::merge_bytes(u64 capacity, const km_MULv3::Context& context) const {
  Layout layout;
  MergePlacement(layout, 2 * capacity, context);
  return layout.used();
}

double Series_E_Taylor::merge_cost(u64 words) const {
  const double n = 2 * static_cast<double>(words);
  return n * std::log2(n);
}

void Series_E_Taylor::merge(const km_MULv3::Context& context, u64 a, u64 m, u64, const kob_cdi_EFPh* left,
                            const kob_cdi_EFPh* right, kob_cdi_EFPh* out, bool, void* work, u64) const {
  const u64 n = std::max(left[0].L, left[1].L) + right[1].L;
  Layout layout(work, merge_bytes(std::max(left->AL, right->AL), context));
  const MergePlacement place(layout, n, context);
  SharedProducts products(context, n, place.work);
  products.keep(right[1]);
  products.multiply(out[1], left[1]); // Ql Qr
  products.multiply(out[0], left[0]); // Pl Qr
  if (alternating && ((m - a) & 1) != 0)
    out[0].sub_in_place(right[0]);
  else
    out[0].add_in_place(right[0]);
}

void Series_E_Taylor::BSR_memory(const Schedule& schedule, u64, const km_MULv3::Context& context,
                                 u64* out_peak, u64* out_result, u64* out_temp) const {
  const u64 N = schedule.terms;
  *out_peak = Tree::work_bytes(*this, 1, N, context, Tree::plan(*this, 1, N, context.threads)) / sizeof(u64);
  *out_result = capacity(1, N);
  *out_temp = 0;
}

u64 e_series_capacity(const Series_E_Taylor& series, u64 precision_words) {
  return series.capacity(1, series.terms(precision_words));
}

u64 e_series_work_bytes(const Series_E_Taylor& series, u64 precision_words,
                        const km_MULv3::Context& context) {
  const u64 N = series.terms(precision_words);
  return Tree::work_bytes(series, 1, N, context, Tree::plan(series, 1, N, context.threads));
}

void sum_series_e(const Series_E_Taylor& series, u64 precision_words, const SeriesContext& context,
                  kob_cdi_EFPh& P, kob_cdi_EFPh& Q, void* work) {
  const u64 threads = context.multiply.threads;
  Console::print("Summing Series...  ");
  const u64 N = series.terms(precision_words);
  print_terms(N);
  const double words = static_cast<double>(series.range_words(1, N));
  Console::Progress progress("Summing: ", recursion_cost(words), 87);
  SeriesContext inner = context;
  inner.multiply.progress = &progress;

  kob_cdi_EFPh out[2] = {P, Q};
  const RecursionLevels levels = Tree::plan(series, 1, N, threads);
  Tree(series, inner)
      .run(1, N, out, true, threads, levels, work, Tree::work_bytes(series, 1, N, context.multiply, levels));
  P = out[0];
  Q = out[1];
  const kob_cdi_EFPh* results[] = {&P, &Q};
  modular_redundancy_check(results, 2, 1, N);
}

} // namespace kelvane

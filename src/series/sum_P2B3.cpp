#include "series/sum_P2B3.h"

#include "series/scheduled_sum.h"
#include "shell/console.h"
#include "shell/status_line.h"

namespace kelvane {

using Sum = ScheduledSum<kc_BSS_P2B3_Type0>;

u64 sum_capacity(u64 precision_words) {
  return Sum::capacity(precision_words);
}

u64 sum_work_bytes(const kc_BSS_P2B3_Type0& series, u64 precision_words, const km_MULv3::Context& context) {
  return Sum(series, precision_words).work_bytes(context);
}

double sum_cost(const kc_BSS_P2B3_Type0& series, u64 precision_words) {
  return Sum(series, precision_words).cost();
}

void sum_series_quietly(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                        kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work) {
  kob_cdi_EFPh tail[] = {Q, R};
  Sum(series, precision_words).run(context, tail, work);
  Q = tail[0];
  R = tail[1];
}

void sum_series_P2B3(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                     kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work) {
  Console::print("Summing Series...  ");
  print_terms(series.terms(precision_words));
  Console::Progress progress("Summing: ", sum_cost(series, precision_words), 87);
  SeriesContext inner = context;
  inner.multiply.progress = &progress;
  sum_series_quietly(series, precision_words, inner, Q, R, work);
}

void print_terms(u64 terms) {
  Console::print_commas(terms);
  Console::print(" terms\n");
}

} // namespace kelvane

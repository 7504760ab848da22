// The summation of a P, Q, R series over its schedule.
#pragma once

#include "series/kc_BSS_P2B3_Type0.h"

namespace kelvane {

// The sum of a series: R and Q of [0, N), truncated to precision + 3 words (their quotient is right to
// better than 2^(-64 (precision + 1)) relative).
//   Q, R     attached to buffers of at least sum_capacity(precision) words
//   work     sum_work_bytes(...) bytes, 64-byte aligned
// Prints "Summing Series...  ", the number of terms, and shows the meter "Summing: ". Throws
// kc_BSRModularCheckFailed when a check fails.
// sum_capacity() is also that of the other shapes' sums.
u64 sum_capacity(u64 precision_words);
u64 sum_work_bytes(const kc_BSS_P2B3_Type0& series, u64 precision_words, const km_MULv3::Context& context);
void sum_series_P2B3(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                     kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work);

// One series of a computation that sums several: no texts, and the caller's meter (context.multiply.progress,
// which may be null) advances by sum_cost(). Else as above.
void sum_series_quietly(const kc_BSS_P2B3_Type0& series, u64 precision_words, const SeriesContext& context,
                        kob_cdi_EFPh& Q, kob_cdi_EFPh& R, void* work);
double sum_cost(const kc_BSS_P2B3_Type0& series, u64 precision_words);

// Prints the number of terms and " terms".
void print_terms(u64 terms);

} // namespace kelvane

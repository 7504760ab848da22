#include "series/schedule.h"

#include <algorithm>

namespace kelvane {

namespace {

// The smallest end s of a segment from `begin` on whose integers reach `nats`; N when none does.
u64 segment_end(const kc_BSS& series, u64 begin, u64 N, double nats) {
  u64 low = begin + 1, high = N;
  while (low < high) {
    const u64 middle = low + (high - low) / 2;
    if (series.range_nats(begin, middle, series.divided_level(begin, middle)) >= nats)
      high = middle;
    else
      low = middle + 1;
  }
  return low;
}

} // namespace

u64 Schedule::largest_segment(u64 first) const {
  u64 words = 0;
  for (u64 i = first; i < count; i++) words = std::max(words, list[i].integer_words);
  return words;
}

Schedule cut_terms(const kc_BSS& series, u64 precision_words, u64 N, double share,
                   const std::function<double(u64)>& left,
                   const std::function<bool(const Schedule& s)>& finished) {
  Schedule schedule;
  schedule.precision_words = precision_words;
  schedule.terms = N;
  const auto append = [&](u64 begin, u64 end) {
    schedule.list[schedule.count++] = {
        static_cast<u64>(std::max(0.0, series.log_convergence(begin, end)) * WORDS_PER_NAT) + 2,
        series.segment_words(begin, end),
        end == N ? 0 : static_cast<u64>(std::max(0.0, left(end)) * WORDS_PER_NAT) + 2,
        begin,
        end,
        0};
  };

  u64 start = 0;
  do {
    const double integers = share * std::max(1.0, left(start));
    const u64 s = schedule.count + 2 < Schedule::MAX_SEGMENTS ? segment_end(series, start, N, integers) : N;
    append(start, s);
    start = s;
  } while (start < N && !finished(schedule));
  if (start < N) append(start, N);
  return schedule;
}

// Let the segments' integers get r of the precision that is left, x. Where integers are s times as long as
// the terms converge, a segment settles r x / s of x, so merging the tails (segments of r x words and tails
// of about x) costs w s (1 + 1/r) in all, w being such a merge in merges inside a segment, and the segments'
// trees cost s log2 r more than whole ones. The least is at r = w ln 2: 0.54 with 5 transforms in and 2 back
// for a tail, 6 and 3 inside.
Schedule build_schedule(const kc_BSS& series, u64 precision_words, double factor) {
  const u64 N = series.terms(precision_words);
  const double share = N > 1000 ? 0.5 : 1.0;
  const double target = static_cast<double>(precision_words) * factor * NATS_PER_WORD;
  return cut_terms(
      series, precision_words, N, share, [&](u64 k) { return target - series.log_convergence(0, k); },
      [&](const Schedule& s) {
        const u64 start = s.list[s.count - 1].end;
        return N - start <= 1000 && series.segment_words(start, N) <= s.list[0].quotient_precision;
      });
}

} // namespace kelvane

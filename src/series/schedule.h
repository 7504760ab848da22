// The schedule of a summation: the terms [0, N) cut into segments, so that no range is
// computed more exactly than it can influence the sum.
//
// The integers of a series like Pi's grow to 2.6 times the precision of the sum. The first
// segment [0, s) ends where its integers reach a share of that precision. What lies behind is
// multiplied by P(0,s)/Q(0,s) = exp(-log_convergence(0, s)) and needs that much less precision: the
// next segment ends where its integers reach the same share of the precision left, and so on. Segments
// are merged from the last to the first, and the remainder behind a segment is kept, truncated, to the
// precision it needs.
#pragma once

#include <functional>

#include "series/kc_BSS.h"

namespace kelvane {

struct Segment {
  u64 quotient_precision;  // words: log_convergence of the segment / (64 ln 2) + 2
  u64 integer_words;       // size of the segment's integers
  u64 remainder_precision; // words needed of everything behind the segment (0 for the last segment)
  u64 begin;
  u64 end;
  u64 flag;
};

struct Schedule {
  static constexpr u64 MAX_SEGMENTS = 1024;
  Segment list[MAX_SEGMENTS];
  u64 count = 0;
  u64 precision_words = 0; // of the sum
  u64 terms = 0;

  // Largest integer_words of the segments from `first` on.
  u64 largest_segment(u64 first = 0) const;
};

// N terms cut into segments as said above, whose integers get `share` (at most 1) of the precision left.
// left(k): nats of precision needed behind term k; finished(s): whether what is left behind the segments so
// far is better summed as one last segment.
Schedule cut_terms(const kc_BSS& series, u64 precision_words, u64 N, double share,
                   const std::function<double(u64)>& left,
                   const std::function<bool(const Schedule& s)>& finished);
// The share is 1/2, of a series of up to 1000 terms 1. left(k) = target - log_convergence(0, k). Finished when
// at most 1000 terms are left and their integers are no longer than the first segment's quotient.
Schedule build_schedule(const kc_BSS& series, u64 precision_words, double factor = 1.0);

} // namespace kelvane

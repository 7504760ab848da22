// A segment's merge with the tail, the quantities of everything behind it.
#pragma once

#include "arithmetic/kob_cdi_EFPh.h"
#include "arithmetic/redundancy.h"

namespace kelvane {

struct TailMerge {
  u64 begin, end;        // the segment's terms [begin, end)
  u64 terms;             // the tail's are [end, terms)
  u64 keep;              // words that are kept of each quantity of the new tail
  kob_cdi_EFPh* segment; // the segment's integers; the merge may destroy them
  kob_cdi_EFPh* tail;    // the old tail, and the new one as far as it is settled

  // tail[i] <- x: checked while all its words are there, then kept to `keep` words.
  void settle(u64 i, kob_cdi_EFPh& x) const {
    const kob_cdi_EFPh* results[] = {&x};
    modular_redundancy_check(results, 1, begin, end, nullptr, "BSR Merge Failure: ");
    x.truncate(keep);
    tail[i].set_copy(x);
  }
};

} // namespace kelvane

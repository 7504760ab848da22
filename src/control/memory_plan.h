// The sequence of allocations of a run, walked beforehand: the size of its reservation.
//
// A constant's plan calls allocate and release in the order in which its run calls the heap.
// The run releases in reverse order of allocation, so that the heap has no gaps and its top is the
// sum of the live blocks.
#pragma once

#include <algorithm>

#include "shell/heap.h"
#include "shell/types.h"

namespace kelvane {

class MemoryPlan {
public:
  void allocate(u64 bytes) {
    live_ += Heap::aligned_footprint(bytes);
    peak_ = std::max(peak_, live_);
  }
  void release(u64 bytes) { live_ -= Heap::aligned_footprint(bytes); }
  // A block that lives only for one step.
  void step(u64 bytes) {
    allocate(bytes);
    release(bytes);
  }
  u64 peak() const { return peak_; }

private:
  u64 live_ = 0;
  u64 peak_ = 0;
};

} // namespace kelvane

// What the benchmark programs share: a clock, medians, memory as a computation has it.
#pragma once

#include <algorithm>
#include <chrono>
#include <random>
#include <vector>

#include "shell/heap.h"
#include "shell/types.h"

namespace bench {

using kelvane::u32;
using kelvane::u64;

inline double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Seconds of one call, the mean of `repeats`.
template <class F> double timed(const F& f, u64 repeats = 1) {
  const double start = seconds();
  for (u64 i = 0; i < repeats; i++) f();
  return (seconds() - start) / static_cast<double>(repeats);
}

inline double median(std::vector<double> x) {
  std::nth_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(x.size() / 2), x.end());
  return x[x.size() / 2];
}

inline std::vector<u64> random_words(u64 n, u64 seed) {
  std::mt19937_64 random(seed);
  std::vector<u64> x(n);
  for (u64& word : x) word = random();
  return x;
}

// Committed memory in whole huge pages, as a computation's is; 64-byte aligned. `offset` bytes of it are left
// out: arrays that all begin at the same place of a page are no fair case for short products, since a
// processor takes a word that is read for one just written when both lie at the same place of their pages,
// and waits.
class Memory {
public:
  explicit Memory(u64 bytes, u64 offset = 0) {
    bytes += offset;
    constexpr u64 PAGE = u64{1} << 21;
    heap_.create_root((bytes + (u64{1} << 16) + PAGE - 1) / PAGE * PAGE, 2);
    begin_ = heap_.allocate_aligned(bytes, 64);
    data = static_cast<unsigned char*>(begin_) + offset;
  }
  ~Memory() { heap_.free_aligned(begin_); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  u64* words() const { return static_cast<u64*>(data); }
  void* data;

private:
  kelvane::Heap heap_;
  void* begin_;
};

} // namespace bench

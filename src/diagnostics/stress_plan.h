// The four tests of the stress tester, and the size of their products.
//
// A task works in a share of the memory. Tests of the memory use the longest products that the share holds,
// up to a length beyond which a pass would take too long, and pass from window to window of the share, so
// that they come to all of it; tests of the processor use products whose work fits the second-level cache.
#pragma once

#include "multiply/fft/twiddles.h"
#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"
#include "shell/types.h"

namespace kelvane {

using MakeRecord = km_MULv3::abstract_btp* (*)(u64 n, const km_MULv3::Context&, km_MULv3::btp_storage*);

struct StressTest {
  const char* menu_text;
  const char* components;
  const km_MULv3::algorithm_p<u64>* algorithm; // the one row of the test's table
  MakeRecord second;                           // a second algorithm for the sample
  u64 least_words, most_words;                 // of a product
  u64 pass_words;                              // of a pass's products together
  bool in_cache;
  bool needs_tables;
};

inline constexpr u64 STRESS_TESTS = 4;
const StressTest& stress_test(u64 index); // in the order of the menu

// The size of a test's products in a share of so many bytes.
struct StressPlan {
  const StressTest* test = nullptr;
  u64 words = 0;    // of a product; 0: the share holds none
  u64 products = 0; // of a pass
  u64 window = 0;   // bytes of work of one product, a multiple of 64
  u64 windows = 0;  // that the share holds

  u64 operand_words() const { return words / 2; }
  // The lowest words of the operands that the sample multiplies.
  u64 sample_words() const { return operand_words() < SAMPLE ? operand_words() : SAMPLE; }

private:
  static constexpr u64 SAMPLE = 4096;
};
StressPlan plan_stress(const StressTest& test, u64 share_bytes);

// Products take their operands from a pool, each from a place of its own.
inline constexpr u64 POOL_SHIFTS = 64;

// The work of one product, placed in a window or measured.
struct StressWindow {
  u64 *pool, *product, *sample_product;
  void *TA, *TB, *scratch;
  void *sample_TA, *sample_TB, *sample_scratch;
  u64 pool_words;
  StressWindow(Layout& layout, const StressPlan& plan, const km_MULv3::abstract_btp& record,
               const km_MULv3::abstract_btp& sample);
};

// The root tables that the tests share.
u64 stress_table_bytes();
class StressTables {
public:
  explicit StressTables(u64 threads);
  ~StressTables();
  StressTables(const StressTables&) = delete;
  StressTables& operator=(const StressTables&) = delete;
  const km_MULv3::TableSet& set() const { return set_; }

private:
  u64 bytes_;
  u8* memory_;
  km_FFTv2::table_d fft_;
  km_MULv3::TableSet set_;
};

} // namespace kelvane

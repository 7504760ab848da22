// kcr_Constant: everything the menus, the header and the driver ask about a constant.
//
// One class per constant; an object is made by the registry from a constant number (0 to 10)
// and a parameter. B marks the in-memory path ("Ram Only"), S the swap path ("Swap Mode").
#pragma once

#include <string>

#include "shell/types.h"

namespace kelvane {

struct ComputeContext;

// What the memory need of a run depends on.
struct MemoryQuery {
  u64 precision_words = 0;
  u64 decimal_digits = 0;
  u64 hexadecimal_digits = 0;
  u64 threads = 1;
};

// Bytes. `working` is the reservation of the run, `tables` the roots of its products, `other` what
// the program takes besides (code, stacks of the threads, buffers of files).
struct MemoryFigure {
  u64 working = 0;
  u64 tables = 0;
  u64 other = 0;
  u64 total() const { return working + tables + other; }
};

class kcr_Constant {
public:
  virtual ~kcr_Constant() = default;

  u32 algorithm_count = 1; // algorithms the user may choose among
  u32 extra = 0;           // Euler-Mascheroni: the exponent k of n = 2^k
  u64 parameter = 0;       // n of Sqrt(n), ArcCoth(n), Log(n)

  virtual u64 get_max_digits() const { return 90000000000050; }
  virtual u64 get_kind_code() const { return 71; }
  virtual std::string get_name() const = 0;
  virtual std::string get_full_name() const { return get_name(); }
  // An index outside the class's list yields the empty string.
  virtual std::string get_algorithm_short_name(s32 algorithm) const = 0;
  virtual std::string get_algorithm_name(s32 algorithm) const { return get_algorithm_short_name(algorithm); }
  virtual std::string get_algorithm_description(s32 algorithm) const { return get_algorithm_name(algorithm); }
  // With a null result: 0 when the algorithm has no such path, else non-zero. Otherwise fills the figure
  // and returns its total.
  virtual u64 get_memory_B(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const;
  virtual u64 get_memory_S(s32 algorithm, const MemoryQuery& query, MemoryFigure* result) const;
  virtual void run_B(s32 algorithm, ComputeContext& context) const;
  virtual void run_S(s32 algorithm, ComputeContext& context) const;
  virtual void prepare(u64 precision_words);
};

} // namespace kelvane

// Relations: arguments x through which the logarithm of a number q outside the base is expressed by
// logarithms of the base's primes and of primes below q.
//
// x is sought with q dividing x^2 - 1 exactly once and a cofactor that is nearly smooth. With y = m q:
//   z = y +/- 1, x = y + z                 x^2 - 1 = 4 y z
//   z = y +/- 2, x = (y + z)/2, y odd      x^2 - 1 = y z
// and x = 2 q^2 - 1, where 2 ArcCoth(x) = 2 Log q - Log(q - 1) - Log(q + 1).
// m runs through 1 .. 4096 (32768 for q >= 2^13) and the numbers over the base up to 2^36 with m q <= 2^61.
// The first kind is sieved: every prime of the base is struck out of all z at once.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "series/log_formula/base_sets.h"

namespace kelvane::log_search {

struct Relation {
  static constexpr u32 MOST_LEFT = 8;
  double rank; // the term's cost and what the primes left over will cost at a guess
  u64 x;
  u64 left[MOST_LEFT]; // primes outside the base, other than q's own
  u32 left_count;
};

class RelationFinder {
public:
  RelationFinder();
  ~RelationFinder();
  RelationFinder(const RelationFinder&) = delete;
  RelationFinder& operator=(const RelationFinder&) = delete;

  // The best 80 relations of q over the first h primes, best first. 23 <= q < 2^31 or any number in that
  // range without a prime of the base. The reference lasts until `forget`.
  const std::vector<Relation>& find(u64 q, u32 h);
  // Bounds the memory that results are kept in. To be called between two formulas.
  void forget();

private:
  struct Multipliers;
  struct Candidate;
  const Multipliers& multipliers(u32 h);
  void search_sieved(u64 q, s64 d, u64 count, const Multipliers& m);
  void search_smooth(u64 q, s64 d, const Multipliers& m);
  void keep(const Candidate& candidate);

  std::unique_ptr<Multipliers> multipliers_[MOST_BASE + 1];
  std::vector<Candidate> best_; // of one shape, a heap with the worst on top
  std::vector<float> score_;
  std::unordered_map<u64, std::vector<Relation>> found_;
};

} // namespace kelvane::log_search

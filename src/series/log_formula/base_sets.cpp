// See base_sets.h.

#include "series/log_formula/base_sets.h"

#include <algorithm>
#include <array>

#include "series/log_formula/cost.h"

namespace kelvane::log_search {

namespace {

constexpr u64 LARGEST_CANDIDATE = 23718421;
constexpr size_t PAIR_WIDTH = 25; // of the largest candidates, tried as replacements of two at once

std::vector<Argument> find_candidates(u32 h) {
  const std::vector<u64> smooth = smooth_numbers(h, LARGEST_CANDIDATE + 1);
  std::vector<Argument> candidates;
  for (const u64 y : smooth) {
    if (std::binary_search(smooth.begin(), smooth.end(), y + 2)) {
      candidates.push_back({y + 1, arccoth_vector(y + 1)});
    }
  }
  std::reverse(candidates.begin(), candidates.end());
  return candidates;
}

double set_cost(const std::vector<const Argument*>& set) {
  double cost = 0;
  for (const Argument* argument : set) cost += term_cost(argument->x);
  return cost;
}

// The cheapest base set that differs from a set of full rank in one or two arguments.
class Replacements {
public:
  Replacements(const std::vector<const Argument*>& pool, const std::vector<const Argument*>& start,
               const std::vector<u64>& primes)
      : pool_(pool), start_(start), primes_(primes) {}

  std::vector<const Argument*> one() {
    for (size_t i = 0; i < start_.size(); i++) {
      for (const Argument* x : pool_) {
        std::vector<const Argument*> set = start_;
        set[i] = x;
        consider(set);
      }
    }
    return best_;
  }
  std::vector<const Argument*> two() {
    const size_t width = std::min(PAIR_WIDTH, pool_.size());
    for (size_t i = 0; i < start_.size(); i++) {
      for (size_t j = 0; j < i; j++) {
        for (size_t x = 0; x < width; x++) {
          for (size_t y = x + 1; y < width; y++) {
            std::vector<const Argument*> set = start_;
            set[i] = pool_[x];
            set[j] = pool_[y];
            consider(set);
          }
        }
      }
    }
    return best_;
  }

private:
  void consider(const std::vector<const Argument*>& set) {
    const double cost = set_cost(set);
    if (!best_.empty() && cost >= best_cost_) return;
    if (!is_unimodular(set, primes_)) return; // nor is a set in which an argument occurs twice
    best_ = set;
    best_cost_ = cost;
  }

  const std::vector<const Argument*>& pool_;
  const std::vector<const Argument*>& start_;
  const std::vector<u64>& primes_;
  std::vector<const Argument*> best_;
  double best_cost_ = 0;
};

} // namespace

std::vector<u64> base_primes(u32 h) {
  return {BASE_PRIMES, BASE_PRIMES + h};
}

std::vector<u64> smooth_numbers(u32 h, u64 limit) {
  std::vector<u64> numbers = {1};
  for (u32 i = 0; i < h; i++) {
    const u64 p = BASE_PRIMES[i];
    // The list grows while it is walked: each number brings its multiple, which brings its own.
    for (size_t j = 0; j < numbers.size(); j++) {
      if (numbers[j] <= limit / p) numbers.push_back(numbers[j] * p);
    }
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

const std::vector<Argument>& base_candidates(u32 h) {
  static const std::array<std::vector<Argument>, MOST_BASE + 1> lists = [] {
    std::array<std::vector<Argument>, MOST_BASE + 1> found;
    for (u32 i = 1; i <= MOST_BASE; i++) found[i] = find_candidates(i);
    return found;
  }();
  return lists[h];
}

std::vector<const Argument*> base_set(u32 h, const std::vector<u64>& forbidden) {
  const std::vector<u64> primes = base_primes(h);
  std::vector<const Argument*> pool;
  for (const Argument& candidate : base_candidates(h)) {
    if (std::find(forbidden.begin(), forbidden.end(), candidate.x) == forbidden.end())
      pool.push_back(&candidate);
  }
  const std::vector<const Argument*> largest = independent_set(pool, primes);
  if (largest.size() < h) return {};
  if (is_unimodular(largest, primes)) return largest;
  Replacements replacements(pool, largest, primes);
  const std::vector<const Argument*> set = replacements.one();
  return set.empty() ? replacements.two() : set;
}

} // namespace kelvane::log_search

// Makes the table of known formulas:  known_formulas > src/series/log_formula/known_formulas.inc
// With an argument, only up to that n.
//
// For small n, every set of two to five arguments among all x with x^2 - 1 over the first h primes, h = 4..8,
// is examined as far as it can still be the cheapest, and the cheapest that gives Log(n) in integers is
// printed; then the same without that formula's arguments. Takes a few minutes.
//
// A set gives Log(n) when n's vector lies in its span. Modulo n's vector the set is then dependent: after
// eliminating n's vector and all arguments but two, those two are parallel. So one looks for parallel vectors
// among the rest for every choice of all but two. The elimination is done modulo 65521, with exact integer
// solution of what is found.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <unordered_map>

#include "series/log_formula/cost.h"
#include "series/log_formula/known_formulas.h"

namespace kelvane::log_search {

namespace {

constexpr u32 P = 65521;
constexpr u32 DIM = MOST_BASE;
using Vector = std::array<u32, DIM>;

// The table's n: no powers, over the primes up to 19.
constexpr u64 LARGEST_N = 100;

std::array<u32, P> make_inverses() {
  std::array<u32, P> inverse{};
  inverse[1] = 1;
  for (u32 i = 2; i < P; i++) inverse[i] = static_cast<u32>(u64{P - P / i} * inverse[P % i] % P);
  return inverse;
}
const std::array<u32, P> INVERSE = make_inverses();

Vector to_vector(const PrimeVector& v, u32 h) {
  Vector r{};
  for (u32 i = 0; i < h; i++) r[i] = static_cast<u32>((v.exponent(BASE_PRIMES[i]) % s64{P} + P) % P);
  return r;
}

u32 pivot_of(const Vector& v) {
  return static_cast<u32>(std::find_if(v.begin(), v.end(), [](u32 x) { return x != 0; }) - v.begin());
}

// v minus the multiple of `by` that clears v at by's pivot.
void clear(Vector& v, const Vector& by, u32 pivot) {
  const u32 factor = static_cast<u32>(u64{P - v[pivot]} * INVERSE[by[pivot]] % P);
  if (factor == 0) return;
  for (u32 i = 0; i < DIM; i++) v[i] = static_cast<u32>((v[i] + u64{factor} * by[i]) % P);
}

class Exhaustive {
public:
  Exhaustive(u64 n, u32 h, const std::vector<u64>& forbidden) {
    need_.multiply(n, 2);
    for (const Argument& candidate : base_candidates(h)) {
      if (std::find(forbidden.begin(), forbidden.end(), candidate.x) == forbidden.end())
        pool_.push_back(&candidate);
    }
    Level level;
    for (u32 i = 0; i < pool_.size(); i++) level.push_back({i, to_vector(pool_[i]->vector, h)});
    top_ = eliminate(level, to_vector(need_, h), 0);
  }
  // The cheapest formula of at most so many terms that costs less than `bound`; empty when there is none.
  Terms best(u32 most_terms, double bound) {
    best_cost_ = bound;
    for (u32 size = 2; size <= most_terms; size++) choose(top_, size, 0, 0);
    return best_;
  }

private:
  struct Entry {
    u32 index;
    Vector v;
  };
  using Level = std::vector<Entry>; // descending x, so ascending cost

  // The entries from `from` on, cleared at the vector's pivot.
  static Level eliminate(const Level& level, const Vector& by, size_t from) {
    Level rest(level.begin() + static_cast<std::ptrdiff_t>(from), level.end());
    const u32 pivot = pivot_of(by);
    if (pivot == DIM) return rest;
    for (Entry& entry : rest) clear(entry.v, by, pivot);
    return rest;
  }
  double cost(const Entry& entry) const { return term_cost(pool_[entry.index]->x); }

  // Examines all sets made of the `depth` arguments chosen, which cost `spent`, and `size` more from the
  // level.
  void choose(const Level& level, u32 size, u32 depth, double spent) {
    if (size == 2) return examine_pairs(level, depth, spent);
    for (size_t i = 0; i < level.size(); i++) {
      if (spent + size * cost(level[i]) >= best_cost_) break; // the others cost no less each
      chosen_[depth] = level[i].index;
      choose(eliminate(level, level[i].v, i + 1), size - 1, depth + 1, spent + cost(level[i]));
    }
  }

  void examine_pairs(const Level& level, u32 depth, double spent) {
    classes_.clear();
    for (const Entry& entry : level) {
      const u32 pivot = pivot_of(entry.v);
      if (pivot == DIM) continue; // already dependent: such a set is found with fewer arguments
      u64 key = pivot;
      for (const u32 x : entry.v) key = key * 0x9E3779B97F4A7C15 + u64{x} * INVERSE[entry.v[pivot]] % P;
      std::vector<const Entry*>& parallel = classes_[key];
      for (const Entry* other : parallel) {
        if (spent + cost(*other) + cost(entry) >= best_cost_) continue;
        chosen_[depth] = other->index;
        chosen_[depth + 1] = entry.index;
        consider(depth + 2);
      }
      parallel.push_back(&entry);
    }
  }

  void consider(u32 size) {
    std::vector<const Argument*> arguments;
    for (u32 i = 0; i < size; i++) arguments.push_back(pool_[chosen_[i]]);
    std::vector<s64> c;
    if (!solve(arguments, need_, c)) return;
    Terms terms;
    for (u32 i = 0; i < size; i++) {
      if (c[i] != 0) terms.push_back({arguments[i]->x, c[i]});
    }
    std::sort(terms.begin(), terms.end(), [](const Term& a, const Term& b) { return a.x < b.x; });
    if (cost_of(terms) >= best_cost_) return;
    best_cost_ = cost_of(terms);
    best_ = terms;
  }

  PrimeVector need_;
  std::vector<const Argument*> pool_;
  Level top_;
  std::unordered_map<u64, std::vector<const Entry*>> classes_; // parallel vectors
  std::array<u32, 8> chosen_{};
  Terms best_;
  double best_cost_ = 0;
};

bool is_power(u64 n) {
  Factors f;
  factorise(n, f);
  u32 g = 0;
  for (u32 i = 0; i < f.count; i++) g = std::gcd(g, f.exponent[i]);
  return g > 1;
}

Terms search(u64 n, const std::vector<u64>& forbidden) {
  Terms best;
  for (u32 h = LEAST_BASE; h <= MOST_BASE; h++) {
    Factors f;
    factorise(n, f);
    if (!in_base(f.prime[f.count - 1], h)) continue;
    constexpr double ANY = 1e9;
    const Terms found = Exhaustive(n, h, forbidden).best(5, best.empty() ? ANY : cost_of(best));
    if (!found.empty()) best = found;
  }
  return best;
}

void print(u64 n, const Terms& terms) {
  std::printf("    {%lu, {", n);
  for (size_t i = 0; i < terms.size(); i++) {
    std::printf("%s{%lu, %ld}", i == 0 ? "" : ", ", terms[i].x, terms[i].c);
  }
  std::printf("}}, // %.4f\n", cost_of(terms));
  std::fflush(stdout);
}

} // namespace

} // namespace kelvane::log_search

int main(int count, char** arguments) {
  using namespace kelvane;
  using namespace kelvane::log_search;
  std::printf("// Made by known_formulas_main.cpp: {n, {{x, c}, ...}}, // cost\n");
  const u64 largest = count > 1 ? std::strtoull(arguments[1], nullptr, 10) : LARGEST_N;
  for (u64 n = 2; n <= largest; n++) {
    Factors f;
    if (!factorise(n, f) || is_power(n) || !in_base(f.prime[f.count - 1], MOST_BASE)) continue;
    std::vector<u64> forbidden;
    for (int i = 0; i < 2; i++) {
      const Terms terms = search(n, forbidden);
      if (terms.empty()) break;
      print(n, terms);
      for (const Term& term : terms) forbidden.push_back(term.x);
    }
  }
  return 0;
}

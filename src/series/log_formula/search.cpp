// See search.h.

#include "series/log_formula/search.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "series/log_formula/cost.h"
#include "shell/exception.h"

namespace kelvane::log_search {

namespace {

constexpr u32 WIDTH = 5;            // relations of a symbol of n that are followed to their end
constexpr u32 LEAST_WIDTH = 2;      // of the symbols these bring
constexpr double RANK_MARGIN = 0.5; // by which a relation may rank behind the best closure's cost
constexpr size_t MOST_PRIMES = 16;  // of the improvement's system

bool contains(const std::vector<u64>& list, u64 x) {
  return std::find(list.begin(), list.end(), x) != list.end();
}

void use(Terms& terms, u64 x, s64 c) {
  const auto at = std::lower_bound(terms.begin(), terms.end(), x,
                                   [](const Term& term, u64 value) { return term.x < value; });
  if (at != terms.end() && at->x == x)
    at->c += c;
  else
    terms.insert(at, {x, c});
}

void remove_zeros(Terms& terms) {
  terms.erase(std::remove_if(terms.begin(), terms.end(), [](const Term& term) { return term.c == 0; }),
              terms.end());
}

} // namespace

double cost_of(const Terms& terms) {
  double cost = 0;
  for (const Term& term : terms) cost += term_cost(term.x);
  return cost;
}

struct FormulaSearch::Run {
  u64 n;
  u32 h;
  const std::vector<u64>& forbidden;
  Factors factors;    // of n
  PrimeVector square; // of n: the need at the start
  std::vector<const Argument*> base;
  std::map<u64, Closure> closures; // empty: there is none

  bool outside(u64 prime) const { return !in_base(prime, h); }
  u32 outside_count() const {
    return static_cast<u32>(
        std::count_if(factors.prime, factors.prime + factors.count, [&](u64 p) { return outside(p); }));
  }
};

// The relation's argument and all that its left-over primes bring, or false when one of them has no closure.
bool FormulaSearch::closure_of(Run& run, const Relation& relation, u64 q, u32 width, u32 depth,
                               Closure& closure) {
  closure[q] = relation.x;
  for (u32 i = 0; i < relation.left_count; i++) {
    const Closure* part = resolve(run, relation.left[i], std::max(LEAST_WIDTH, width - 1), depth + 1);
    if (part == nullptr) return false;
    closure.insert(part->begin(), part->end());
  }
  return true;
}

// The symbols that q brings, each with its argument, chosen so that the distinct arguments are cheapest. Null
// when q has no usable relation.
const FormulaSearch::Closure* FormulaSearch::resolve(Run& run, u64 q, u32 width, u32 depth) {
  if (const auto known = run.closures.find(q); known != run.closures.end()) {
    return known->second.empty() ? nullptr : &known->second;
  }
  Closure best;
  double best_cost = 0;
  u32 followed = 0;
  for (const Relation& relation : finder_.find(q, run.h)) {
    if (contains(run.forbidden, relation.x)) continue;
    // A prime that other relations bring is needed any number of times, so it must be replaceable singly.
    if (depth > 0 && relation.x == 2 * q * q - 1) continue;
    if (!best.empty() && relation.rank > best_cost + RANK_MARGIN && followed >= 2) break;
    Closure closure;
    if (!closure_of(run, relation, q, width, depth, closure)) continue;
    std::set<u64> arguments;
    for (const auto& [symbol, x] : closure) arguments.insert(x);
    double cost = 0;
    for (const u64 x : arguments) cost += term_cost(x);
    if (best.empty() || cost < best_cost) {
      best = std::move(closure);
      best_cost = cost;
    }
    if (++followed >= width) break;
  }
  Closure& result = run.closures[q];
  result = std::move(best);
  return result.empty() ? nullptr : &result;
}

// Replaces the part of n outside the base as one symbol.
bool FormulaSearch::replace_whole(Run& run, PrimeVector& need, Terms& terms) {
  u64 part = 1;
  u64 least = 0;
  for (u32 i = 0; i < run.factors.count; i++) {
    if (!run.outside(run.factors.prime[i])) continue;
    if (least == 0) least = run.factors.prime[i];
    for (u32 e = 0; e < run.factors.exponent[i]; e++) part *= run.factors.prime[i];
  }
  if (part == 1) return true;
  const Closure* closure = resolve(run, part, WIDTH, 0);
  if (closure == nullptr) return false;
  const u64 x = closure->at(part);
  const PrimeVector vector = arccoth_vector(x);
  const s64 e = vector.exponent(least);
  if (e == 0 || need.exponent(least) % e != 0) return false;
  const s64 c = need.exponent(least) / e;
  use(terms, x, c);
  if (!need.add_multiple(vector, -c)) return false;
  for (u32 i = 0; i < run.factors.count; i++) {
    const u64 p = run.factors.prime[i];
    if (run.outside(p) && need.exponent(p) != 0 && closure->count(p) == 0) return false;
  }
  return true;
}

bool FormulaSearch::assemble(Run& run, bool whole, Terms& terms) {
  PrimeVector need = run.square;
  if (whole && !replace_whole(run, need, terms)) return false;
  // A relation brings only primes below its symbol's, so this ends.
  while (run.outside(need.largest_prime())) {
    const u64 q = need.largest_prime();
    const Closure* closure = resolve(run, q, WIDTH, 0);
    if (closure == nullptr) return false;
    const u64 x = closure->at(q);
    const PrimeVector vector = arccoth_vector(x);
    const s64 e = vector.exponent(q);
    if (need.exponent(q) % e != 0) return false;
    const s64 c = need.exponent(q) / e;
    use(terms, x, c);
    if (!need.add_multiple(vector, -c)) return false;
  }
  if (!need.empty()) {
    if (run.outside(need.largest_prime())) fatal("Non-base prime found in queue.");
    std::vector<s64> c;
    if (!solve(run.base, need, c)) return false;
    for (size_t i = 0; i < c.size(); i++) use(terms, run.base[i]->x, c[i]);
  }
  remove_zeros(terms);
  return !terms.empty();
}

bool FormulaSearch::improve(Run& run, const Terms& terms, Terms& improved) {
  std::set<u64> primes(BASE_PRIMES, BASE_PRIMES + run.h);
  std::vector<Argument> pool;
  for (const Term& term : terms) {
    pool.push_back({term.x, arccoth_vector(term.x)});
    for (const auto& entry : pool.back().vector) primes.insert(entry.prime);
  }
  for (u32 i = 0; i < run.factors.count; i++) primes.insert(run.factors.prime[i]);
  if (primes.size() > MOST_PRIMES) return false;

  std::set<u64> known;
  for (const Argument& argument : pool) known.insert(argument.x);
  const auto offer = [&](u64 x) {
    if (!contains(run.forbidden, x) && known.insert(x).second) pool.push_back({x, arccoth_vector(x)});
  };
  for (const u64 q : primes) {
    if (!run.outside(q)) continue;
    for (const Relation& relation : finder_.find(q, run.h)) {
      if (std::all_of(relation.left, relation.left + relation.left_count,
                      [&](u64 p) { return primes.count(p) != 0; })) {
        offer(relation.x);
      }
    }
  }
  std::vector<const Argument*> arguments;
  for (const Argument& argument : pool) arguments.push_back(&argument);
  for (const Argument& candidate : base_candidates(run.h)) {
    if (!contains(run.forbidden, candidate.x) && known.count(candidate.x) == 0)
      arguments.push_back(&candidate);
  }
  std::sort(arguments.begin(), arguments.end(),
            [](const Argument* a, const Argument* b) { return a->x > b->x; });

  const std::vector<const Argument*> set = independent_set(arguments, {primes.begin(), primes.end()});
  std::vector<s64> c;
  if (set.size() < primes.size() || !solve(set, run.square, c)) return false;
  for (size_t i = 0; i < c.size(); i++) use(improved, set[i]->x, c[i]);
  remove_zeros(improved);
  return true;
}

Terms FormulaSearch::search(u64 n, u32 h, const std::vector<u64>& forbidden) {
  Run run{n, h, forbidden, {}, {}, base_set(h, forbidden), {}};
  if (run.base.empty() || !factorise(n, run.factors) || !run.square.multiply(n, 2)) return {};
  const u32* const exponents = run.factors.exponent;
  const bool composite =
      run.outside_count() >= 2 || *std::max_element(exponents, exponents + run.factors.count) >= 2;
  Terms best;
  const auto consider = [&](const Terms& terms) {
    if (terms.size() > LOG_FORMULA_TERMS) return;
    if (best.empty() || cost_of(terms) < cost_of(best)) best = terms;
  };
  for (const bool whole : {false, true}) {
    if (whole && !composite) continue;
    Terms terms;
    if (!assemble(run, whole, terms)) continue;
    consider(terms);
    Terms improved;
    if (improve(run, terms, improved)) consider(improved);
  }
  return best;
}

} // namespace kelvane::log_search

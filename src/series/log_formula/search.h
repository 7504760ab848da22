// The search for a formula of Log(n) over the first h primes as a base.
//
// State: need, the exponents of n^2; a formula is complete when the arguments used have brought need to
// nothing.
//   1. While a prime outside the base is needed, take the largest, q, use its best relation and so replace it
//   by
//      smaller primes. For an n with several factors outside the base their product may also be replaced as
//      one.
//   2. The rest is over the base, whose unimodular set solves it in integers.
//   3. Over all the primes that now occur, the largest independent arguments known (the base's candidates,
//   the
//      arguments used, all relations among these primes) are solved for n once more.
#pragma once

#include <map>
#include <vector>

#include "series/log_formula/relations.h"

namespace kelvane::log_search {

struct Term {
  u64 x;
  s64 c;
};
using Terms = std::vector<Term>; // ascending x

double cost_of(const Terms& terms);

class FormulaSearch {
public:
  // The cheapest formula that the search finds over the first h primes without a forbidden argument; empty
  // when it finds none. n >= 2.
  Terms search(u64 n, u32 h, const std::vector<u64>& forbidden);
  // To be called between two n.
  void forget() { finder_.forget(); }

private:
  using Closure = std::map<u64, u64>; // symbol -> the argument that replaces it
  struct Run;                         // one n, h and set of forbidden arguments

  const Closure* resolve(Run& run, u64 q, u32 width, u32 depth);
  bool closure_of(Run& run, const Relation& relation, u64 q, u32 width, u32 depth, Closure& closure);
  bool assemble(Run& run, bool whole, Terms& terms);
  bool replace_whole(Run& run, PrimeVector& need, Terms& terms);
  bool improve(Run& run, const Terms& terms, Terms& improved);

  RelationFinder finder_;
};

} // namespace kelvane::log_search

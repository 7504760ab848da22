// See solve.h.

#include "series/log_formula/solve.h"

#include "arithmetic/words/residue.h"

namespace kelvane::log_search {

namespace {

using residue::P;

u64 to_residue(s64 e) {
  const u64 r = residue::reduce(e < 0 ? u64{0} - static_cast<u64>(e) : static_cast<u64>(e));
  return e < 0 ? residue::sub(0, r) : r;
}

s64 symmetric(u64 r) {
  return r > P / 2 ? -static_cast<s64>(P - r) : static_cast<s64>(r);
}

// The coordinates of v over the primes.
std::vector<u64> coordinates(const PrimeVector& v, const std::vector<u64>& primes) {
  std::vector<u64> row(primes.size(), 0);
  for (size_t i = 0; i < primes.size(); i++) row[i] = to_residue(v.exponent(primes[i]));
  return row;
}

// row -= factor * other.
void subtract_multiple(std::vector<u64>& row, const std::vector<u64>& other, u64 factor) {
  for (size_t i = 0; i < row.size(); i++) row[i] = residue::sub(row[i], residue::mul(factor, other[i]));
}

// Rows in echelon form, each with a pivot of 1.
struct Echelon {
  struct Row {
    size_t pivot;
    std::vector<u64> values;
  };
  std::vector<Row> rows;
  u64 determinant = 1; // product of the pivots, up to its sign

  // Reduces the row by those before it and keeps it; false when nothing is left of it.
  bool insert(std::vector<u64> row) {
    for (const Row& r : rows) {
      if (row[r.pivot] != 0) subtract_multiple(row, r.values, row[r.pivot]);
    }
    size_t pivot = 0;
    while (pivot < row.size() && row[pivot] == 0) pivot++;
    if (pivot == row.size()) return false;
    determinant = residue::mul(determinant, row[pivot]);
    const u64 scale = residue::inverse(row[pivot]);
    for (u64& value : row) value = residue::mul(value, scale);
    rows.push_back({pivot, std::move(row)});
    return true;
  }
};

bool put_back(const std::vector<const Argument*>& arguments, const std::vector<s64>& c,
              const PrimeVector& need) {
  PrimeVector sum;
  for (size_t i = 0; i < arguments.size(); i++) {
    if (!sum.add_multiple(arguments[i]->vector, c[i])) return false;
  }
  return sum.add_multiple(need, -1) && sum.empty();
}

} // namespace

bool solve(const std::vector<const Argument*>& arguments, const PrimeVector& need, std::vector<s64>& c) {
  // One equation for each prime that occurs.
  PrimeVector all;
  for (const auto& entry : need) all.add(entry.prime, 1);
  for (const Argument* argument : arguments) {
    for (const auto& entry : argument->vector) {
      if (all.exponent(entry.prime) == 0) all.add(entry.prime, 1);
    }
  }
  const size_t n = arguments.size();
  std::vector<std::vector<u64>> equations;
  for (const auto& entry : all) {
    std::vector<u64> row(n + 1);
    for (size_t i = 0; i < n; i++) row[i] = to_residue(arguments[i]->vector.exponent(entry.prime));
    row[n] = to_residue(need.exponent(entry.prime));
    equations.push_back(std::move(row));
  }

  // Gauss-Jordan: after step i, column i has a single 1, in row i.
  for (size_t i = 0; i < n; i++) {
    size_t pivot = i;
    while (pivot < equations.size() && equations[pivot][i] == 0) pivot++;
    if (pivot == equations.size()) return false;
    std::swap(equations[i], equations[pivot]);
    const u64 scale = residue::inverse(equations[i][i]);
    for (u64& value : equations[i]) value = residue::mul(value, scale);
    for (size_t j = 0; j < equations.size(); j++) {
      if (j != i && equations[j][i] != 0) subtract_multiple(equations[j], equations[i], equations[j][i]);
    }
  }
  c.resize(n);
  for (size_t i = 0; i < n; i++) c[i] = symmetric(equations[i][n]);
  return put_back(arguments, c, need);
}

std::vector<const Argument*> independent_set(const std::vector<const Argument*>& pool,
                                             const std::vector<u64>& primes) {
  Echelon echelon;
  std::vector<const Argument*> chosen;
  for (const Argument* argument : pool) {
    if (chosen.size() == primes.size()) break;
    if (echelon.insert(coordinates(argument->vector, primes))) chosen.push_back(argument);
  }
  return chosen;
}

bool is_unimodular(const std::vector<const Argument*>& arguments, const std::vector<u64>& primes) {
  Echelon echelon;
  for (const Argument* argument : arguments) {
    if (!echelon.insert(coordinates(argument->vector, primes))) return false;
  }
  return echelon.determinant == 1 || echelon.determinant == P - 1;
}

} // namespace kelvane::log_search

// See relations.h.

#include "series/log_formula/relations.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "series/log_formula/cost.h"

namespace kelvane::log_search {

namespace {

constexpr u64 FEW_MULTIPLIERS = 4096;
constexpr u64 MANY_MULTIPLIERS = 32768;
constexpr u64 LARGE_SYMBOL = u64{1} << 13;
constexpr u64 LARGEST_SMOOTH = u64{1} << 36;
constexpr u64 LARGEST_MULTIPLE = u64{1} << 61; // keeps x below 2^63
constexpr size_t PER_SHAPE = 250;
constexpr size_t EXAMINED = 500;
constexpr size_t KEPT = 80;
constexpr size_t MOST_RESULTS = 2000;

// What the formula of a prime left over will cost, at a guess.
double guess(u64 p) {
  return 1.15 + 0.33 * std::max(0.0, std::log2(static_cast<double>(p)) - 11);
}

// Divides out the base's primes. An odd p divides n exactly when n * (1/p mod 2^64) is at most (2^64 - 1) /
// p, and that product is then the quotient.
class Stripper {
public:
  explicit Stripper(u32 h) : count_(h - 1) {
    for (u32 i = 0; i < count_; i++) {
      const u64 p = BASE_PRIMES[i + 1];
      u64 inverse = p; // p p = 1 mod 8; every step doubles the correct bits
      for (int step = 0; step < 5; step++) inverse *= 2 - p * inverse;
      divisors_[i] = {inverse, ~u64{0} / p};
    }
  }
  u64 strip(u64 n) const {
    n >>= std::countr_zero(n);
    for (u32 i = 0; i < count_; i++) {
      for (u64 q; (q = n * divisors_[i].inverse) <= divisors_[i].largest_quotient;) n = q;
    }
    return n;
  }

private:
  struct Divisor {
    u64 inverse, largest_quotient;
  };
  u32 count_;
  Divisor divisors_[MOST_BASE];
};

// 1/q mod p^(k+1) from 1/q mod p^k (Hensel), or for the first power by trial.
u64 inverse_modulo(u64 q, u64 power, u64 p, u64 previous) {
  if (power == p) {
    u64 r = 1;
    while (q % p * r % p != 1) r++;
    return r;
  }
  const u64 product = static_cast<u64>(static_cast<u128>(q) * previous % power);
  return static_cast<u64>(static_cast<u128>(previous) * (power + 2 - product) % power);
}

// log2 in units of 1/256.
u32 fixed_log(double x) {
  return static_cast<u32>(256 * std::log2(x));
}

// A power of each base prime, below 2^16.
constexpr u64 RESIDUE_MODULI[MOST_BASE] = {4096, 2187, 3125, 2401, 1331, 2197, 289, 361};
constexpr u64 ALL_RESIDUES = 4096 + 2187 + 3125 + 2401 + 1331 + 2197 + 289 + 361;

// The powers of one prime p that divide z = m q + d: f(first, power) for the m = first modulo each power up
// to the limit, first in [0, power). Ends early when f returns false.
template <class F> void for_powers(u64 q, s64 d, u64 p, u64 limit, const F& f) {
  u64 inverse = 0;
  for (u64 power = p; power <= limit; power *= p) {
    inverse = inverse_modulo(q, power, p, inverse);
    const u64 distance = static_cast<u64>(d < 0 ? -d : d) % power;
    const u64 root = d < 0 ? distance : power - distance;
    if (!f(static_cast<u64>(static_cast<u128>(inverse) * root % power), power)) return;
  }
}

// For every residue of m modulo the power in RESIDUE_MODULI: fixed_log of the part of z = m q + d that the
// prime makes up. Where z vanishes modulo that power the part is not known and is taken to be large.
void fill_parts(u64 q, s64 d, u64 p, u64 modulus, std::uint16_t* part) {
  constexpr u32 UNKNOWN = 16 * 256;
  std::fill(part, part + modulus, std::uint16_t{0});
  for_powers(q, d, p, modulus, [&](u64 first, u64 power) {
    const u32 log = fixed_log(static_cast<double>(p)) + 1 + (power == modulus ? UNKNOWN : 0);
    for (u64 m = first; m < modulus; m += power) part[m] = static_cast<std::uint16_t>(part[m] + log);
    return true;
  });
}

u64 argument_of(u64 y, s64 d) {
  return d == 1 || d == -1 ? 2 * y + static_cast<u64>(d) : y + static_cast<u64>(d / 2);
}

} // namespace

struct RelationFinder::Multipliers {
  explicit Multipliers(u32 h)
      : primes(base_primes(h)), stripper(h), sieve_start(MANY_MULTIPLIERS + 1),
        smooth(smooth_numbers(h, LARGEST_SMOOTH)), smooth_log(smooth.size()), smooth_residue(h) {
    for (u64 m = 1; m <= MANY_MULTIPLIERS; m++) {
      sieve_start[m] = static_cast<float>(std::log2(static_cast<double>(m)) +
                                          std::log2(static_cast<double>(stripper.strip(m))));
    }
    for (size_t i = 0; i < smooth.size(); i++) {
      smooth_log[i] = fixed_log(static_cast<double>(smooth[i]));
      for (u32 k = 0; k < h; k++) {
        if (smooth_residue[k].empty()) smooth_residue[k].resize(smooth.size());
        smooth_residue[k][i] = static_cast<std::uint16_t>(smooth[i] % RESIDUE_MODULI[k]);
      }
    }
  }
  std::vector<u64> primes;
  Stripper stripper;
  std::vector<float> sieve_start; // log2 of m and of its part outside the base
  std::vector<u64> smooth;
  std::vector<u32> smooth_log;                            // fixed_log of them
  std::vector<std::vector<std::uint16_t>> smooth_residue; // by prime: modulo its power in RESIDUE_MODULI
};

struct RelationFinder::Candidate {
  float score; // log2 of what is left of m and z
  u64 m;
  s64 d; // z - y
  bool operator<(const Candidate& other) const { return score < other.score; }
};

RelationFinder::RelationFinder() = default;
RelationFinder::~RelationFinder() = default;

const RelationFinder::Multipliers& RelationFinder::multipliers(u32 h) {
  if (!multipliers_[h]) multipliers_[h] = std::make_unique<Multipliers>(h);
  return *multipliers_[h];
}

void RelationFinder::forget() {
  if (found_.size() > MOST_RESULTS) found_.clear();
}

void RelationFinder::keep(const Candidate& candidate) {
  if (best_.size() == PER_SHAPE) {
    std::pop_heap(best_.begin(), best_.end());
    best_.pop_back();
  }
  best_.push_back(candidate);
  std::push_heap(best_.begin(), best_.end());
}

// m = 1..count: score[m] = log2 of what is left of m and of z = m q + d, from which every power of a base
// prime that divides z takes one log2 of the prime: these are the m = -d/q modulo the power.
void RelationFinder::search_sieved(u64 q, s64 d, u64 count, const Multipliers& m) {
  const bool odd_only = d == 2 || d == -2;
  const float log_q = static_cast<float>(std::log2(static_cast<double>(q)));
  score_.assign(m.sieve_start.begin(), m.sieve_start.begin() + static_cast<std::ptrdiff_t>(count) + 1);
  for (const u64 p : m.primes) {
    if (p == 2 && odd_only) continue;
    const float log_p = static_cast<float>(std::log2(static_cast<double>(p)));
    for_powers(q, d, p, LARGEST_MULTIPLE, [&](u64 first, u64 power) {
      for (u64 i = first; i <= count; i += power) score_[i] -= log_p;
      return first <= count; // else the roots of the higher powers lie beyond, too
    });
  }
  const u64 step = odd_only ? 2 : 1;
  float worst = std::numeric_limits<float>::max();
  for (u64 i = 1; i <= count; i += step) {
    if (score_[i] + log_q >= worst) continue;
    keep({score_[i] + log_q, i, d});
    if (best_.size() == PER_SHAPE) worst = best_.front().score;
  }
}

// The smooth m beyond the sieve. Tables of z's part for each prime, by the residue of m, tell the few m worth
// a closer look.
void RelationFinder::search_smooth(u64 q, s64 d, const Multipliers& m) {
  const u64 sieved = q < LARGE_SYMBOL ? FEW_MULTIPLIERS : MANY_MULTIPLIERS;
  const bool odd_only = d == 2 || d == -2;
  constexpr u32 SLACK = 256;
  const u32 log_q = fixed_log(static_cast<double>(q));
  u32 limit = u32{1} << 30;
  const auto lower_limit = [&] {
    if (best_.size() == PER_SHAPE)
      limit = static_cast<u32>(256 * std::max(best_.front().score, 0.0F)) + SLACK;
  };
  lower_limit();

  std::uint16_t parts[ALL_RESIDUES];
  const std::uint16_t* part[MOST_BASE];
  const std::uint16_t* residue[MOST_BASE];
  u32 primes = 0;
  std::uint16_t* free = parts;
  for (size_t k = odd_only ? 1 : 0; k < m.primes.size(); k++) {
    fill_parts(q, d, m.primes[k], RESIDUE_MODULI[k], free);
    part[primes] = free;
    residue[primes++] = m.smooth_residue[k].data();
    free += RESIDUE_MODULI[k];
  }
  const auto begin = std::upper_bound(m.smooth.begin(), m.smooth.end(), sieved);
  const auto end = std::upper_bound(begin, m.smooth.end(), LARGEST_MULTIPLE / q);
  const size_t last = static_cast<size_t>(end - m.smooth.begin());
  for (size_t i = static_cast<size_t>(begin - m.smooth.begin()); i < last; i++) {
    if (odd_only && (m.smooth[i] & 1) == 0) continue;
    u32 divided = 0;
    for (u32 k = 0; k < primes; k++) divided += part[k][residue[k][i]];
    if (m.smooth_log[i] + log_q >= limit + divided) continue;
    const u64 left = m.stripper.strip(m.smooth[i] * q + static_cast<u64>(d));
    const float score = static_cast<float>(std::log2(static_cast<double>(left)));
    if (best_.size() == PER_SHAPE && score >= best_.front().score) continue;
    keep({score, m.smooth[i], d});
    lower_limit();
  }
}

const std::vector<Relation>& RelationFinder::find(u64 q, u32 h) {
  const auto [at, is_new] = found_.try_emplace(q * 16 + h);
  std::vector<Relation>& relations = at->second;
  if (!is_new) return relations;
  const Multipliers& m = multipliers(h);

  std::vector<Candidate> candidates;
  for (const s64 d : {1, -1, 2, -2}) {
    best_.clear();
    search_sieved(q, d, q < LARGE_SYMBOL ? FEW_MULTIPLIERS : MANY_MULTIPLIERS, m);
    search_smooth(q, d, m);
    candidates.insert(candidates.end(), best_.begin(), best_.end());
  }
  std::sort(candidates.begin(), candidates.end());
  if (candidates.size() > EXAMINED) candidates.resize(EXAMINED);

  // Adds the relation of x when the parts of x^2 - 1 outside q and the base are products of primes below q.
  const auto add = [&](u64 x, u64 part1, u64 part2) {
    Relation relation{term_cost(x), x, {}, 0};
    for (const u64 part : {part1, part2}) {
      Factors f;
      if (!factorise(m.stripper.strip(part), f)) return;
      for (u32 i = 0; i < f.count; i++) {
        const u64 p = f.prime[i];
        if (p >= q || relation.left_count == Relation::MOST_LEFT) return;
        u64* const end = relation.left + relation.left_count;
        if (std::find(relation.left, end, p) != end) continue;
        relation.left[relation.left_count++] = p;
        relation.rank += guess(p);
      }
    }
    relations.push_back(relation);
  };
  add(2 * q * q - 1, q - 1, q + 1);
  for (const Candidate& c : candidates) {
    const u64 z = c.m * q + static_cast<u64>(c.d);
    if (std::gcd(c.m, q) == 1 && std::gcd(z, q) == 1) add(argument_of(c.m * q, c.d), c.m, z);
  }
  std::sort(relations.begin(), relations.end(), [](const Relation& a, const Relation& b) {
    return a.rank != b.rank ? a.rank < b.rank : a.x < b.x;
  });
  if (relations.size() > KEPT) relations.resize(KEPT);
  return relations;
}

} // namespace kelvane::log_search

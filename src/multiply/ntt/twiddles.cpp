#include "multiply/ntt/twiddles.h"

#include <bit>
#include <mutex>

#include "multiply/table/parallel.h"

namespace kelvane::ntt {

namespace {

constexpr u64 words_per_prime(Backend backend) {
  const BackendShape shape = shape_of(backend);
  const u64 entries = (u64{1} << shape.s_log) + (shape.u_log == 0 ? 0 : u64{1} << shape.u_log);
  return entries * 6 * (shape.quotients ? 2 : 1);
}

// Memory of the lists: pages that no product needs are never touched.
template <Backend B> struct Storage {
  static constexpr u32 COUNT = primes_of(B).count;
  alignas(64) u64 words[COUNT][words_per_prime(B)];
  PrimeTable tables[COUNT];
  std::once_flag built[COUNT];
};
template <Backend B> Storage<B> storage;

template <Backend B> u64* memory_of(u32 i) {
  return storage<B>.words[i];
}

// The lists of one prime.
class Builder {
public:
  Builder(PrimeTable& table, Backend backend, u32 index, u64* memory)
      : table_(table), backend_(backend), shape_(shape_of(backend)), field_(field_of(backend, index)),
        index_(index), memory_(memory) {}

  void build() {
    table_.p = field_.p();
    const u64 root = field_.root_two(), omega = field_.root_three();
    for (u32 d = 0; d < 2; d++) {
      table_.omega[d] = d == 0 ? omega : field_.mul(omega, omega);
      table_.roots[d][ORDER_LOG] = d == 0 ? root : field_.inverse(root);
      for (u32 m = ORDER_LOG; m > 0; m--) {
        table_.roots[d][m - 1] = field_.mul(table_.roots[d][m], table_.roots[d][m]);
      }
      for (u32 e = 0; e < 3; e++) {
        table_.s[d][e] = list_s(d, e);
        if (shape_.u_log != 0) table_.u[d][e] = list_u(d, e);
      }
      lanes(d);
      const u64* const roots = table_.roots[d];
      const u64 turns[3] = {roots[2], roots[3], field_.mul(roots[2], roots[3])};
      for (u32 i = 0; i < 3; i++) table_.turns[d][i] = encode(backend_, field_, turns[i]);
      const u64 half = field_.inverse(2);
      table_.third[d] =
          encode(backend_, field_, field_.mul(half, field_.sub(table_.omega[d], omega_power(2, d))));
    }
    const u64 half = field_.inverse(2);
    table_.minus_half = encode(backend_, field_, field_.p() - half);
    table_.one = encode(backend_, field_, 1);
    for (u32 set = 0; set < (shape_.scaled ? TRANSFORM_SETS : 1); set++) limbs(set);
    for (u32 i = 0; i < index_; i++)
      table_.garner[i] = encode(backend_, field_, field_.inverse(primes_of(backend_).prime(i) % field_.p()));
  }

private:
  u64 omega_power(u32 e, u32 d) const {
    return e == 0 ? 1 : e == 1 ? table_.omega[d] : field_.mul(table_.omega[d], table_.omega[d]);
  }

  u64* take(u32 log) {
    u64* const list = memory_;
    memory_ += (u64{1} << log) * (shape_.quotients ? 2 : 1);
    return list;
  }
  void put(u64* list, u32 log, u64 i, u64 x) const {
    const Factor f = encode(backend_, field_, x);
    list[i] = f.value;
    if (shape_.quotients) list[(u64{1} << log) + i] = f.quotient;
  }

  // s_j by doubling, a being additive over bits: s_(2^t + r) = s_r e(1 / 2^(t+2)). The plain residues are
  // kept in a scratch column until the last doubling.
  const u64* list_s(u32 d, u32 e) {
    u64* const list = take(shape_.s_log);
    const u64 scale = omega_power(e, d);
    for (u64 j = 0; j < u64{1} << shape_.s_log; j++) {
      plain_[j] = j == 0 ? 1 : field_.mul(plain_[j & (j - 1)], table_.roots[d][std::countr_zero(j) + 2]);
      put(list, shape_.s_log, j, field_.mul(plain_[j], scale));
    }
    return list;
  }
  // u_j = e(2 a_j / L^2): bit t of j gives e(1 / 2^(t + 1 + base_log)).
  const u64* list_u(u32 d, u32 e) {
    u64* const list = take(shape_.u_log);
    const u64 scale = omega_power(e, d);
    for (u64 j = 0; j < u64{1} << (shape_.u_log - shape_.log_lanes); j++) {
      const u32 bit = static_cast<u32>(std::countr_zero(j));
      plain_[j] = j == 0 ? 1 : field_.mul(plain_[j & (j - 1)], table_.roots[d][bit + 1 + shape_.base_log]);
      const u64 u = field_.mul(plain_[j], scale);
      u64 x = 1;
      for (u32 b = 0; b < shape_.lanes; b++, x = field_.mul(x, u)) {
        put(list, shape_.u_log, j * shape_.lanes + b, x);
      }
    }
    return list;
  }
  // The root of 1 / (g M) among the primes of a set, 1 without scaling.
  u64 root_of_scale(u32 set) {
    u64 g = 1, M = 1;
    if (shape_.scaled) {
      for (u32 i = 0; i < set + MIN_PRIMES; i++) {
        if (i != index_) M = field_.mul(M, primes_of(backend_).prime(i) % field_.p());
      }
      while (!field_.is_square(field_.mul(g, M))) g++;
    }
    table_.multiplier[set] = g;
    table_.scale[set] = field_.inverse(field_.mul(g, M));
    return field_.square_root(table_.scale[set]);
  }
  // k^2 = 2^product_shift / (r 2^(m - left_levels)), with scaled residues over g M.
  void limbs(u32 set) {
    const u64 i = table_.roots[0][2], sum = field_.add(table_.roots[0][3], table_.roots[1][3]);
    const u64 root_of_3 = field_.mul(i, field_.add(field_.add(table_.omega[0], table_.omega[0]), 1));
    const u64 scale = root_of_scale(set);
    const u64 limb = field_.power(2, shape_.limb_bits);
    for (u32 third = 0; third < 2; third++) {
      u64 k = field_.power(sum, shape_.product_shift + shape_.left_levels);
      if (third != 0) k = field_.mul(k, field_.inverse(root_of_3));
      k = field_.mul(k, scale);
      for (u32 m = 0; m <= ORDER_LOG; m++, k = field_.mul(k, field_.inverse(sum))) {
        u64 x = k;
        for (u32 j = 0; j < MAX_LIMBS; j++, x = field_.mul(x, limb))
          table_.limb[set][third][m][j] = encode(backend_, field_, x);
      }
    }
  }
  // Z_k = e(2 a_k / L), a_k of log2 L bits: reversed k over L^2.
  void lanes(u32 d) {
    const u32 n = shape_.log_lanes;
    if (shape_.u_log == 0) return;
    for (u64 k = 0; k < shape_.lanes; k++) {
      u64 reversed = 0;
      for (u32 i = 0; i < n; i++) reversed |= (k >> i & 1) << (n - 1 - i);
      const u64 z = field_.power(table_.roots[d][2 * n], reversed);
      u64 x = 1;
      for (u64 b = 0; b < shape_.lanes; b++, x = field_.mul(x, z)) {
        const Factor f = encode(backend_, field_, x);
        table_.lane[d][b * shape_.lanes + k] = f.value;
        table_.lane[d][LANE_QUOTIENTS + b * shape_.lanes + k] = f.quotient;
      }
    }
  }

  PrimeTable& table_;
  Backend backend_;
  BackendShape shape_;
  const Field& field_;
  u32 index_;
  u64* memory_;
  u64 plain_[u64{1} << 15];
};

template <Backend B> const PrimeTable& table_in(u32 i) {
  Storage<B>& s = storage<B>;
  std::call_once(s.built[i], [&] { Builder(s.tables[i], B, i, memory_of<B>(i)).build(); });
  return s.tables[i];
}

template <Backend B> const Field& field_in(u32 i) {
  static const auto fields = [] {
    struct All {
      Field f[MAX_PRIMES];
    };
    const PrimeSet& s = primes_of(B);
    auto at = [&](u32 j) { return Field(s.prime(j < s.count ? j : 0)); };
    return All{{at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7)}};
  }();
  return fields.f[i];
}

} // namespace

const Field& field_of(Backend backend, u32 i) {
  switch (backend) {
  case Backend::ifma:
    return field_in<Backend::ifma>(i);
  case Backend::integer1:
    return field_in<Backend::integer1>(i);
  default:
    return field_in<Backend::double4>(i);
  }
}

const PrimeTable& prime_table(Backend backend, u32 i) {
  switch (backend) {
  case Backend::ifma:
    return table_in<Backend::ifma>(i);
  case Backend::double8:
    return table_in<Backend::double8>(i);
  case Backend::double4:
    return table_in<Backend::double4>(i);
  case Backend::integer1:
    break;
  }
  return table_in<Backend::integer1>(i);
}

void build_tables(Backend backend, u64 threads) {
  const auto build = [&](u64 i, km_MULv3::Worker) { prime_table(backend, static_cast<u32>(i)); };
  km_MULv3::run_phases(threads, km_MULv3::Phase{primes_of(backend).count, build});
}

u64 table_bytes(Backend backend) {
  return words_per_prime(backend) * sizeof(u64) * primes_of(backend).count;
}

namespace {
u64 stored(Backend backend, const Field& field, u64 x) {
  if (shape_of(backend).quotients) return x;
  // Doubles are balanced: |x| <= p/2.
  const double balanced = x > field.p() / 2 ? -static_cast<double>(field.p() - x) : static_cast<double>(x);
  return std::bit_cast<u64>(balanced);
}
} // namespace

Factor encode(Backend backend, const Field& field, u64 x) {
  const BackendShape shape = shape_of(backend);
  return {stored(backend, field, x), shape.quotients ? field.quotient(x, shape.quotient_shift) : 0};
}

void row_constants(RowConstants& out, Backend backend, u32 prime, u32 direction, u32 tree, u64 row,
                   u32 log_rows, u32 log_columns) {
  const BackendShape shape = shape_of(backend);
  const PrimeTable& table = prime_table(backend, prime);
  const Field& field = field_of(backend, prime);
  // y = e(2 a_row / C) w^(t / 2^(log_rows + log_columns)).
  u64 y = 1;
  for (u64 bits = row; bits != 0; bits &= bits - 1) {
    const u32 bit = static_cast<u32>(std::countr_zero(bits));
    y = field.mul(y, table.roots[direction][bit + 1 + log_columns]);
  }
  const u32 power = (tree << ((log_rows + log_columns) & 1)) % 3;
  for (u32 i = 0; i < power; i++) y = field.mul(y, table.omega[direction]);

  if (shape.u_log != 0) {
    u64 x = 1;
    for (u32 b = 0; b < shape.lanes; b++, x = field.mul(x, y))
      out.value[RowConstants::BLOCK + b] = stored(backend, field, x);
  }
  for (u32 level = log_columns; level-- > 0; y = field.mul(y, y))
    out.value[level] = stored(backend, field, y);
}

} // namespace kelvane::ntt

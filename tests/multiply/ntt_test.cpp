// The transform's parts: primes, plans, shapes, and the transform itself against direct evaluation.
#include "multiply/hnt_fixture.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "shell/exception.h"

namespace kelvane::test {
namespace {

using ntt::Backend;

TEST(Ntt, PrimesAndFields) {
  std::mt19937_64 random(1);
  for (u32 backend = 0; backend < ntt::BACKENDS; backend++) {
    const ntt::PrimeSet& set = ntt::primes_of(static_cast<Backend>(backend));
    for (u32 i = 0; i < set.count; i++) {
      const u64 p = set.prime(i);
      mpz_t z;
      mpz_init_set_ui(z, p);
      EXPECT_NE(mpz_probab_prime_p(z, 40), 0) << p;
      mpz_clear(z);
      EXPECT_LT(p, u64{1} << set.bits);
      // What the lazy bounds of the vector backends assume.
      EXPECT_TRUE(set.bits == 62 || 15 * ((u64{1} << set.bits) - p) < p / 10) << p;
      EXPECT_EQ((p - 1) % (u64{3} << ntt::ORDER_LOG), 0u);
      const ntt::Field field(p);
      for (int round = 0; round < 200; round++) {
        const u64 a = round < 2 ? p - 1 : random() % p, b = round < 1 ? p - 1 : random() % p;
        ASSERT_EQ(field.mul(a, b), static_cast<u64>(static_cast<u128>(a) * b % p))
            << a << " * " << b << " mod " << p;
      }
      for (u64 a = 2; a < 50; a++) {
        const u64 x = field.square_root(field.mul(a, a));
        EXPECT_TRUE(x == a || x == p - a) << a << " mod " << p;
        EXPECT_TRUE(!field.is_square(a) || field.mul(field.square_root(a), field.square_root(a)) == a)
            << a << " mod " << p;
      }
      const u64 root = field.root_two(), third = field.root_three();
      EXPECT_EQ(field.power(root, u64{1} << (ntt::ORDER_LOG - 1)), p - 1);
      EXPECT_TRUE(third != 1 && field.power(third, 3) == 1);
    }
  }
}

TEST(Ntt, ShapesKeepTheirHeadroom) {
  for (u32 which = 0; which < ntt::BACKENDS; which++) {
    const Backend backend = static_cast<Backend>(which);
    const ntt::ShapeList list = ntt::shapes(backend);
    for (u64 i = 0; i < list.count; i++) {
      const ntt::Shape& s = list.first[i];
      mpz_t P, need;
      mpz_init_set_ui(P, 1);
      mpz_init(need);
      for (u32 j = 0; j < s.w; j++) mpz_mul_ui(P, P, ntt::primes_of(backend).prime(j));
      mpz_setbit(need, 2 * s.b + 1 + static_cast<u32>(std::bit_width(s.N() - 1)));
      EXPECT_LE(mpz_cmp(need, P), 0) << "w " << s.w << " N " << s.N() << " b " << s.b;
      mpz_clear(P);
      mpz_clear(need);
      EXPECT_EQ((s.tile() * s.b) % 64, 0u);
      EXPECT_LE(s.rows() / s.r, u64{2} << ntt::shape_of(backend).s_log);
      if (i > 0) {
        EXPECT_LT(list.first[i - 1].capacity_bits(), s.capacity_bits());
        EXPECT_LT(ntt::product_nanoseconds(list.first[i - 1]), ntt::product_nanoseconds(s));
        // The staircase: the next shape costs at most a quarter more.
        if (s.capacity_words() > 17410 && list.first[i - 1].capacity_words() < (u64{1} << 32)) {
          EXPECT_LT(ntt::product_nanoseconds(s), 1.25 * ntt::product_nanoseconds(list.first[i - 1]))
              << which << " w " << s.w << " N " << s.N();
        }
      }
    }
    ASSERT_NE(ntt::choose_shape(backend, u64{1} << 38), nullptr);
  }
}

// The residue that a backend stores.
u64 decode(Backend backend, u64 stored, u64 p) {
  if (backend == Backend::ifma) return (stored & ((u64{1} << 52) - 1)) % p;
  if (backend == Backend::integer1) return stored % p;
  const s64 x = static_cast<s64>(std::bit_cast<double>(stored)) % static_cast<s64>(p);
  return static_cast<u64>(x < 0 ? x + static_cast<s64>(p) : x);
}

// Point `column` of a packed row: of four vectors of eight points three have their lines, in the lower 48
// bits of each word, and the fourth is shared out among the upper 16.
u64 packed_point(const u64* row, u64 column) {
  const u64* const group = row + column / 32 * 24;
  const u64 lane = column % 8, vector = column / 8 % 4;
  if (vector < 3) return group[8 * vector + lane] << 16 >> 16;
  return group[lane] >> 48 | group[8 + lane] >> 48 << 16 | group[16 + lane] >> 48 << 32;
}

// Forward: the digits' polynomial, times the backend's factor, modulo x^M - c for all (N / M)-th roots of
// unity c, in whatever order: values when M = 1. Blocks of 8 M points hold coefficient t of 8 parts side by
// side.
TEST(Ntt, TransformIsEvaluation) {
  std::mt19937_64 random(2);
  for (const simd::Isa isa : every_isa()) {
    const Backend backend = ntt::backend_of(isa);
    const ntt::Kernels& kernels = ntt::kernels_of(backend);
    for (const u32 r : {1u, 3u}) {
      for (const u32 kind : {0u, 1u, 2u}) {
        const bool direct = kind == 0, packed = kind == 2;
        if (packed && backend != ntt::Backend::ifma) continue;
        ntt::Shape s;
        s.backend = backend;
        s.w = 4;
        s.r = r;
        s.b = 62;
        s.log_rows = direct || packed ? 2 : 3;
        s.log_columns = packed ? 10 : 8; // two steps down to the blocks
        s.log_tile = 5;
        s.direct = direct;
        s.stream = s.packed = packed;
        const u64 N = s.N(), L = N / 2 * s.b / 64; // the upper half is zero
        const Words a = operand(L, Pattern::random, random);
        const Buffer area(8 * s.area_words()), data(8 * s.prime_stride());
        const u32 prime = 2;
        for (u64 tile = 0; tile < s.tiles(); tile++) {
          kernels.forward_tile(s, prime, prime + 1, a.data(), L, tile, data.words(), area.words());
        }
        for (u64 row = 0; row < s.rows(); row++) {
          kernels.forward_row(s, prime, row, data.words() + row * s.row_stride(), area.words());
        }
        const ntt::Field& field = ntt::field_of(backend, prime);
        const ntt::BackendShape kernel = ntt::shape_of(backend);
        const u64 M = u64{1} << kernel.left_levels;
        using Part = std::vector<u64>;
        std::vector<Part> got, want;
        Part digits(N);
        mpz_t z, d;
        mpz_init(z);
        mpz_init(d);
        mpz_import(z, L, -1, 8, 0, 0, a.data());
        for (u64 i = 0; i < N; i++) {
          mpz_fdiv_r_2exp(d, z, s.b);
          mpz_fdiv_q_2exp(z, z, s.b);
          digits[i] = mpz_fdiv_ui(d, field.p());
        }
        mpz_clear(z);
        mpz_clear(d);
        const u32 log = s.log_rows + s.log_columns;
        const ntt::PrimeTable& table = ntt::prime_table(backend, prime);
        const u32 set = ntt::transform_set(backend, s.w);
        const u64 factor = decode(backend, table.limb[set][r == 3][log][0].value, field.p());
        u64 square = field.mul(field.mul(factor, factor), N / M % field.p());
        for (u32 j = 0; j < s.w && kernel.scaled; j++)
          square = field.mul(square, j == prime ? table.multiplier[set]
                                                : ntt::primes_of(backend).prime(j) % field.p());
        EXPECT_EQ(square, field.power(2, kernel.product_shift));
        u64 root = field.power(field.root_two(), M << (ntt::ORDER_LOG - log));
        if (r == 3) root = field.mul(root, field.root_three());
        u64 c = 1;
        for (u64 i = 0; i < N / M; i++, c = field.mul(c, root)) {
          Part residue(M), stored(M);
          for (u64 t = 0; t < M; t++) {
            u64 value = 0;
            for (u64 j = N / M; j-- > 0;) value = field.add(field.mul(value, c), digits[j * M + t]);
            residue[t] = field.mul(value, factor);
            const u64 point = i / 8 * 8 * M + i % 8 + 8 * t; // M = 1: i
            const u64 row = point >> s.log_columns, column = point & (s.columns() - 1);
            const u64* const at = data.words() + row * s.row_stride();
            const u64 bits = packed ? packed_point(at, column) : at[column];
            stored[t] = decode(backend, bits, field.p());
          }
          want.push_back(residue);
          got.push_back(stored);
        }
        ASSERT_EQ(c, 1u);
        std::sort(got.begin(), got.end());
        std::sort(want.begin(), want.end());
        ASSERT_EQ(got, want) << name(isa) << " r " << r << " direct " << direct << " packed " << packed;
      }
    }
  }
}

// The plans' tables: rows that are given, order, and selection.
TEST(Hnt, Plans) {
  using km_HNT::Plan;
  const auto row = [](u32 table, u64 i) {
    const Plan& p = km_HNT::plan_table(table).rows[i];
    return std::pair<u32, u32>(p.s, p.m);
  };
  using P = std::pair<u32, u32>;
  ASSERT_EQ(km_HNT::plan_table(0).count, 255u);
  ASSERT_EQ(km_HNT::plan_table(1).count, 206u);
  const P first[] = {{4, 128}, {4, 160}, {4, 192}, {3, 1024}, {3, 1280}, {3, 1344}};
  const P first_last[] = {{16, 9}, {15, 36}, {14, 144}, {14, 150}};
  const P second[] = {{8, 2}, {9, 1}, {8, 4}, {8, 6}, {9, 2}, {8, 8}};
  const P second_last[] = {{21, 13}, {21, 14}, {21, 15}, {23, 1}};
  for (u64 i = 0; i < 6; i++) {
    EXPECT_EQ(row(0, i), first[i]);
    EXPECT_EQ(row(1, i), second[i]);
  }
  for (u64 i = 0; i < 4; i++) {
    EXPECT_EQ(row(0, 251 + i), first_last[i]);
    EXPECT_EQ(row(1, 202 + i), second_last[i]);
  }
  for (u32 table = 0; table < 2; table++) {
    const km_HNT::PlanTable rows = km_HNT::plan_table(table);
    for (u64 i = 0; i < rows.count; i++) {
      const Plan& p = rows.rows[i];
      const u64 L = u64{p.m} << p.s;
      EXPECT_EQ(L % 256, 0u);
      EXPECT_TRUE(p.L_128 == L / 128 && p.L_128_next == L / 128 + 1 && p.L_256_before == L / 256 - 1);
      EXPECT_TRUE(i == 0 || rows.rows[i - 1].capacity_bits < p.capacity_bits)
          << "table " << table << " row " << i;
    }
  }
  EXPECT_EQ(km_HNT::plan_table(1).rows[205].capacity_bits, 8795824586752u);
  const Plan& small =
      km_HNT::make_plan(3585); // the second table's first row has room, the first table is asked first
  EXPECT_TRUE(small.s == 4 && small.m == 160);
  EXPECT_GE(km_HNT::make_plan(64 * (u64{1} << 32)).capacity_bits, 64 * (u64{1} << 32));
  EXPECT_EQ(km_HNT::make_plan(8795824586752).s, 23u);
  try {
    km_HNT::make_plan(8795824586753);
    FAIL() << "no exception";
  } catch (const km_exception& e) {
    EXPECT_EQ(e.code, -4);
  }
  // The row's largest product has a shape and a cost; memory grows with the size.
  EXPECT_GT(km_MULv3::memory_cost(u64{1} << 32, 4), km_MULv3::memory_cost(u64{1} << 31, 4));
}

} // namespace
} // namespace kelvane::test

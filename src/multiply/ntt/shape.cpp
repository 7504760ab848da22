#include "multiply/ntt/shape.h"

#include <algorithm>
#include <bit>
#include <vector>

namespace kelvane::ntt {

namespace {

// The cost of a product of N points with w primes is taken as
//     N (w (point + level log2 N) + ends[w - 3]) nanoseconds, log2 3 being replaced by `three`;
// `ends` is the conversion of both operands and the recombination. Measured on a processor with 512-bit units
// at 4 GHz, 2^16 to 2^24 points. Only ratios matter, so that other processors are served about as well.
struct CostModel {
  double point, level, three, ends[6];
};
constexpr CostModel COSTS[BACKENDS] = {
    {1.9, 0.06, 4.0, {2.3, 2.9, 3.7, 4.6, 5.6, 6.7}}, // ifma
    {1.0, 0.27, 1.6, {5, 7.8, 9.5, 12.5, 16, 20}},    // double8
    {2.2, 0.44, 1.6, {7, 10.2, 12, 16, 20, 25}},      // double4
    {4.0, 1.60, 1.6, {14, 20, 27, 36, 43, 52}},       // integer1
};

u32 ceil_log2(u64 n) {
  return static_cast<u32>(std::bit_width(n - 1));
}

// Long rows, as long as two of them and their lists stay in the second-level cache; shorter ones where the
// whole would otherwise have too few rows for a tile's constants to pay.
u32 columns_log(u32 log_n) {
  if (log_n >= 25) return 16;
  if (log_n >= 23) return 15;
  if (log_n >= 19) return 14;
  if (log_n >= 15) return 12;
  if (log_n >= 13) return 10;
  return 8;
}

// Of three parts of 2^18 points and more the whole counts; of shorter ones longer rows would be too few.
constexpr u32 LONG_THIRDS = 18;

// A transform from this size on is written around the caches and fetched ahead: it does not stay in the
// second-level cache beside another.
constexpr u64 STREAM_BYTES = u64{1} << 20;
// And from this size on it is packed: what stays in the third-level cache is up to 6 % slower so, what does
// not costs the same on one thread and less on several, which share the memory.
constexpr u64 PACKED_BYTES = u64{16} << 20;

Shape make_shape(Backend backend, u32 w, u32 r, u32 log_n) {
  Shape s;
  s.backend = backend;
  s.w = w;
  s.r = r;
  s.log_columns = columns_log(r == 3 && log_n >= LONG_THIRDS ? log_n + 1 : log_n);
  s.log_rows = log_n - s.log_columns;
  s.direct = log_n <= DIRECT_LOG;
  s.stream = s.prime_stride() * w * 8 > STREAM_BYTES;
  s.packed = s.prime_stride() * w * 8 > PACKED_BYTES && primes_of(backend).bits == 48;
  s.log_tile = s.rows() <= (s.packed ? 1024 : 128) ? 6
               : s.packed || s.rows() <= 2048      ? 5
               : s.rows() <= 8192                  ? 4
                                                   : 3;
  // (1): 2 b <= log2 P - 1 - log2 N2.
  const double room = log2_modulus(backend, w) - 1 - ceil_log2(s.N());
  const u32 step = 64u >> s.log_tile;
  s.b = static_cast<u32>(room / 2) / step * step;
  const BackendShape kernel = shape_of(backend);
  s.b = std::min(s.b, kernel.limb_bits * MAX_LIMBS);
  return s;
}

std::vector<Shape> make_shapes(Backend backend) {
  std::vector<Shape> all;
  const u32 most = std::min(primes_of(backend).count, MAX_PRIMES);
  for (u32 w = MIN_PRIMES; w <= most; w++) {
    for (u32 r = 1; r <= 3; r += 2) {
      for (u32 log_n = 11; (u64{r} << log_n) <= max_points(backend) && log_n <= 30; log_n++) {
        all.push_back(make_shape(backend, w, r, log_n));
      }
    }
  }
  std::sort(all.begin(), all.end(), [](const Shape& a, const Shape& b) {
    if (a.capacity_bits() != b.capacity_bits()) return a.capacity_bits() < b.capacity_bits();
    return product_nanoseconds(a) < product_nanoseconds(b);
  });
  return all;
}

// A shape is worth keeping when no larger one is cheaper.
std::vector<Shape> worth_keeping(const std::vector<Shape>& all) {
  std::vector<Shape> kept;
  for (const Shape& s : all) {
    while (!kept.empty() && product_nanoseconds(kept.back()) >= product_nanoseconds(s)) kept.pop_back();
    if (kept.empty() || kept.back().capacity_bits() < s.capacity_bits()) kept.push_back(s);
  }
  return kept;
}

struct Lists {
  std::vector<Shape> all, kept;
  explicit Lists(Backend backend) : all(make_shapes(backend)), kept(worth_keeping(all)) {}
};

template <Backend B> const Lists& lists_in() {
  static const Lists lists(B);
  return lists;
}

const Lists& lists_of(Backend backend) {
  switch (backend) {
  case Backend::ifma:
    return lists_in<Backend::ifma>();
  case Backend::double8:
    return lists_in<Backend::double8>();
  case Backend::double4:
    return lists_in<Backend::double4>();
  case Backend::integer1:
    break;
  }
  return lists_in<Backend::integer1>();
}

} // namespace

u32 Shape::bias_log() const {
  return b + ceil_log2(N());
}

u64 Shape::row_list_words() const {
  const BackendShape kernel = shape_of(backend);
  // Levels above and inside the blocks; a level's list takes whole vectors.
  const u64 s_entries = (u64{1} << (log_columns - kernel.base_log + kernel.node_levels)) + kernel.lanes * 4;
  const u64 u_entries = kernel.u_log == 0 ? 0 : (columns() >> kernel.base_log) * kernel.lanes;
  return (s_entries + u_entries) * (kernel.quotients ? 2 : 1);
}

u64 Shape::area_words() const {
  const u64 tile_words = rows() * tile() * w;
  const u64 row_words = 2 * columns() + (direct ? 0 : 2 * row_list_words());
  return std::max(tile_words, row_words);
}

bool operator==(const Shape& a, const Shape& b) {
  return a.backend == b.backend && a.w == b.w && a.b == b.b && a.r == b.r && a.log_rows == b.log_rows &&
         a.log_columns == b.log_columns;
}

double product_nanoseconds(const Shape& s) {
  const CostModel& cost = COSTS[static_cast<u32>(s.backend)];
  const double levels = s.log_rows + s.log_columns + (s.r == 3 ? cost.three : 0);
  return static_cast<double>(s.N()) *
         (s.w * (cost.point + cost.level * levels) + cost.ends[s.w - MIN_PRIMES]);
}

ShapeList shapes(Backend backend) {
  const std::vector<Shape>& list = lists_of(backend).kept;
  return {list.data(), list.size()};
}

ShapeList every_shape(Backend backend) {
  const std::vector<Shape>& list = lists_of(backend).all;
  return {list.data(), list.size()};
}

const Shape* choose_shape(Backend backend, u64 bits) {
  const std::vector<Shape>& list = lists_of(backend).kept;
  const auto found = std::lower_bound(list.begin(), list.end(), bits,
                                      [](const Shape& s, u64 x) { return s.capacity_bits() < x; });
  return found == list.end() ? nullptr : &*found;
}

} // namespace kelvane::ntt

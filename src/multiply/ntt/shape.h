// The figures of one transform, and the choice among them.
//
// An operand of L words is cut into digits of b bits; the digits are the coefficients of a polynomial, and
// the product's coefficients are found modulo x^N - 1 and modulo w primes. With P the product of the primes
// and N2 = N rounded up to a power of two, every plan keeps
//
//     2 N2 2^(2b) <= P.                                                                              (1)
//
// Headroom. A coefficient of one product is a sum of terms below 2^(2b): at most N/2 of them when the
// operands together have at most N + 1 digits (the shorter one has at most N/2), at most N in a product taken
// modulo x^N - 1 ("wrapped"). So by (1) a sum of up to MAX_SUM = 4 products, or 2 wrapped ones, is below P.
// With subtraction, up to 2 products (1 wrapped) of each sign lie in (-N 2^(2b), N 2^(2b)); adding the bias
// D = N2 2^b (2^b - 1) >= N (2^b - 1)^2 makes every coefficient non-negative and below 2 N2 2^(2b) <= P.
//
// Layout. The transform of one prime is a matrix of R rows and C columns, point r C + c in row r; C = 2^k,
// R = 2^k or 3 2^k. Columns are transformed in tiles of T columns, rows on their own. Rows are padded so that
// a column's points do not fall into one set of a cache.
//
// A long transform modulo 48-bit primes is packed: a point takes six bytes of the matrix, 32 points 24 words,
// and is unpacked on its way into the caches. That is a quarter less memory, and to be moved.
#pragma once

#include "multiply/ntt/twiddles.h"
#include "shell/types.h"

namespace kelvane::ntt {

inline constexpr u32 MAX_SUM = 4;

struct Shape {
  Backend backend = Backend::integer1;
  u32 w = 0;           // primes
  u32 b = 0;           // bits of a digit; T b is a multiple of 64
  u32 r = 1;           // N = r 2^(log_rows + log_columns), r = 1 or 3
  u32 log_rows = 0;    // of one third when r = 3
  u32 log_columns = 0; // C
  u32 log_tile = 0;    // T
  bool direct = false; // every factor lies in the stored lists
  bool stream = false; // the data exceed the caches: write around them
  bool packed = false; // a point takes six bytes, not eight

  u64 N() const { return u64{r} << (log_rows + log_columns); }
  u64 rows() const { return u64{r} << log_rows; }
  u64 columns() const { return u64{1} << log_columns; }
  u64 tile() const { return u64{1} << log_tile; }
  u64 tiles() const { return u64{1} << (log_columns - log_tile); }
  // Words that `points` neighbouring points of the matrix take, a multiple of 32 if packed.
  u64 words_of(u64 points) const { return packed ? points / 4 * 3 : points; }
  u64 row_stride() const { return words_of(columns()) + (log_rows + log_columns > 14 ? 40 : 8); } // words
  u64 prime_stride() const { return rows() * row_stride(); }

  u64 capacity_bits() const { return N() * b; }
  u64 capacity_words() const { return N() / 64 * b; } // exact: 64 divides N
  // A run is the T coefficients of one row of a tile: run_words words of the product, and what hangs over.
  // Their sum is below 2 P 2^((T - 1) b).
  u64 runs() const { return N() >> log_tile; }
  u64 run_words() const { return (u64{b} << log_tile) / 64; }
  u64 overhang_words() const { return (u64{w} * primes_of(backend).bits + 1 - b + 63) / 64; }
  // log2 of N2 2^b: the bias is D = 2^bias_log (2^b - 1).
  u32 bias_log() const;

  // Words that one thread works in: the tile of all primes, or a row's lists and two rows.
  u64 area_words() const;
  // Words of the lists of one row in one direction.
  u64 row_list_words() const;
};

bool operator==(const Shape& a, const Shape& b);

// The cheapest shape that carries `bits` bits; null when there is none. Deterministic.
const Shape* choose_shape(Backend backend, u64 bits);
// All shapes that are ever chosen, in ascending order of capacity and of cost.
struct ShapeList {
  const Shape* first;
  u64 count;
};
ShapeList shapes(Backend backend);
// All shapes there are, whatever they cost.
ShapeList every_shape(Backend backend);
// The cost model: nanoseconds of one product on one thread.
double product_nanoseconds(const Shape& shape);

} // namespace kelvane::ntt

#include "multiply/table/km_MULv3.h"

#include <array>
#include <cstring>

#include "arithmetic/words/add.h"
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/km_MULB.h"
#include "multiply/fft/km_FFTv2.h"
#include "multiply/hnt/km_HNT.h"
#include "multiply/ntt/kernels.h"
#include "multiply/table/tables.h"
#include "multiply/vst/km_VSTv2.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane::km_MULv3 {

namespace {

// The objects have no state: both they and the tables are constants, there before main runs.
const km_MULB::algorithm_c32_p BKT32;
const km_MULB::algorithm_c64_p BKT64;
const km_FFTv2::algorithm<u32> FFT32;
const km_FFTv2::algorithm<u64> FFT64;
const km_HNT::algorithm<u32> HNT32;
const km_HNT::algorithm<u64> HNT64;
const km_VSTv2::algorithm<u32> VST32;
const km_VSTv2::algorithm<u64> VST64;

constexpr u64 BKT_MAX = LONGEST_BASECASE, FFT_MAX = LONGEST_FFT, VST_MAX = 9895604649984;

struct Rows {
  std::array<Row64, 4> words64;
  std::array<Row32, 4> words32;

  constexpr explicit Rows(u64 hnt_limit_bits)
      : words64{{{BKT_MAX, &BKT64}, {FFT_MAX, &FFT64}, {hnt_limit_bits / 64, &HNT64}, {VST_MAX, &VST64}}},
        words32{{{2 * BKT_MAX, &BKT32},
                 {2 * FFT_MAX, &FFT32},
                 {hnt_limit_bits / 32, &HNT32},
                 {2 * VST_MAX, &VST32}}} {}
  u64 hnt_max() const { return words64[2].max_length; }
};
constinit Rows rows_in_force(HNT_LIMIT_BITS); // written by rebuild_tables only

// Work memory of one product: its two transforms and the scratch.
struct Placement {
  void* TA;
  void* TB;
  void* scratch;
  Placement(Layout& layout, const abstract_btp& record)
      : TA(layout.take_bytes(record.transform_bytes())), TB(layout.take_bytes(record.second_bytes())),
        scratch(layout.take_bytes(record.scratch_bytes())) {}
};

// An operand many times longer than the other is cut into pieces of PIECE times the shorter one's length. The
// shorter one's transform is made once: 2 transforms of (PIECE + 1) B words per PIECE B words of A, against 3
// of the whole.
constexpr u64 PIECE = 3, CUT_RATIO = 6, CUT_MIN = 8192;

struct PieceWork {
  void *TA, *TB, *scratch;
  u64* product;
  PieceWork(Layout& layout, const abstract_btp& record, u64 words)
      : TA(layout.take_bytes(record.transform_bytes())), TB(layout.take_bytes(record.transform_bytes())),
        scratch(layout.take_bytes(record.scratch_bytes())), product(layout.take<u64>(words)) {}
};

// out = A B for nA >= CUT_RATIO nB. False, with nothing done, when `bytes` of work do not suffice.
bool multiply_in_pieces(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB,
                        void* work, u64 bytes) {
  const u64 piece = PIECE * nB, words = piece + nB;
  btp_storage storage;
  const abstract_btp* const record = select(words, context, &storage);
  Layout measure;
  PieceWork(measure, *record, words);
  if (measure.used() > bytes) return false;
  Layout layout(work, bytes);
  const PieceWork p(layout, *record, words);
  record->forward(p.TB, B, nB, p.scratch);
  std::memset(out, 0, 8 * nB);
  for (u64 at = 0; at < nA; at += piece) {
    const u64 length = nA - at < piece ? nA - at : piece;
    record->forward_once(p.TA, A + at, length, p.scratch);
    record->inverse_fmul(p.product, length + nB, p.TA, p.TB, p.scratch);
    // The first nB words overlap what is there; the rest is new.
    std::memcpy(out + at + nB, p.product + nB, 8 * length);
    words::add_word(out + at + nB, length, words::add_in_place(out + at, p.product, nB));
  }
  return true;
}

// out = A B through transforms of both operands; out is written when nobody needs them any more.
void multiply_whole(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB,
                    void* work) {
  const u64 n = nA + nB;
  btp_storage storage;
  const abstract_btp* const record = select(n, context, &storage);
  Layout layout(work, product_cost(n, context.threads, context.reduced_memory));
  const Placement p(layout, *record);
  record->product(out, A, nA, B, nB, p.TA, p.TB, p.scratch);
}

// Not inlined: short squares would pay for its frame.
[[gnu::noinline]] void square_whole(const Context& context, u64* out, const u64* A, u64 nA, void* work) {
  const u64 n = 2 * nA;
  btp_storage storage;
  const abstract_btp* const record = select(n, context, &storage);
  Layout layout(work, product_cost(n, context.threads, context.reduced_memory));
  const Placement p(layout, *record);
  record->product(out, A, nA, nullptr, 0, p.TA, nullptr, p.scratch);
}

// Operands of this many words or fewer are multiplied by the schoolbook whatever the other one's length: 0.4
// ns per word product against at least 6 ns per word through a transform.
constexpr u64 MAX_SHORT = 14;

// out = A B for nA >= nB, beyond the basecase's row.
void multiply_long(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB, void* work) {
  if (nB <= MAX_SHORT) return km_MULB::multiply_basecase(out, A, nA, B, nB);
  if (nA + nB >= CUT_MIN && nA >= CUT_RATIO * nB) {
    const u64 bytes = product_cost(nA + nB, context.threads, context.reduced_memory);
    if (multiply_in_pieces(context, out, A, nA, B, nB, work, bytes)) return;
  }
  multiply_whole(context, out, A, nA, B, nB, work);
}

u64 max_of(u64 a, u64 b) {
  return a > b ? a : b;
}

} // namespace

const Row64* table64(u64* rows) {
  *rows = rows_in_force.words64.size();
  return rows_in_force.words64.data();
}
const Row32* table32(u64* rows) {
  *rows = rows_in_force.words32.size();
  return rows_in_force.words32.data();
}
void rebuild_tables(u64 hnt_limit_bits) {
  rows_in_force = Rows(hnt_limit_bits);
}

const algorithm_p<u64>& select(u64 n) {
  for (const Row64& row : rows_in_force.words64) {
    if (n <= row.max_length) return *row.algorithm;
  }
  throw km_exception(ERROR_BEYOND_TABLE, "");
}

abstract_btp* select(u64 n, const Context& context, btp_storage* storage) {
  return select(n).make_parameters(n, context, storage);
}

const abstract_ntp* select_wrapped(u64 n, const Context& context, btp_storage* storage) {
  if (n <= FFT_MAX) return nullptr;
  if (n > rows_in_force.hnt_max())
    return km_VSTv2::make_parameters(km_VSTv2::wrap_words(n), context, storage);
  return km_HNT::make_parameters(n, context, storage);
}

u64 memory_cost(u64 n, u64 threads) {
  u64 cost = 0;
  for (const Row64& row : rows_in_force.words64) {
    if (n <= row.max_length) return max_of(cost, row.algorithm->memory_cost(n, threads));
    cost = max_of(cost, row.algorithm->memory_cost(row.max_length, threads));
  }
  throw km_exception(ERROR_BEYOND_TABLE, "");
}

u64 memory_cost(u64 n, u64 threads, bool reduced_memory) {
  if (!reduced_memory || n <= FFT_MAX) return memory_cost(n, threads);
  const u64 hnt_max = rows_in_force.hnt_max(), hnt_words = n < hnt_max ? n : hnt_max;
  const u64 cost = max_of(memory_cost(FFT_MAX, threads), km_HNT::memory_cost(hnt_words, threads, true));
  return n <= hnt_max ? cost : max_of(cost, km_VSTv2::memory_cost(n, threads, true));
}

u64 product_cost(u64 n, u64 threads) {
  return product_cost(n, threads, false);
}

u64 product_cost(u64 n, u64 threads, bool reduced_memory) {
  if (n <= FFT_MAX) return select(n).memory_cost(n, threads);
  if (n > rows_in_force.hnt_max()) return km_VSTv2::product_cost(n, threads, reduced_memory);
  return km_HNT::product_cost(n, threads, reduced_memory);
}

void multiply(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB, void* work) {
  if (A == B && nA == nB) return square(context, out, A, nA, work);
  // Short products need no record: the operands themselves are the transforms.
  if (nA + nB <= BKT_MAX) {
    if (nA < km_MULB::Thresholds<u64>::multiply) return km_MULB::multiply_basecase(out, B, nB, A, nA);
    return km_MULB::multiply_unbalanced(out, A, nA, B, nB, static_cast<u64*>(work));
  }
  if (nA < nB) return multiply_long(context, out, B, nB, A, nA, work);
  multiply_long(context, out, A, nA, B, nB, work);
}

void multiply_over(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB, void* work) {
  multiply_whole(context, out, A, nA, B, nB, work);
}

void square(const Context& context, u64* out, const u64* A, u64 nA, void* work) {
  if (nA < km_MULB::Thresholds<u64>::square) return km_MULB::square_basecase(out, A, nA);
  if (2 * nA <= BKT_MAX) return km_MULB::square(out, A, nA, static_cast<u64*>(work));
  square_whole(context, out, A, nA, work);
}

u64 Tables::bytes(u64 n) {
  return km_FFTv2::table_d::bytes(n < FFT_MAX ? n : FFT_MAX);
}
void Tables::build(void* memory, u64 n, u64 threads) {
  fft_.build(memory, n < FFT_MAX ? n : FFT_MAX, threads);
  if (n > FFT_MAX) ntt::build_tables(ntt::backend_of(simd::active_isa()), threads);
  set_.fft = &fft_;
}

u64 table_bytes(u64 n) {
  return Tables::bytes(n) + (n > FFT_MAX ? ntt::table_bytes(ntt::backend_of(simd::active_isa())) : 0);
}

} // namespace kelvane::km_MULv3

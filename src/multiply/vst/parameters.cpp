#include <algorithm>
#include <bit>
#include <cmath>
#include <new>

#include "multiply/simd/isa.h"
#include "multiply/vst/km_VSTv2.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane::km_VSTv2 {

using km_MULv3::Term;

namespace {

const ntt::Shape& largest_shape() {
  const ntt::ShapeList list = ntt::shapes(ntt::backend_of(simd::active_isa()));
  return list.first[list.count - 1];
}

const Plan& plan_for_words(u64 n) {
  if (n > MAX_BITS / 64) throw km_exception(ERROR_BEYOND_TABLE, "");
  return make_plan(64 * n);
}

u64 cost_of(const Division& division, u64 threads, bool reduced_memory) {
  km_MULv3::Context context;
  context.threads = threads;
  context.reduced_memory = reduced_memory;
  const mtp_t record(Plan{}, division, context);
  Layout layout;
  layout.take_bytes(record.transform_bytes());
  layout.take_bytes(record.second_bytes());
  layout.take_bytes(record.scratch_bytes());
  return layout.used();
}

} // namespace

mtp_t::mtp_t(const Plan& plan, const Division& division, const km_MULv3::Context& context)
    : Record(division.shape, context), plan_(plan), division_(division) {
  capacity_bits_ = 64 * division.words();
}

u64 mtp_t::transform_bytes() const {
  return blocks() == 1 ? engine_.transform_bytes() : BlockTransform::bytes(engine_, blocks());
}
u64 mtp_t::second_bytes() const {
  return reduced_ && blocks() == 1 ? engine_.prime_bytes() : transform_bytes();
}
u64 mtp_t::scratch_bytes() const {
  if (blocks() == 1) return engine_.scratch_bytes();
  Layout layout;
  BlockScratch(layout, engine_, division_);
  return layout.used();
}

bool mtp_t::accepts(const km_MULv3::abstract_btp& other) const {
  const auto* const same = dynamic_cast<const mtp_t*>(&other);
  return same != nullptr && same->shape() == shape() && same->blocks() == blocks();
}

// An operand may be as long as the whole product, but not longer than the plan.
void mtp_t::check_range(u64 words) const {
  const u64 limit = std::min(plan_.capacity_bits(), capacity_bits_);
  if (words > limit / 64) throw km_exception(ERROR_OUT_OF_RANGE, "VST: Out of Range");
}

// The largest coefficient is known by its top digit in the mixed radix of the primes: c / (p_0 .. p_(w-2)).
// Right ones are below 2^bits; the exponent's rounding errs to the side of a larger bound.
void mtp_t::check(u64 top, u64 bits) const {
  const double lower = ntt::log2_modulus(shape().backend, shape().w - 1);
  const double limit = std::exp2(static_cast<double>(bits) - lower);
  if (static_cast<double>(top) < std::floor(limit) + 1) return;
  Console::print("VST Redundancy Check Failed:  ");
  Console::print_general(static_cast<double>(top) * std::exp2(lower));
  Console::print(" / ");
  Console::print_general(std::exp2(static_cast<double>(bits)));
  Console::print("\n\n");
  throw km_exception(ERROR_TRANSFORM, "VST Redundancy Check Failed");
}

void mtp_t::transform(void* T, const u64* A, u64 L, bool raw, void* scratch) const {
  check_range(L);
  if (blocks() == 1) return engine_.forward(T, A, L, raw, scratch);
  Layout layout(scratch, scratch_bytes());
  const BlockScratch s(layout, engine_, division_);
  const u64 B = division_.block_words, count = (L + B - 1) / B;
  BlockTransform::count(T) = count;
  // A block serves several products, so none is left raw.
  for (u64 i = 0; i < count; i++) {
    engine_.forward(BlockTransform::block(engine_, T, i), A + i * B, std::min(B, L - i * B), false, s.engine);
  }
}
// Bounds of a coefficient (see shape.h): N2/2 2^(2b) for one product, N2 2^(2b) for a wrapped one, times
// their number; with a bias 2 N2 2^(2b) in all.
void mtp_t::inverse_transform(u64* out, u64 n, const Term* terms, u64 count, bool wrapped,
                              void* scratch) const {
  bool biased = false;
  for (u64 i = 0; i < count; i++) biased = biased || terms[i].subtract;
  u64 top = 0;
  engine_.inverse(out, n, terms, count, wrapped, scratch, &top);
  const u64 product = 2 * shape().b + static_cast<u64>(std::bit_width(shape().N() - 1));
  const u64 sum = static_cast<u64>(std::bit_width(count - 1)) + (wrapped ? 1 : 0);
  check(top, biased ? product + 1 : product - 1 + sum);
}

void mtp_t::inverse(u64* out, u64 n, const Term* terms, u64 count, bool wrapped, void* scratch) const {
  if (blocks() == 1)
    inverse_transform(out, n, terms, count, wrapped, scratch);
  else
    inverse_blocks(out, n, terms, count, wrapped, scratch);
}
void mtp_t::product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                    void* scratch) const {
  if (blocks() != 1) {
    const u64 n = B == nullptr ? 2 * LA : LA + LB;
    forward(TA, A, LA, scratch);
    if (B == nullptr) return inverse_fsqr(out, n, TA, scratch);
    forward(TB, B, LB, scratch);
    return inverse_fmul(out, n, TA, TB, scratch);
  }
  check_range(LA);
  check_range(LB);
  u64 top = 0;
  product_at_once(out, A, LA, B, LB, TA, TB, scratch, &top);
  check(top, 2 * shape().b + static_cast<u64>(std::bit_width(shape().N() - 1)) - 1);
}

mtp_t* make_parameters(u64 n, const km_MULv3::Context& context, km_MULv3::btp_storage* storage,
                       const ntt::Shape& largest) {
  if (storage == nullptr) return nullptr;
  static_assert(sizeof(mtp_t) <= sizeof storage->bytes);
  const Plan& plan = plan_for_words(n);
  return new (storage->bytes) mtp_t(plan, divide(n, largest), context);
}
mtp_t* make_parameters(u64 n, const km_MULv3::Context& context, km_MULv3::btp_storage* storage) {
  return make_parameters(n, context, storage, largest_shape());
}

u64 wrap_words(u64 n) {
  plan_for_words(n);
  return divide(n, largest_shape()).words();
}

u64 product_cost(u64 n, u64 threads, bool reduced_memory) {
  plan_for_words(n);
  return cost_of(divide(n, largest_shape()), threads, reduced_memory);
}

// Both tables of plans are served by the same transforms, so their costs are the same: the largest of all
// shapes that a product of up to n words may choose, or of the blocks, whose cost grows with their number.
u64 memory_cost(u64 n, u64 threads, bool reduced_memory) {
  plan_for_words(n);
  const ntt::ShapeList list = ntt::shapes(ntt::backend_of(simd::active_isa()));
  u64 cost = product_cost(n, threads, reduced_memory);
  for (u64 i = 0; i < list.count && (i == 0 || list.first[i - 1].capacity_words() < n); i++) {
    const ntt::Shape& shape = list.first[i];
    cost = std::max(cost, cost_of({shape, shape.capacity_words(), 1}, threads, reduced_memory));
  }
  return cost;
}

template <class W> u64 algorithm<W>::memory_cost(u64 n, u64 threads) const {
  return km_VSTv2::memory_cost(n / (8 / sizeof(W)) + n % (8 / sizeof(W)), threads, false);
}
template <class W>
km_MULv3::abstract_btp* algorithm<W>::make_parameters(u64 n, const km_MULv3::Context& context,
                                                      km_MULv3::btp_storage* storage) const {
  return km_VSTv2::make_parameters(n / (8 / sizeof(W)) + n % (8 / sizeof(W)), context, storage);
}

template class algorithm<u32>;
template class algorithm<u64>;

} // namespace kelvane::km_VSTv2

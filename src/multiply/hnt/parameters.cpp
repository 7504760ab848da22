#include "multiply/hnt/km_HNT.h"

#include <algorithm>
#include <new>

#include "multiply/simd/isa.h"
#include "shell/exception.h"
#include "shell/heap.h"

namespace kelvane::km_HNT {

namespace {

const ntt::Shape& shape_for(u64 bits) {
  const ntt::Shape* const shape = ntt::choose_shape(ntt::backend_of(simd::active_isa()), bits);
  if (shape == nullptr) throw km_exception(ERROR_BEYOND_TABLE, "");
  return *shape;
}

u64 cost_of(const ntt::Shape& shape, u64 threads, bool reduced_memory) {
  const ntt::Engine engine(shape, threads, nullptr);
  Layout layout;
  layout.take_bytes(engine.transform_bytes());
  layout.take_bytes(reduced_memory ? engine.prime_bytes() : engine.transform_bytes());
  layout.take_bytes(engine.scratch_bytes());
  return layout.used();
}

} // namespace

kmb_HNT_tp::kmb_HNT_tp(u64 bits, const Plan& plan, const ntt::Shape& shape, const km_MULv3::Context& context)
    : Record(shape, context), plan_(plan), requested_bits_(bits) {
  capacity_bits_ = shape.capacity_bits();
}

bool kmb_HNT_tp::accepts(const km_MULv3::abstract_btp& other) const {
  const auto* const same = dynamic_cast<const kmb_HNT_tp*>(&other);
  return same != nullptr && same->shape() == shape();
}

void kmb_HNT_tp::transform(void* T, const u64* A, u64 L, bool raw, void* scratch) const {
  engine_.forward(T, A, L, raw, scratch);
}
void kmb_HNT_tp::inverse(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped,
                         void* scratch) const {
  engine_.inverse(out, n, terms, count, wrapped, scratch);
}
void kmb_HNT_tp::product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                         void* scratch) const {
  product_at_once(out, A, LA, B, LB, TA, TB, scratch, nullptr);
}

kmb_HNT_tp* make_parameters(u64 n, const km_MULv3::Context& context, km_MULv3::btp_storage* storage) {
  if (storage == nullptr) return nullptr;
  static_assert(sizeof(kmb_HNT_tp) <= sizeof storage->bytes);
  return new (storage->bytes) kmb_HNT_tp(64 * n, make_plan(64 * n), shape_for(64 * n), context);
}

u64 product_cost(u64 n, u64 threads, bool reduced_memory) {
  make_plan(64 * n);
  return cost_of(shape_for(64 * n), threads, reduced_memory);
}

// Both tables of plans are served by the same transforms, so their costs are the same: the largest of all
// shapes that a product of up to n words may choose.
u64 memory_cost(u64 n, u64 threads, bool reduced_memory) {
  make_plan(64 * n);
  const ntt::Shape* const last = &shape_for(64 * n);
  u64 cost = 0;
  for (const ntt::Shape* s = ntt::shapes(last->backend).first; s <= last; s++) {
    cost = std::max(cost, cost_of(*s, threads, reduced_memory));
  }
  return cost;
}

template <class W> u64 algorithm<W>::memory_cost(u64 n, u64 threads) const {
  return km_HNT::memory_cost((n * sizeof(W) + 7) / 8, threads, false);
}
template <class W>
km_MULv3::abstract_btp* algorithm<W>::make_parameters(u64 n, const km_MULv3::Context& context,
                                                      km_MULv3::btp_storage* storage) const {
  return km_HNT::make_parameters((n * sizeof(W) + 7) / 8, context, storage);
}

template class algorithm<u32>;
template class algorithm<u64>;

} // namespace kelvane::km_HNT

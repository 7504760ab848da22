#include "multiply/ntt/engine.h"

#include <algorithm>

#include "shell/heap.h"
#include "shell/status_line.h"

namespace kelvane::ntt {

using km_MULv3::Phase;
using km_MULv3::run_phases;
using km_MULv3::Term;
using km_MULv3::Worker;

namespace {

// Points, of all primes, that are worth a thread.
constexpr u64 POINTS_PER_THREAD = u64{1} << 15;
// Points of one task over rows: short rows are drawn in groups.
constexpr u64 POINTS_PER_TASK = u64{1} << 12;

// words[0, n) += 1 at position `at` and on; whether a carry left the top.
bool carry_into(u64* words, u64 n, u64 at) {
  for (; at < n; at++) {
    if (++words[at] != 0) return false;
  }
  return true;
}

// words[at, end) += x[0, count); whether a carry left the end. What does not fit is dropped.
bool add_at(u64* words, u64 at, u64 end, const u64* x, u64 count) {
  u64 carry = 0;
  for (u64 i = 0; i < count && at < end; i++, at++) {
    const u128 sum = static_cast<u128>(words[at]) + x[i] + carry;
    words[at] = static_cast<u64>(sum);
    carry = static_cast<u64>(sum >> 64);
  }
  return carry != 0 && carry_into(words, end, at);
}

} // namespace

// Placement of the scratch.
struct Engine::Scratch {
  u64* areas;
  u64 area_words;
  u64* overhang;
  u8* carries;

  Scratch(Layout& layout, const Shape& shape, u64 workers)
      : areas(layout.take<u64>(workers * ((shape.area_words() + 7) & ~u64{7}))),
        area_words((shape.area_words() + 7) & ~u64{7}),
        overhang(layout.take<u64>(shape.runs() * shape.overhang_words())),
        carries(layout.take<u8>(MAX_CHUNKS)) {}
  static Scratch in(void* memory, const Engine& engine) {
    Layout layout(memory, engine.scratch_bytes());
    return Scratch(layout, engine.shape_, engine.workers_);
  }
  u64* area(Worker worker) const { return areas + worker.index * area_words; }
};

Engine::Engine(const Shape& shape, u64 threads, Console::Progress* progress)
    : shape_(shape), kernels_(&kernels_of(shape.backend)), progress_(progress) {
  workers_ = std::max<u64>(1, std::min({threads, shape.N() * shape.w / POINTS_PER_THREAD, shape.tiles()}));
}

u64 Engine::scratch_bytes() const {
  Layout layout;
  Scratch(layout, shape_, workers_);
  return layout.used();
}

void Engine::tick(Worker worker) const {
  if (worker.driver && progress_ != nullptr) progress_->tick();
}

u64 Engine::row_group() const {
  return std::clamp<u64>(POINTS_PER_TASK >> shape_.log_columns, 1, shape_.rows());
}
u64 Engine::row_tasks(u64 primes) const {
  return primes * ((shape_.rows() + row_group() - 1) / row_group());
}
template <class F> void Engine::for_rows(u64 task, const F& f) const {
  const u64 group = row_group(), groups = (shape_.rows() + group - 1) / group;
  const u64 first = task % groups * group, last = std::min(shape_.rows(), first + group);
  for (u64 row = first; row < last; row++) f(static_cast<u32>(task / groups), row);
}

auto Engine::columns_phase(const Scratch& s, u32 first, u32 last, Operand A, Operand B) const {
  const u64 tiles = shape_.tiles();
  return Phase{B.to == nullptr ? tiles : 2 * tiles, [=, this, &s](u64 task, Worker worker) {
                 const Operand& operand = task < tiles ? A : B;
                 kernels_->forward_tile(shape_, first, last, operand.words, operand.count, task % tiles,
                                        operand.to, s.area(worker));
                 tick(worker);
               }};
}

template <class F> auto Engine::rows_phase(const Scratch& s, u32 first, u32 last, const F& f) const {
  return Phase{row_tasks(last - first), [=, this, &s](u64 task, Worker worker) {
                 for_rows(task, [&](u32 prime, u64 row) {
                   const u64 at = prime * shape_.prime_stride() + row * shape_.row_stride();
                   f(first + prime, row, at, s.area(worker));
                 });
                 tick(worker);
               }};
}

auto Engine::product_rows_phase(const Scratch& s, u32 first, u32 last, u64* x, u64* y) const {
  return rows_phase(s, first, last, [=, this](u32 prime, u64 row, u64 at, u64* area) {
    const RowPair pair{x + at, y + at, true, true, true, false};
    kernels_->product_row(shape_, prime, row, &pair, 1, area);
  });
}

void Engine::forward(void* T, const u64* A, u64 L, bool raw, void* scratch) const {
  const Scratch s = Scratch::in(scratch, *this);
  header(T).raw = raw;
  u64* const x = data(T);
  const auto columns = columns_phase(s, 0, shape_.w, {A, L, x}, {});
  if (raw) return run_phases(workers_, columns);
  run_phases(workers_, columns, rows_phase(s, 0, shape_.w, [=, this](u32 prime, u64 row, u64 at, u64* area) {
               kernels_->forward_row(shape_, prime, row, x + at, area);
             }));
}

// Runs of chunk `chunk`: run i's overhang belongs to the words of run i + 1. A carry that leaves the chunk's
// words is noted.
void Engine::add_overhangs(u64* out, u64 n, u64 chunk, u64 chunks, const Scratch& s) const {
  const u64 first = shape_.runs() * chunk / chunks, last = shape_.runs() * (chunk + 1) / chunks;
  const u64 words = shape_.run_words(), count = shape_.overhang_words();
  const u64 end = std::min(n, (last + 1) * words);
  const u32 tile_shift = shape_.log_columns - shape_.log_tile;
  bool carry = false;
  for (u64 run = first; run < last && (run + 1) * words < n; run++) {
    const u64 tile = run & (shape_.tiles() - 1), row = run >> tile_shift;
    const u64* const x = s.overhang + (tile * shape_.rows() + row) * count;
    carry = add_at(out, (run + 1) * words, end, x, count) || carry;
  }
  s.carries[chunk] = carry ? 1 : 0;
}

template <class... F>
void Engine::run_and_finish(u64* out, u64 n, const u64* T, bool biased, bool wrapped, const Scratch& s,
                            u64* top, const Phase<F>&... before) const {
  std::atomic<u64> largest{0};
  Output output{out, n, s.overhang, nullptr, top == nullptr ? nullptr : &largest};
  Factor bias[MAX_PRIMES];
  if (biased) {
    // Each coefficient gets D = 2^bias_log (2^b - 1); the products' sum gets 2^bias_log (2^(b N) - 1).
    for (u32 i = 0; i < shape_.w; i++) {
      const Field& field = field_of(shape_.backend, i);
      const u64 D = field.mul(field.power(2, shape_.bias_log()), field.sub(field.power(2, shape_.b), 1));
      bias[i] = encode(shape_.backend, field, D);
    }
    output.bias = bias;
  }
  const u64 chunks = std::max<u64>(1, std::min({MAX_CHUNKS, shape_.runs() / 256, 4 * workers_}));
  run_phases(workers_, before...,
             Phase{shape_.tiles(),
                   [&](u64 tile, Worker worker) {
                     kernels_->inverse_tile(shape_, T, tile, output, s.area(worker));
                     tick(worker);
                   }},
             Phase{chunks, [&](u64 chunk, Worker) { add_overhangs(out, n, chunk, chunks, s); }});
  if (top != nullptr) *top = largest.load(std::memory_order_relaxed);
  const u64 words = shape_.run_words();
  u64 over = 0; // carries out of the top
  for (u64 chunk = 0; chunk < chunks; chunk++) {
    const u64 at = (shape_.runs() * (chunk + 1) / chunks + 1) * words;
    if (s.carries[chunk] != 0 && carry_into(out, n, at)) over++;
  }
  if (wrapped) {
    // 2^(64 n) = 1: what hangs over the last run and the carries begin again at the bottom.
    const u64* const last = s.overhang + (shape_.tiles() * shape_.rows() - 1) * shape_.overhang_words();
    if (add_at(out, 0, n, last, shape_.overhang_words())) over++;
    for (; over > 0; over--) {
      if (carry_into(out, n, 0)) over++;
    }
  } else if (biased) {
    // Of the bias's value the upper term lies beyond the words, the lower one is taken back.
    const u64 bit = shape_.bias_log();
    const u64 one = u64{1} << (bit & 63);
    if (bit / 64 < n) add_at(out, bit / 64, n, &one, 1);
  }
}

void Engine::inverse(u64* out, u64 n, const Term* terms, u64 count, bool wrapped, void* scratch,
                     u64* top) const {
  const Scratch s = Scratch::in(scratch, *this);
  bool biased = false;
  for (u64 i = 0; i < count; i++) biased = biased || terms[i].subtract;
  const auto product_rows = [=, this](u32 prime, u64 row, u64 at, u64* area) {
    RowPair pairs[MAX_SUM];
    for (u64 i = 0; i < count; i++) {
      const Term& t = terms[i];
      pairs[i] = {data(t.TA) + at, data(t.TB) + at, header(t.TA).raw, header(t.TB).raw, false, t.subtract};
    }
    kernels_->product_row(shape_, prime, row, pairs, static_cast<u32>(count), area);
  };
  run_and_finish(out, n, data(terms[0].TA), biased, wrapped, s, top,
                 rows_phase(s, 0, shape_.w, product_rows));
}

void Engine::product(u64* out, u64 n, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                     void* scratch, u64* top) const {
  const Scratch s = Scratch::in(scratch, *this);
  u64* const x = data(TA);
  const Operand second = B == nullptr ? Operand{} : Operand{B, LB, data(TB)};
  run_and_finish(out, n, x, false, false, s, top, columns_phase(s, 0, shape_.w, {A, LA, x}, second),
                 product_rows_phase(s, 0, shape_.w, x, B == nullptr ? x : data(TB)));
}

void Engine::reduced_product(u64* out, u64 n, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                             void* scratch, u64* top) const {
  const Scratch s = Scratch::in(scratch, *this);
  const Operand second = B == nullptr ? Operand{} : Operand{B, LB, data(TB)};
  for (u32 prime = 0; prime < shape_.w; prime++) {
    u64* const x = data(TA) + prime * shape_.prime_stride();
    run_phases(workers_, columns_phase(s, prime, prime + 1, {A, LA, x}, second),
               product_rows_phase(s, prime, prime + 1, x, B == nullptr ? x : data(TB)));
  }
  run_and_finish(out, n, data(TA), false, false, s, top);
}

} // namespace kelvane::ntt

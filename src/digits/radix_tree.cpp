// The conversion: a tree of products from the most significant end down. See radix.h, radix_plan.h.
//
// A node has a fraction f of l words and makes floor(f R^n). It is cut at the split S < n:
//
//   upper half:  floor(f R^(S + 1)), from the top of f alone (S words and one of overlap);
//   lower half:  floor(g R^(n - S)), g = frac(f R^S), a slice of the product of f and R^S.
//
// Error bound. Let a node be exact up to e: it makes N with f R^n - 1 - e < N <= f R^n, for its f
// as given. A leaf has e < n 2^-64. Both halves get their fraction by dropping words, which lowers
// it by less than one unit of the last kept word, 2^-64 of their last radix word. The words taken from
// products are exact and frac only drops their top, so every error is downward and a fraction never leaves
// [0, 1). The node's words are those of its halves joined at the true boundary (below), so its e is
// the lower half's plus 2^-64: after 48 levels e < 200 * 2^-64. With e < 1 the integer N is floor(f R^n)
// or one less, the latter only when frac(f R^n) < e.
//
// Overlap. Let T be the true value of the overlap word, that is the first word of g R^(n - S). The
// upper half's number is the true one or one less, so its overlap word U is T or T - 1 (mod R). The
// lower half's first word V is T, or T - 1 when the words below it are all zero and it came out
// one less; then T > 0, since no number goes below zero. So
//   V = U          nothing to do: either both are T, or both T - 1 with T > 0;
//   V = U + 1      U is one less: add 1 to the upper number, which carries when U = R - 1;
//   V = U - 1      V is one less, with its own number: the upper words are right;
// and anything else is an error of the machine.

#include <algorithm>
#include <atomic>
#include <optional>

#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "digits/radix.h"
#include "digits/radix_leaf.h"
#include "digits/radix_plan.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/status_line.h"
#include "shell/thread_inl.h"

namespace kelvane::CBRv2 {

namespace {

// The first failed check of a thread; the driving thread prints it after the threads have ended.
struct Failure {
  const char* text = nullptr; // null: none
  bool with_level = false;
  u64 level_words = 0, expected = 0, actual = 0;

  bool set(const char* text_, u64 expected_, u64 actual_) {
    text = text_, expected = expected_, actual = actual_;
    return false;
  }
  bool set(const char* text_, u64 level_words_, u64 expected_, u64 actual_) {
    with_level = true, level_words = level_words_;
    return set(text_, expected_, actual_);
  }
  void print() const {
    Console::set_color('R');
    Console::print(text);
    Console::print("\n");
    if (with_level) {
      Console::print("RL       = ");
      Console::print_u64(level_words);
      Console::print("\n");
    }
    Console::print("Expected = ");
    Console::print_u64(expected);
    Console::print("\nActual   = ");
    Console::print_u64(actual);
    Console::print("\n");
    Console::set_color_white();
  }
};

class Conversion {
public:
  Conversion(const Plan& plan, const Workspace& space, u64* out, Faults* hook)
      : plan_(plan), space_(space), out_(out), hook_(hook) {}

  bool run(const u64* fraction, u64 n);

private:
  // A power R^S = words * 2^(64 zeros), and what its products need of it.
  struct Power {
    u64 length = 0;
    u64 zeros = 0;
    u64 hash = 0; // of the words without the zeros
    u64 hash_wrapped = 0;
    std::optional<NodeProduct> product;
    void* transform = nullptr;
    u64 scratch = 0; // byte offset in the work area of its products
  };
  // One node: `main` words at out_ below `top`, and one more below them when `extra` is set.
  struct Node {
    u64 level;
    u64 slot;
    u64 main;
    bool extra;
    u64 count() const { return main + (extra ? OVERLAP : 0); }
  };

  Node node_at(u64 level, u64 index) const;
  u64 top(const Node& node) const { return plan_.W - node.slot * plan_.base; } // end of its words in out_
  u64* fraction_end(u64 slot) const { return space_.slots + (plan_.slots() - slot) * plan_.slot_words(); }
  bool is_cut(const Node& node) const { return node.main > plan_.span(node.level + 1); }
  bool visit(Faults::Stage stage, u64* words, u64 n) {
    return hook_ != nullptr && hook_->visit(stage, words, n);
  }
  void progress(double cost) {
    if (plan_.wide.progress != nullptr) plan_.wide.progress->add(cost);
  }
  void label(const char* text) {
    if (plan_.wide.progress != nullptr) plan_.wide.progress->set_label(text);
  }

  bool make_powers();
  void transform_power(u64 level, const ProductBuffers& buffers);
  void forward_power(u64 level, const ProductBuffers& buffers);
  bool multiply(const Node& node, const u64* fraction, u64 l, u64 first, const ProductBuffers& buffers,
                Failure& failure);
  bool cut(const Node& node, const ProductBuffers& buffers, Failure& failure);
  bool kmh_CBRv2_ci_btrf_L(Node node, u64* overlap, const ProductBuffers& buffers, Failure& failure);
  bool kmq_CBRv2_ci_btrf_T();
  bool run_subtrees();
  bool join(const Node& node, u64 overlap, const char* failure_text, Failure& failure);

  const Plan& plan_;
  const Workspace& space_;
  u64* out_;
  Faults* hook_;
  Power powers_[Plan::MOST_LEVELS];
  Failure failure_;
};

Conversion::Node Conversion::node_at(u64 level, u64 index) const {
  const u64 slot = index << (plan_.levels - level);
  const u64 above = slot * plan_.base;
  const u64 left = above < plan_.W ? plan_.W - above : 0;
  const u64 main = left < plan_.span(level) ? left : plan_.span(level);
  return {level, slot, main, left > main};
}

// The powers of all levels from the lowest, R^base, upward by squaring; each is compared with its
// residue known from the exponent alone.
bool Conversion::make_powers() {
  label(LABEL_SQUARING);
  for (u64 level = plan_.levels; level-- > 0;) {
    const u64 exponent = plan_.span(level + 1);
    u64* const words = space_.powers[level];
    Power& power = powers_[level];
    power.zeros = power_zero_words(exponent);
    if (level == plan_.levels - 1) {
      // 5^(19 base), by as many fives at a time as fit a word, then the bits of 2^(19 base mod 64).
      constexpr u64 FIVES = 27, FIVE_27 = 7450580596923828125u;
      u64 length = 1, fives = 19 * exponent;
      words[0] = 1;
      for (; fives > 0; fives -= fives < FIVES ? fives : FIVES) {
        u64 factor = FIVE_27;
        for (u64 k = fives; k < FIVES; ++k) factor /= 5;
        const u64 carry = words::mul_word_in_place(words, length, factor);
        if (carry != 0) words[length++] = carry;
      }
      if (const unsigned bits = 19 * exponent % 64; bits != 0) {
        const u64 carry = words::shift_left(words, words, length, bits);
        if (carry != 0) words[length++] = carry;
      }
      power.length = length;
    } else {
      // (R^S)^2: the zero bits of the half power double and may now fill one more word.
      const Power& half = powers_[level + 1];
      const ProductBuffers& b = space_.squaring;
      km_MULv3::square(plan_.wide, b.product, space_.powers[level + 1], half.length, b.work);
      const u64 skip = power.zeros - 2 * half.zeros;
      // A word beyond the bound could only be an error; it is left out and fails the residue.
      const u64 length = words::normalized_length(b.product + skip, 2 * half.length - skip);
      power.length = std::min(length, power_words(exponent));
      std::copy_n(b.product + skip, power.length, words);
      progress(2 * transform_cost(2 * half.length));
    }
    if (visit(Faults::POWER, words, power.length)) return false;
    power.hash = residue::hash_words(words, power.length);
    const u64 expected = residue::mul(residue::pow(residue::reduce(RADIX), exponent),
                                      residue::weight(-static_cast<s64>(power.zeros)));
    if (power.hash != expected)
      return failure_.set("Radix Conversion: Power Hash Mismatch", expected, power.hash);
  }
  return true;
}

// The transform of a level's power, which all its nodes share. Their work areas are laid out alike.
void Conversion::transform_power(u64 level, const ProductBuffers& buffers) {
  Power& power = powers_[level];
  power.product.emplace(plan_, level);
  const bool wide = level < plan_.fork;
  const WorkAreas areas(*power.product->record, wide);
  u8* const work = static_cast<u8*>(buffers.work);
  power.scratch = areas.scratch;
  power.transform = wide ? work + areas.power : space_.power_transforms[level];
  if (power.product->wrapped != nullptr)
    power.hash_wrapped = residue::hash_wrapped(space_.powers[level], power.length);
  forward_power(level, buffers);
  progress(transform_cost(power.product->words));
}

void Conversion::forward_power(u64 level, const ProductBuffers& buffers) {
  const Power& power = powers_[level];
  power.product->record->forward(power.transform, space_.powers[level], power.length,
                                 static_cast<u8*>(buffers.work) + power.scratch);
}

// buffers.product[first, ...) <- the product with the level's power from word `first` on, checked.
bool Conversion::multiply(const Node& node, const u64* fraction, u64 l, u64 first,
                          const ProductBuffers& buffers, Failure& failure) {
  const Power& power = powers_[node.level];
  const NodeProduct& how = *power.product;
  u64* const out = buffers.product;
  u8* const work = static_cast<u8*>(buffers.work);
  const u64 n = l + power.length;
  const auto check = [&](u64 expected, u64 actual) {
    return actual == expected ||
           failure.set("Radix Conversion: Product Hash Mismatch", plan_.span(node.level), expected, actual);
  };
  if (how.wrapped != nullptr) {
    const u64 expected = residue::mul_wrapped(residue::hash_wrapped(fraction, l), power.hash_wrapped);
    how.wrapped->forward_once(work, fraction, l, work + power.scratch);
    const km_MULv3::Term term{work, power.transform};
    how.wrapped->inverse_wrapped(out, &term, 1, work + power.scratch);
    if (visit(Faults::PRODUCT, out, how.words) || !check(expected, residue::hash_wrapped(out, how.words)))
      return false;
    // Words below `polluted` hold the sum of two parts of the product.
    const u64 polluted = n > how.words ? n - how.words : 0;
    if (polluted == 0 || words::normalized_length(out + polluted, first - polluted) != 0) return true;
    km_MULv3::multiply(whole_context(plan_, node.level), out, fraction, l, space_.powers[node.level],
                       power.length, work);
    if (node.level < plan_.fork) forward_power(node.level, buffers); // it lay in the same work area
  } else {
    how.record->forward_once(work, fraction, l, work + power.scratch);
    how.record->inverse_fmul(out, n, work, power.transform, work + power.scratch);
  }
  return !visit(Faults::PRODUCT, out, n) &&
         check(residue::mul(residue::hash_words(fraction, l), power.hash), residue::hash_words(out, n));
}

// The product with the level's power; its slice becomes the lower half's fraction.
bool Conversion::cut(const Node& node, const ProductBuffers& buffers, Failure& failure) {
  const u64 l = fraction_words(node.count());
  const u64 lower = fraction_words(node.count() - plan_.span(node.level + 1));
  const u64 lower_slot = node.slot + plan_.slots() / (u64{2} << node.level);
  // f R^S = product * 2^(64 zeros) / 2^(64 l): l - zeros words of the product are fraction.
  const u64 first = l - powers_[node.level].zeros - lower;
  if (!multiply(node, fraction_end(node.slot) - l, l, first, buffers, failure)) return false;
  std::copy_n(buffers.product + first, lower, fraction_end(lower_slot) - lower);
  progress(2 * transform_cost(powers_[node.level].product->words));
  return true;
}

// Joins the halves of a node that has been cut, given the upper half's overlap word.
bool Conversion::join(const Node& node, u64 overlap, const char* failure_text, Failure& failure) {
  const u64 upper_words = plan_.span(node.level + 1);
  u64* const upper = out_ + top(node) - upper_words;
  const u64 first = upper[-1]; // of the lower half
  if (first == overlap || first + 1 == overlap || first == overlap + 1) return true;
  if (first == 0 && overlap == RADIX - 1)
    for (u64 i = 0; i < upper_words; ++i) {
      if (++upper[i] != RADIX) return true;
      upper[i] = 0;
    }
  return failure.set(failure_text, plan_.span(node.level), overlap, first);
}

// A node and all below it, on the calling thread. *overlap receives the word below the main ones.
bool Conversion::kmh_CBRv2_ci_btrf_L(Node node, u64* overlap, const ProductBuffers& buffers,
                                     Failure& failure) {
  while (node.level < plan_.levels && !is_cut(node)) ++node.level;
  if (node.level == plan_.levels) {
    u64 words[LONGEST_LEAF + OVERLAP];
    const u64 n = node.count();
    radix_words(words + n, n, fraction_end(node.slot));
    std::copy_n(words + (n - node.main), node.main, out_ + top(node) - node.main);
    if (node.extra) *overlap = words[0];
    progress(leaf_cost(n));
    return true;
  }
  if (!cut(node, buffers, failure)) return false;
  const u64 split = plan_.span(node.level + 1);
  const u64 half = plan_.slots() / (u64{2} << node.level);
  u64 inner = 0;
  return kmh_CBRv2_ci_btrf_L({node.level + 1, node.slot, split, true}, &inner, buffers, failure) &&
         kmh_CBRv2_ci_btrf_L({node.level + 1, node.slot + half, node.main - split, node.extra}, overlap,
                             buffers, failure) &&
         join(node, inner, "kmh_CBRv2_ci_btrf_L(): Overlap Mismatch", failure);
}

// All subtrees below the fork level, drawn by the workers from one counter.
bool Conversion::run_subtrees() {
  struct Shared {
    explicit Shared(Conversion* c) : conversion(c) {}
    Conversion* conversion;
    std::atomic<u64> next{0};
    std::atomic<bool> failed{false};
    Failure failure; // written by the first thread that sets `failed`
  } shared(this);
  struct Block {
    u64 first, end; // workers
    Shared* shared;
    static void run(Block& block) {
      if (block.end - block.first > 1) {
        const u64 middle = block.first + (block.end - block.first) / 2;
        Block low{block.first, middle, block.shared}, high{middle, block.end, block.shared};
        if (fork_join(low, high, [](Block& half) { run(half); }) != 0) block.shared->failed = true;
        return;
      }
      Shared& s = *block.shared;
      Conversion& c = *s.conversion;
      const u64 tasks = u64{1} << c.plan_.fork;
      while (!s.failed) {
        const u64 task = s.next++;
        if (task >= tasks) return;
        const Node node = c.node_at(c.plan_.fork, task);
        if (node.main == 0) continue;
        Failure failure;
        if (c.kmh_CBRv2_ci_btrf_L(node, c.space_.overlaps + task, c.space_.workers[block.first], failure))
          continue;
        if (!s.failed.exchange(true)) s.failure = failure;
      }
    }
  };
  Block all{0, plan_.workers, &shared};
  Block::run(all);
  failure_ = shared.failure;
  return !shared.failed;
}

// The whole tree: the wide levels from the top, the subtrees, and the joints of the wide levels.
bool Conversion::kmq_CBRv2_ci_btrf_T() {
  label(LABEL_CONVERTING);
  for (u64 level = 0; level < plan_.fork; ++level) {
    transform_power(level, space_.wide);
    for (u64 index = 0; index < u64{1} << level; ++index) {
      const Node node = node_at(level, index);
      if (is_cut(node) && !cut(node, space_.wide, failure_)) return false;
    }
  }
  for (u64 level = plan_.fork; level < plan_.levels; ++level) transform_power(level, space_.workers[0]);
  if (!run_subtrees()) return false;
  for (u64 level = plan_.fork; level-- > 0;)
    for (u64 index = 0; index < u64{1} << level; ++index) {
      const Node node = node_at(level, index);
      const u64 lowest_above = ((2 * index + 1) << (plan_.fork - level - 1)) - 1; // subtree above the joint
      if (is_cut(node) &&
          !join(node, space_.overlaps[lowest_above], "kmq_CBRv2_ci_btrf_T(): Overlap Mismatch", failure_))
        return false;
    }
  return true;
}

bool Conversion::run(const u64* fraction, u64 n) {
  // The top words of the input; a shorter one is an exact number and gets zeros below.
  const u64 l = fraction_words(plan_.W);
  u64* const end = fraction_end(0);
  const u64 taken = n < l ? n : l;
  std::copy_n(fraction + (n - taken), taken, end - taken);
  std::fill_n(end - l, l - taken, u64{0});
  if (!make_powers() || !kmq_CBRv2_ci_btrf_T() || visit(Faults::OUTPUT, out_, plan_.W)) {
    if (failure_.text != nullptr) failure_.print();
    return false;
  }
  return true;
}

} // namespace

u64 convert_scratch_bytes(u64 W, u64 n, u64 threads, bool reduced_memory) {
  static_cast<void>(n); // the work area holds the precision that W needs, whatever the input has
  if (W == 0) return 0;
  const Plan plan = kmp_CBRv2_ci_btrf_ap_make(W, {nullptr, threads, nullptr, reduced_memory});
  Layout layout;
  const Workspace space(layout, plan);
  return layout.used();
}

double convert_cost(u64 W, u64 n, u64 threads) {
  static_cast<void>(n);
  if (W == 0) return 0;
  const Plan plan = kmp_CBRv2_ci_btrf_ap_make(W, {nullptr, threads, nullptr, false});
  double cost = leaf_cost(plan.base) * static_cast<double>(W) / static_cast<double>(plan.base);
  for (u64 level = 0; level < plan.levels; ++level) {
    const double nodes = static_cast<double>(W) / static_cast<double>(plan.span(level));
    // The power's, and the nodes' two each.
    cost += (2 * nodes + 1) * transform_cost(NodeProduct(plan, level).words);
    if (level > 0) cost += 2 * transform_cost(2 * power_words(plan.span(level + 1)));
  }
  return cost;
}

int convert(const km_MULv3::Context& context, u64* out, u64 W, const u64* fraction, u64 n, void* scratch,
            Faults* hook) {
  if (W == 0) return 0;
  const Plan plan = kmp_CBRv2_ci_btrf_ap_make(W, context);
  Layout layout(scratch, convert_scratch_bytes(W, n, context.threads, context.reduced_memory));
  const Workspace space(layout, plan);
  return Conversion(plan, space, out, hook).run(fraction, n) ? 0 : 1;
}

} // namespace kelvane::CBRv2

// See stream.h.

#include "companion/stream.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "digits/kcd_reader.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/status_line.h"
#include "shell/thread.h"

namespace kelvane::companion {

namespace {

struct Half {
  const std::function<void()>* task;
  std::exception_ptr failure;
};

} // namespace

void run_both(const std::function<void()>& first, const std::function<void()>& second) {
  Half halves[2] = {{&first, nullptr}, {&second, nullptr}};
  // Failures are carried over: only the command knows what to say.
  fork_join(halves[0], halves[1], [](Half& half) {
    try {
      (*half.task)();
    } catch (...) {
      half.failure = std::current_exception();
    }
  });
  for (const Half& half : halves)
    if (half.failure != nullptr) std::rethrow_exception(half.failure);
}

Progress::Progress(std::string label, u64 total, bool wanted)
    : label_(std::move(label)), total_(total), shown_(wanted && isatty(STDERR_FILENO) != 0),
      start_(Console::wall_seconds()), last_(start_) {}

Progress::~Progress() {
  if (width_ != 0) std::fprintf(stderr, "\r%s\r", std::string(width_, ' ').c_str());
}

void Progress::show(u64 done) {
  if (!shown_) return;
  constexpr double INTERVAL = 0.5;
  const double now = Console::wall_seconds();
  if (now - start_ < 2 * INTERVAL || now - last_ < INTERVAL || done == 0 || total_ == 0) return;
  last_ = now;
  const double share = static_cast<double>(done) / static_cast<double>(total_), elapsed = now - start_;
  char text[160];
  std::snprintf(text, sizeof text, "%s  %5.1f%%  %.0f million digits/s, remaining %.0f s", label_.c_str(),
                100 * share, static_cast<double>(done) / elapsed * 1e-6, elapsed * (1 - share) / share);
  std::string line = text;
  const size_t width = line.size();
  if (width < width_) line.append(width_ - width, ' ');
  width_ = width;
  std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
}

namespace {

template <class F> auto with_name(const std::string& name, const F& f) {
  try {
    return f();
  } catch (km_exception& e) {
    if (e.wtext.empty()) e.wtext = path_to_wide(name);
    throw;
  }
}

} // namespace

Source::Source(std::string name_, bool raw) : name(std::move(name_)) {
  reader = with_name(name, [&] { return DigitViewer::open_reader(path_to_wide(name), raw); });
}

void Source::read(u64 position, char* out, u64 count) {
  with_name(name, [&] { reader->read(position, out, count); });
}

u64 Source::length(bool quiet) {
  auto* const set = dynamic_cast<DigitViewer::KCDReader*>(reader.get());
  if (set == nullptr) return reader->get_digits();
  const u64 length = set->find_length();
  if (!set->states_total() && !quiet)
    std::fprintf(stderr,
                 "kelvane-digits: no file of the set states where the digits end; its files end at %s.\n",
                 Console::format_commas(length).c_str());
  return length;
}

void for_each_block(Source& source, u64 start, u64 end, Progress& progress,
                    const std::function<bool(const char* digits, u64 count)>& use,
                    const std::function<void(const char* digits, u64 count)>& beside) {
  if (start >= end) return;
  const u64 block = std::min(BLOCK_DIGITS, end - start);
  const auto memory = std::make_unique<char[]>(2 * block);
  char *now = memory.get(), *next = memory.get() + block;
  u64 position = start, count = block;
  source.read(position, now, count);
  for (;;) {
    const u64 after = position + count, next_count = std::min(block, end - after);
    bool go_on = true;
    run_both(
        [&] {
          if (next_count != 0) source.read(after, next, next_count);
          if (beside) beside(now, count);
        },
        [&] { go_on = use(now, count); });
    progress.show(after - start);
    if (!go_on || next_count == 0) return;
    position = after;
    count = next_count;
    std::swap(now, next);
  }
}

} // namespace kelvane::companion

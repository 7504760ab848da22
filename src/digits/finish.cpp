// The finishing sequence. See finish.h.
//
// Hexadecimal digits come first: they need only the binary words, and are safe before the long
// conversion begins. Digits are expanded from words in blocks that stay in the cache, once for the
// statistics and once for the file (again for every repeated attempt): a buffer of all digits would
// be 2.4 times the size of the number.

#include "digits/finish.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <memory>

#include "arithmetic/words/residue.h"
#include "digits/conversions.h"
#include "digits/finish_prompt.h"
#include "digits/kcd_writer.h"
#include "shell/console.h"
#include "shell/status_line.h"

namespace kelvane {

namespace {

using DigitViewer::DigitWriter;
using DigitViewer::OutputSettings;

constexpr u64 BLOCK_WORDS = 16384;          // words expanded to digits at a time
constexpr u64 STAGING_BYTES = u64{2} << 20; // collected by a writer for one write
constexpr u64 LEAST_STAGING = DigitViewer::KCDWriter::LEAST_BUFFER;

// The one block of the sequence. The converted words stay; conversion, verification and the
// expansion of digits follow each other in the rest.
struct Placement {
  u64* out;         // W words of radix 10^19
  void* conversion; // scratch of convert
  void* verification;
  char* digits;  // one block of raw digits
  char* staging; // the writer's
  u64 block_words, staging_bytes;

  Placement(Layout& layout, u64 D, u64 H, u64 n, u64 threads, bool reduced_memory) {
    const u64 W = CBRv2::output_words(D);
    out = layout.take<u64>(W);
    Layout converting = layout, verifying = layout, writing = layout;
    conversion = converting.take_bytes(CBRv2::convert_scratch_bytes(W, n, threads, reduced_memory));
    verification = verifying.take_bytes(CBRv2::verify_scratch_bytes(W, n, threads, reduced_memory));
    block_words = std::min(std::max(W, n), BLOCK_WORDS);
    staging_bytes = std::clamp(std::max(D, H), LEAST_STAGING, STAGING_BYTES);
    digits = writing.take<char>(block_words * CVN::DECIMAL_DIGITS);
    staging = writing.take<char>(staging_bytes);
    layout.take_bytes(std::max({converting.used(), verifying.used(), writing.used()}) - layout.used());
  }
};

void count_digits(u64* counts, const char* digits, u64 n) {
  // Four tables, since the same counter cannot be raised in consecutive cycles.
  u64 table[4][16] = {};
  u64 i = 0;
  for (; i + 4 <= n; i += 4)
    for (u64 k = 0; k < 4; ++k) ++table[k][digits[i + k] & 15];
  for (; i < n; ++i) ++table[0][digits[i] & 15];
  for (u64 digit = 0; digit < 10; ++digit)
    counts[digit] += table[0][digit] + table[1][digit] + table[2][digit] + table[3][digit];
}

class Finish {
public:
  Finish(const km_MULv3::Context& context, const FinishInput& input, FinishResult& result,
         const FinishHooks& hooks, const Placement& at)
      : context_(context), input_(input), result_(result), hooks_(hooks), at_(at), output_(input.output),
        D_(input.decimal_digits), W_(CBRv2::output_words(D_)),
        files_(hooks.files != nullptr ? *hooks.files : posix_files()) {}

  void run() {
    if (input_.integer_words > 1) throw km_exception(ERROR_OUT_OF_RANGE, "Number is out of range.");
    if (input_.hexadecimal_digits != 0 && input_.write_digits) write_hexadecimal();
    convert();
    take_statistics();
    if (input_.write_digits) write_decimal();
    verify();
    if (write_failure_ != nullptr) std::rethrow_exception(write_failure_);
  }

private:
  void begin(const char* event) {
    if (hooks_.record) hooks_.record(event);
    set_status(event);
    start_ = Console::wall_seconds();
    Console::status_line().restart_clock();
  }
  double elapsed() const { return Console::wall_seconds() - start_; }
  static void set_status(const char* text) { Console::status_line().segments = {{'P', text}}; }
  void retrying(const char* message) {
    Console::print_colored(std::string(message) + "\n\n", 'R');
    set_status(message);
  }

  void write_hexadecimal();
  void convert();
  void take_statistics();
  void write_decimal();
  void verify();

  template <class F> void for_each_block(const u64* words, u64 n, u64 digits, int radix, const F& f);
  template <class F>
  bool write_file(const char* heading, int radix, u64 digits, u64 available, const F& write);

  km_MULv3::Context context_;
  const FinishInput& input_;
  FinishResult& result_;
  const FinishHooks& hooks_;
  const Placement& at_;
  OutputSettings output_;
  const u64 D_, W_;
  FileSystem& files_;
  double start_ = 0;
  u64 R_ = 0; // residue of the converted words
  std::exception_ptr write_failure_;
};

// Calls f(raw digits, count) for the first `digits` digits of n words, most significant word last.
template <class F> void Finish::for_each_block(const u64* words, u64 n, u64 digits, int radix, const F& f) {
  const u64 per_word = CVN::digits_per_word(radix);
  while (digits > 0) {
    const u64 block = std::min(n, at_.block_words);
    n -= block;
    CVN::cdi_to_raw(at_.digits, words + n, block, radix);
    const u64 count = std::min(block * per_word, digits);
    f(at_.digits, count);
    digits -= count;
  }
}

// Writes one digit file, asking and starting again when that fails. False: given up, the failure is kept.
template <class F>
bool Finish::write_file(const char* heading, int radix, u64 digits, u64 available, const F& write) {
  char first[32];
  std::snprintf(first, sizeof first, radix == 10 ? "%" PRIu64 "." : "%" PRIx64 ".", input_.integer);
  for (;;) {
    const std::wstring path = full_path(DigitViewer::output_name(output_, radix, digits));
    Console::print("Output File:  ");
    Console::set_color('G');
    Console::print(path);
    Console::set_color_white();
    Console::print("\n");
    Console::print(heading);
    // The writer is made inside: also a folder that does not exist is asked about.
    try {
      if (digits > available) throw km_exception(ERROR_OUT_OF_RANGE, "Out of range.");
      const std::unique_ptr<DigitWriter> writer =
          DigitViewer::make_writer(output_, radix, first, at_.staging, at_.staging_bytes, files_);
      write(*writer);
      writer->close();
      Console::set_color('G');
      Console::print_commas(digits);
      Console::set_color_white();
      Console::print("  digits written\n\n");
      result_.files.push_back(path);
      return true;
    } catch (const km_exception& e) {
      Console::print("\n");
      if (hooks_.retry ? hooks_.retry(e, output_) : ask_to_retry(e, output_)) continue;
      Console::print_colored("The digits could not be written. The remaining steps are finished first.\n\n",
                             'R');
      if (write_failure_ == nullptr) write_failure_ = std::current_exception();
      return false;
    }
  }
}

void Finish::write_hexadecimal() {
  begin("Writing Hexadecimal Digits");
  set_status("Writing hexadecimal Digits");
  const u64 H = input_.hexadecimal_digits, n = input_.fraction_words;
  write_file("Writing Hexadecimal Digits:   ", 16, H, n * CVN::HEXADECIMAL_DIGITS, [&](DigitWriter& writer) {
    for_each_block(input_.fraction, n, H, 16,
                   [&](const char* digits, u64 count) { writer.write(digits, count); });
  });
  result_.hexadecimal_seconds = elapsed();
}

void Finish::convert() {
  begin("Base Converting");
  Console::print("Base Converting:\n");
  const auto attempt = [&] {
    Console::Progress progress(CBRv2::LABEL_SQUARING,
                               CBRv2::convert_cost(W_, input_.fraction_words, context_.threads));
    km_MULv3::Context context = context_;
    context.progress = &progress;
    return CBRv2::convert(context, at_.out, W_, input_.fraction, input_.fraction_words, at_.conversion,
                          hooks_.faults);
  };
  // Without limit: a machine that cannot convert once is of no use to the result, and giving up loses it.
  while (attempt() != 0) retrying("Radix Conversion Failed - Reattempting...");
  Console::status_line().print_time();
  Console::print("\n");
  result_.convert_seconds = elapsed();
}

// The counts, the tail, and the hash of the digits, all from the converted words.
void Finish::take_statistics() {
  R_ = residue::hash_radix_words(CVN::DECIMAL_RADIX, at_.out, W_);

  result_.tail_start = tail_start(D_);
  result_.tail_digits.clear();
  std::fill(result_.digit_counts, result_.digit_counts + 10, u64{0});
  u64 position = 0;
  for_each_block(at_.out, W_, D_, 10, [&](const char* digits, u64 count) {
    count_digits(result_.digit_counts, digits, count);
    const u64 from = std::max(position, result_.tail_start);
    for (u64 i = from; i < position + count; ++i)
      result_.tail_digits += static_cast<char>('0' + digits[i - position]);
    position += count;
  });

  // The words hold surplus = 19 W - D digits more (39 to 57, in the lowest three words). Without
  // them, and with the integer part before the others:
  //   hash = (R - surplus digits) / 10^surplus + integer * 10^D.
  constexpr u64 SURPLUS_WORDS = 3;
  const u64 surplus = CVN::DECIMAL_DIGITS * W_ - D_;
  char low[SURPLUS_WORDS * CVN::DECIMAL_DIGITS];
  CVN::cdi_to_raw(low, at_.out, SURPLUS_WORDS, 10);
  u64 h = 0;
  for (u64 i = sizeof low - surplus; i < sizeof low; ++i)
    h = residue::add(residue::mul(h, 10), static_cast<u64>(low[i]));
  h = residue::mul(residue::sub(R_, h), residue::inverse(residue::pow(10, surplus)));
  result_.decimal_hash = residue::add(h, residue::mul(residue::reduce(input_.integer), residue::pow(10, D_)));
}

void Finish::write_decimal() {
  begin("Writing Decimal Digits");
  result_.digits_written =
      write_file("Writing Decimal Digits:   ", 10, D_, W_ * CVN::DECIMAL_DIGITS, [&](DigitWriter& writer) {
        for_each_block(at_.out, W_, D_, 10,
                       [&](const char* digits, u64 count) { writer.write(digits, count); });
      });
  result_.write_seconds = elapsed();
}

void Finish::verify() {
  begin("Verifying Base Conversion");
  Console::print("Verifying Base Conversion...");
  Console::print("\n");
  u64 B = 0;
  const auto attempt = [&] {
    Console::Progress progress(CBRv2::LABEL_POWERING,
                               CBRv2::verify_cost(W_, input_.fraction_words, context_.threads));
    km_MULv3::Context context = context_;
    context.progress = &progress;
    return CBRv2::verify(context, W_, input_.fraction, input_.fraction_words, &B, at_.verification,
                         hooks_.faults);
  };
  while (attempt() != 0) retrying("Verification Failed - Reattempting...");
  Console::status_line().print_time();
  Console::print("\n");
  result_.verify_seconds = elapsed();

  // The words may be one below the exact floor, whose residue B is (see radix.h).
  if (R_ == B || residue::add(R_, 1) == B || residue::add(B, 1) == R_) return;
  Console::set_color('R');
  Console::print("R = ");
  Console::print_u64(R_);
  Console::print("\nB = ");
  Console::print_u64(B);
  Console::print("\n");
  if (result_.digits_written) {
    Console::print("Do not use the decimal digits in ");
    Console::print(result_.files.back());
    Console::print("\n");
  }
  Console::set_color_white();
  throw km_exception(ERROR_REDUNDANCY, "Base Conversion Failed: Checksum Mismatch");
}

} // namespace

u64 finish_memory_bytes(u64 decimal_digits, u64 hexadecimal_digits, u64 fraction_words, u64 threads,
                        bool reduced_memory) {
  Layout layout;
  const Placement at(layout, decimal_digits, hexadecimal_digits, fraction_words, threads, reduced_memory);
  return layout.used();
}

void finish_and_output(const km_MULv3::Context& context, Heap& heap, const FinishInput& input,
                       FinishResult& result, const FinishHooks& hooks) {
  const u64 D = input.decimal_digits, H = input.hexadecimal_digits, n = input.fraction_words;
  const u64 bytes = finish_memory_bytes(D, H, n, context.threads, context.reduced_memory);
  const HeapBlock block(heap, bytes);
  Layout layout(block.data(), bytes);
  const Placement at(layout, D, H, n, context.threads, context.reduced_memory);
  Finish(context, input, result, hooks, at).run();
}

} // namespace kelvane

// Commands that look at digits. See commands.h.

#include "companion/commands.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "companion/analysis.h"
#include "companion/sha1.h"
#include "companion/stream.h"
#include "digits/conversions.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/file.h"

namespace kelvane::companion {

namespace {

std::string commas(u64 value) {
  return Console::format_commas(value);
}

std::string formatted(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// Two readers a block at a time, each on a thread of its own. A position beyond `common` is not asked for.
u64 first_difference(Source& a, Source& b, u64 common, Progress& progress) {
  const u64 block = std::min(BLOCK_DIGITS, common);
  const auto memory = std::make_unique<char[]>(2 * block);
  char *const from_a = memory.get(), *const from_b = memory.get() + block;
  for (u64 position = 0; position < common; position += block) {
    const u64 n = std::min(block, common - position);
    run_both([&] { a.read(position, from_a, n); }, [&] { b.read(position, from_b, n); });
    if (std::memcmp(from_a, from_b, n) != 0)
      return position + static_cast<u64>(std::mismatch(from_a, from_a + n, from_b).first - from_a);
    progress.show(position + n);
  }
  return common;
}

// Some digits before and after a position, for the eye.
constexpr u64 SHOWN_BEFORE = 10, SHOWN_AFTER = 20;
std::string surroundings(Source& source, u64 position, u64 length) {
  const u64 start = position - std::min(position, SHOWN_BEFORE),
            end = std::min(length, position + SHOWN_AFTER);
  std::string digits(end - start, ' ');
  source.read(start, digits.data(), digits.size());
  return digits;
}

} // namespace

Status print(const Arguments& arguments) {
  const u64 from = parse_count(arguments.operands[1], "FROM"), to = parse_count(arguments.operands[2], "TO");
  if (to < from) throw UsageError("TO must not be below FROM");
  Source source(arguments.operands[0], false);
  const u64 length = source.length(arguments.quiet);
  if (to > length)
    throw km_exception(ERROR_OUT_OF_RANGE, nullptr,
                       "Out of range. The file has " + commas(length) + " digits.",
                       path_to_wide(arguments.operands[0]));
  Progress progress("Printing", to - from + 1, !arguments.quiet);
  if (!arguments.grouped) {
    for_each_block(source, from - 1, to, progress, [](const char* digits, u64 count) {
      put(digits, count);
      return true;
    });
    put("\n");
    return SUCCESS;
  }
  constexpr u64 GROUP = 10, LINE = 50;
  u64 printed = 0; // since FROM
  for_each_block(source, from - 1, to, progress, [&](const char* digits, u64 count) {
    std::string text;
    for (u64 i = 0; i < count; ++i) {
      text += digits[i];
      ++printed;
      if (printed % LINE == 0 || from - 1 + printed == to)
        text += " :  " + commas(from - 1 + printed) + "\n";
      else if (printed % GROUP == 0)
        text += ' ';
      if (text.size() > 65536) put(text), text.clear();
    }
    put(text);
    return true;
  });
  return SUCCESS;
}

Status find(const Arguments& arguments) {
  std::string pattern = arguments.operands[1];
  std::transform(pattern.begin(), pattern.end(), pattern.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
  Source source(arguments.operands[0], false);
  std::string values(pattern.size(), ' ');
  const u64 valid =
      CVN::str_to_raw(values.data(), pattern.data(), pattern.size(), source.reader->get_radix());
  if (pattern.empty()) throw UsageError("the pattern is empty");
  constexpr u64 LONGEST = u64{1} << 20;
  if (pattern.size() > LONGEST) throw UsageError("the pattern is longer than " + commas(LONGEST) + " digits");
  if (valid != pattern.size())
    throw UsageError(std::string("the pattern has a character that is no digit of radix ") +
                     std::to_string(source.reader->get_radix()) + ": " + pattern[valid]);

  const u64 start = arguments.from - 1, length = source.length(arguments.quiet);
  Progress progress("Searching", length > start ? length - start : 0, !arguments.quiet);
  PatternSearch search(pattern);
  std::vector<u64> found;
  u64 printed = 0;
  for_each_block(source, start, length, progress, [&](const char* digits, u64 count) {
    search.add(digits, count, arguments.count, found);
    std::string text;
    for (; printed < found.size(); ++printed) text += std::to_string(start + found[printed] + 1) + "\n";
    put(text);
    return found.size() < arguments.count;
  });
  return found.empty() ? NEGATIVE : SUCCESS;
}

Status compare(const Arguments& arguments) {
  Source a(arguments.operands[0], false), b(arguments.operands[1], false);
  if (a.reader->get_radix() != b.reader->get_radix())
    throw km_exception(ERROR_FILES_DISAGREE, "Radix does not match.");
  const std::string first[2] = {a.reader->get_first_digits(), b.reader->get_first_digits()};
  if (first[0] != first[1]) {
    put("The digits before the point differ: " + first[0] + " and " + first[1] + "\n");
    return NEGATIVE;
  }
  const u64 lengths[2] = {a.length(arguments.quiet), b.length(arguments.quiet)},
            common = std::min(lengths[0], lengths[1]);
  u64 same = 0;
  {
    Progress progress("Comparing", common, !arguments.quiet);
    same = first_difference(a, b, common, progress);
  }
  if (same < common) {
    put("The first difference is digit " + commas(same + 1) + ".\n");
    for (Source* const source : {&a, &b}) put("  " + surroundings(*source, same, common) + "\n");
    put("  " + std::string(std::min(same, SHOWN_BEFORE), ' ') + "^\n");
    return NEGATIVE;
  }
  if (lengths[0] != lengths[1]) {
    put("The first " + commas(common) + " digits are the same; " +
        arguments.operands[lengths[0] > common ? 0 : 1] + " has " +
        commas(std::max(lengths[0], lengths[1]) - common) + " more.\n");
    return NEGATIVE;
  }
  put("The same " + commas(common) + " digits.\n");
  return SUCCESS;
}

Status hash(const Arguments& arguments) {
  Source source(arguments.operands[0], false);
  const u64 length = source.length(arguments.quiet);
  const std::string first = source.reader->get_first_digits();
  Sha1 sha1;
  DigitResidue residue(source.reader->get_radix());
  sha1.add(first.data(), first.size());
  for (const char c : first)
    if (c != '.' && c != '-') residue.add(&c, 1);
  Progress progress("Hashing", length, !arguments.quiet);
  for_each_block(
      source, 0, length, progress,
      [&](const char* digits, u64 count) {
        sha1.add(digits, count);
        return true;
      },
      [&](const char* digits, u64 count) { residue.add(digits, count); });
  put("Digits:                               " + commas(length) + "\n");
  put("As an integer, modulo 2^61 - 1:       " + std::to_string(residue.value()) + "\n");
  put("SHA-1 of the text form:               " + sha1.finish() + "\n");
  return SUCCESS;
}

Status stats(const Arguments& arguments) {
  Source source(arguments.operands[0], true);
  const int radix = source.reader->get_radix();
  const u64 length = source.length(arguments.quiet);
  u64 counts[16] = {};
  {
    Progress progress("Counting", length, !arguments.quiet);
    for_each_block(source, 0, length, progress, [&](const char* digits, u64 count) {
      count_digits(counts, digits, count, radix);
      return true;
    });
  }
  const ChiSquare chi = chi_square(counts, radix);
  put("Digits:      " + commas(length) + "\n\n");
  for (int digit = 0; digit < radix; ++digit) {
    const double share = length == 0 ? 0 : static_cast<double>(counts[digit]) / static_cast<double>(length);
    put(std::string("  ") + "0123456789abcdef"[digit] + Console::format_commas(counts[digit], 24) +
        formatted("   %8.5f %%", 100 * share) +
        formatted("%+18.1f\n", static_cast<double>(counts[digit]) - chi.expected));
  }
  put("\nChi-square:  " + formatted("%.4f", chi.value) + " with " + std::to_string(chi.freedom) +
      " degrees of freedom, p = " + formatted("%.4f", chi.p) + "\n");
  if (!arguments.svg.empty()) {
    const std::string title = arguments.operands[0] + ": " + commas(length) + " digits";
    write_whole_file(path_to_wide(arguments.svg), counts_svg(title, counts, radix));
  }
  return SUCCESS;
}

} // namespace kelvane::companion

// The text reader. See reader.h.

#include "digits/reader.h"

#include <algorithm>

#include "digits/conversions.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

constexpr u64 DETECTION_CHARACTERS = 64;
constexpr u64 LONGEST_PREFIX = 63; // bytes up to and including the point

int detect_radix(const char* text, u64 count) {
  const char* const end = text + count;
  const char* const other = std::find_if(text, end, [](char c) { return c != '.' && (c < '0' || c > '9'); });
  if (other == end) return 10;
  if (*other >= 'a' && *other <= 'f') return 16;
  throw km_exception(ERROR_INVALID_DIGIT, "Invalid Digit");
}

} // namespace

void DigitReader::reload() {
  throw km_exception(ERROR_OBJECT_STATE, "DigitReader::reload() does not support unknown sizes.\n"
                                         "You must override this function when total_digits could be 0.");
}

TextReader::TextReader(std::wstring path, bool raw, int radix, FileSystem& files)
    : file_(files, std::move(path), OpenMode::READ), radix_(radix), raw_(raw) {
  char start[DETECTION_CHARACTERS];
  const u64 count = file_.read(0, start, sizeof start);
  if (radix_ == 0) radix_ = detect_radix(start, count);
  CVN::digits_per_word(radix_);

  const char* const end = start + std::min(count, LONGEST_PREFIX);
  const char* const point = std::find<const char*>(start, end, '.');
  if (point == end) {
    if (count < LONGEST_PREFIX) throw km_exception(ERROR_READING_FILE, "Unexpected End of File");
    throw km_exception(ERROR_NO_DECIMAL_PLACE,
                       "A decimal place was not found within the first 63 bytes of the file.");
  }
  first_digits_.assign(static_cast<const char*>(start), point + 1);
  const u64 prefix = first_digits_.size();
  digits_ = std::max(file_.size(), prefix) - prefix; // a file may have been cut off meanwhile
}

void TextReader::print_info() {
  Console::print("File: ");
  Console::print(file_.path());
  Console::print("\n\n");
  Console::println_labeled("Radix:                  ", static_cast<u64>(radix_), 'G');
  Console::println_labeled("Decimal Place Offset:   ", first_digits_.size(), 'G');
  Console::println_labeled("Digits in File:         ", digits_, 'G');
  Console::print("\n");
}

bool TextReader::check_range(u64 start, u64 end) {
  if (start >= end) throw km_exception(ERROR_INVALID_PARAMETERS, "Invalid Parameters");
  return end <= digits_;
}

void TextReader::read(u64 position, char* out, u64 count) {
  if (position > digits_ || count > digits_ - position)
    throw km_exception(ERROR_OUT_OF_RANGE, "Out of range.");
  // In pieces that stay in the cache between reading and checking.
  constexpr u64 PIECE = 65536;
  for (u64 done = 0; done < count;) {
    const u64 n = std::min(count - done, PIECE);
    char* const piece = out + done;
    const u64 offset = first_digits_.size() + position + done;
    if (file_.read(offset, piece, n) != n) throw km_exception(ERROR_OUT_OF_RANGE, "Out of range.");
    // Converted also when characters are wanted: that is the check.
    const u64 valid = CVN::str_to_raw(piece, piece, n, radix_);
    if (valid != n) {
      char character = 0;
      file_.read(offset + valid, &character, 1);
      throw km_exception(ERROR_INVALID_DIGIT, std::string("Invalid Digit: ") + character);
    }
    if (!raw_) CVN::raw_to_str(piece, piece, n, radix_);
    done += n;
  }
}

} // namespace kelvane::DigitViewer

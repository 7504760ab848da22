// See kcd_file.h.

#include "digits/kcd_file.h"

#include <algorithm>
#include <cstring>

#include "digits/conversions.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

constexpr u64 BLOCK_WORDS = 4096; // read and expanded at a time, within the nearest caches

} // namespace

KCDFile::KCDFile(const std::wstring& path, FileSystem& files)
    : file_(files, path, OpenMode::READ), header_(read_kcd_header(file_)) {}

void KCDFile::check_size() const {
  const u128 expected = header_.length + static_cast<u128>(header_.words) * sizeof(u64);
  if (file_.size() != expected) throw km_exception(ERROR_READING_FILE, nullptr, "Error Reading File", path());
}

void KCDFile::read_words(u64 position, u64* words, u64 count) const {
  if (position > header_.words || count > header_.words - position)
    throw km_exception(
        ERROR_OUT_OF_RANGE, nullptr,
        "Read out of bounds.\nRequested Range: " + std::to_string(position) + " - " +
            std::to_string(static_cast<u128>(position) + count > ~u64{0} ? ~u64{0} : position + count) +
            "\nAvailable Range: 0 - " + std::to_string(header_.words) +
            "\nKCDFile::read_words(u64 position, u64* words, u64 count)",
        path());
  // A header may promise more words than any file has bytes.
  constexpr u64 MOST_WORDS = u64{1} << 59;
  const bool readable = position <= MOST_WORDS && count <= MOST_WORDS;
  const u64 bytes = count * sizeof(u64);
  if (!readable || file_.read(header_.length + position * sizeof(u64), words, bytes) != bytes)
    throw km_exception(ERROR_READING_FILE, nullptr, "Error Reading File", path());
  if (header_.radix == 16) return;
  u64 bad = 0;
  for (u64 i = 0; i < count; ++i) bad |= words[i] >= CVN::DECIMAL_RADIX ? 1 : 0;
  if (bad == 0) return;
  const u64* const word = std::find_if(words, words + count, [](u64 w) { return w >= CVN::DECIMAL_RADIX; });
  const u64 index = position + static_cast<u64>(word - words);
  throw km_exception(ERROR_INVALID_DIGIT, nullptr,
                     "Invalid Digit: " + std::to_string(index * CVN::DECIMAL_DIGITS), path());
}

void KCDFile::read_chars(u64 position, char* out, u64 count, bool raw) const {
  if (position > header_.digits || count > header_.digits - position)
    throw km_exception(ERROR_OUT_OF_RANGE, nullptr, "Out of range.", path());
  const u64 per_word = header_.digits_per_word;
  const auto expand = [&](char* to, const u64* words, u64 n) {
    raw ? CVN::u64_to_raw(to, words, n, header_.radix) : CVN::u64_to_str(to, words, n, header_.radix);
  };
  u64 words[BLOCK_WORDS];
  char edge[CVN::DECIMAL_DIGITS];
  while (count > 0) {
    const u64 first = position / per_word, skip = position % per_word;
    const u64 n = std::min(BLOCK_WORDS, (skip + count - 1) / per_word + 1);
    read_words(first, words, n);
    const u64 digits = std::min(n * per_word - skip, count);
    // Whole words go straight to the caller; those cut at either end through `edge`.
    u64 done = 0, word = 0;
    if (skip != 0) {
      expand(edge, words, 1);
      done = std::min(per_word - skip, digits);
      std::memcpy(out, edge + skip, done);
      word = 1;
    }
    const u64 whole = (digits - done) / per_word;
    expand(out + done, words + word, whole);
    done += whole * per_word;
    if (done < digits) {
      expand(edge, words + word + whole, 1);
      std::memcpy(out + done, edge, digits - done);
    }
    out += digits;
    position += digits;
    count -= digits;
  }
}

} // namespace kelvane::DigitViewer

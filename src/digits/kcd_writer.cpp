// See kcd_writer.h.

#include "digits/kcd_writer.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "digits/conversions.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

// The part of a borrowed buffer that can hold words.
u64* aligned_words(void* buffer) {
  const auto address = reinterpret_cast<std::uintptr_t>(buffer);
  return reinterpret_cast<u64*>((address + sizeof(u64) - 1) & ~std::uintptr_t{sizeof(u64) - 1});
}

} // namespace

std::wstring kcd_path(const std::wstring& folder, const std::wstring& base_name, u64 id) {
  return folder_prefix(folder) + base_name + std::to_wstring(id) + KCD_EXTENSION;
}

KCDWriter::KCDWriter(const std::wstring& folder, const std::wstring& base_name, std::string first_digits,
                     u64 digits_per_file, u64 start_id, int radix, u64 buffer_bytes, void* buffer,
                     Release release, FileSystem& files)
    : files_(files), prefix_(folder_prefix(folder) + base_name), first_id_(start_id),
      buffer_(aligned_words(buffer)), buffer_words_(0), borrowed_(buffer), release_(std::move(release)),
      exceptions_at_start_(std::uncaught_exceptions()) {
  header_.first_digits = std::move(first_digits);
  header_.radix = radix;
  header_.digits_per_file = digits_per_file;
  header_.id = start_id;
  check(buffer_bytes);
}

KCDWriter::KCDWriter(const std::wstring& path, std::string first_digits, int radix, u64 buffer_bytes,
                     void* buffer, Release release, FileSystem& files)
    : KCDWriter(L"", path, std::move(first_digits), ONE_FILE, 0, radix, buffer_bytes, buffer,
                std::move(release), files) {
  numbered_ = false;
}

void KCDWriter::check(u64 buffer_bytes) {
  if (buffer_bytes < LEAST_BUFFER)
    throw km_exception(ERROR_INVALID_PARAMETERS, "Requested buffer size is too small.");
  buffer_words_ = buffer_bytes / sizeof(u64) - 1; // one may be lost to alignment
  header_.digits_per_word = CVN::digits_per_word(header_.radix);
  if (header_.digits_per_file < LEAST_DIGITS_PER_FILE)
    throw km_exception(ERROR_READING_FILE, "Invalid Digits per File");
  // The first digits become a line of the header.
  for (const char c : header_.first_digits)
    if (static_cast<unsigned char>(c) < ' ')
      throw km_exception(ERROR_INVALID_DIGIT, std::string("Invalid Digit: ") + c);
}

KCDWriter::~KCDWriter() {
  // Unwinding means that the digits stopped early: the files keep their incomplete names.
  if (!closed_ && std::uncaught_exceptions() <= exceptions_at_start_) {
    try {
      close();
    } catch (const km_exception&) {
      // Only close() itself can report; the incomplete files stay.
    }
  }
  if (release_) release_(borrowed_);
}

std::wstring KCDWriter::path(u64 id) const {
  return numbered_ ? kcd_path(L"", prefix_, id) : prefix_;
}

void KCDWriter::open_next() {
  file_ = PendingFile(files_, path(header_.id));
  if (file_.in_place()) linked_.push_back(header_.id);
  const std::string text = kcd_header_text(header_);
  file_.write(0, text.data(), text.size());
  position_ = text.size();
  digits_in_file_ = 0;
}

void KCDWriter::flush() {
  const u64 bytes = std::exchange(buffered_, 0) * sizeof(u64);
  if (bytes == 0) return;
  file_.write(position_, buffer_, bytes);
  position_ += bytes;
}

void KCDWriter::put_word(u64 word) {
  if (buffered_ == buffer_words_) flush();
  buffer_[buffered_++] = word;
}

void KCDWriter::write_to_file(const char* digits, u64 count) {
  const u64 per_word = header_.digits_per_word;
  digits_in_file_ += count;
  while (count > 0) {
    if (pending_ > 0 || count < per_word) {
      const u64 n = std::min(per_word - pending_, count);
      std::memcpy(partial_ + pending_, digits, n);
      pending_ += n;
      digits += n;
      count -= n;
      if (pending_ < per_word) return;
      u64 word = 0;
      CVN::raw_to_u64(&word, partial_, 1, header_.radix);
      put_word(word);
      pending_ = 0;
    } else {
      if (buffered_ == buffer_words_) flush();
      const u64 words = std::min(count / per_word, buffer_words_ - buffered_);
      CVN::raw_to_u64(buffer_ + buffered_, digits, words, header_.radix);
      buffered_ += words;
      digits += words * per_word;
      count -= words * per_word;
    }
  }
}

void KCDWriter::write(const char* digits, u64 count) {
  if (closed_) throw km_exception(ERROR_OBJECT_STATE, "This file is already closed.");
  try {
    while (count > 0) {
      if (!file_.is_open()) open_next();
      const u64 n = std::min(count, header_.digits_per_file - digits_in_file_);
      write_to_file(digits, n);
      digits += n;
      count -= n;
      if (digits_in_file_ == header_.digits_per_file) {
        close_file();
        ++header_.id;
      }
    }
  } catch (const km_exception&) {
    closed_ = true; // a set with a gap is worth nothing
    throw;
  }
}

// The body to its end, and the total into the header of a file that is not full.
void KCDWriter::close_file() {
  if (pending_ > 0) {
    std::fill(partial_ + pending_, partial_ + header_.digits_per_word, char{0});
    u64 word = 0;
    CVN::raw_to_u64(&word, partial_, 1, header_.radix);
    put_word(word);
    pending_ = 0;
  }
  flush();
  if (digits_in_file_ < header_.digits_per_file) {
    char text[TOTAL_DIGITS_WIDTH + 1];
    const u64 total = header_.id * header_.digits_per_file + digits_in_file_;
    std::snprintf(text, sizeof text, "%020llu", static_cast<unsigned long long>(total));
    file_.write(header_.total_position, text, TOTAL_DIGITS_WIDTH);
  }
  file_.finish();
}

void KCDWriter::publish() {
  u64 end = header_.id;                                 // of the ids in the set
  if (digits_in_file_ < header_.digits_per_file) ++end; // the last file is not full
  const auto linked = [this](u64 id) {
    return std::find(linked_.begin(), linked_.end(), id) != linked_.end();
  };
  if (end - first_id_ > 1 && files_.kind(path(first_id_)) == PathKind::REGULAR && !linked(first_id_))
    remove_file(files_, path(first_id_));
  for (u64 id = end; id-- > first_id_;)
    if (!linked(id)) PendingFile::publish(files_, path(id));
  if (numbered_)
    for (u64 id = end; files_.kind(path(id)) == PathKind::REGULAR; ++id) remove_file(files_, path(id));
  sync_folder(files_, folder_of(prefix_));
}

void KCDWriter::close() {
  if (closed_) return;
  closed_ = true;
  const bool open = file_.is_open();
  if (!open && header_.id == first_id_) return; // no digit was written
  if (open) close_file();
  publish();
}

} // namespace kelvane::DigitViewer

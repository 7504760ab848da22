// The writer of compressed digit files. The format: kcd_format.h.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "digits/kcd_format.h"
#include "digits/pending_file.h"
#include "digits/writer.h"

namespace kelvane::DigitViewer {

// Packs raw digits into files of a fixed number of digits each.
//
// All files of a set keep their ".incomplete" names until close(): then they take their own, file by file
// from the last to the first. So a first file with its final name tells of a whole set, whatever happened to
// the machine meanwhile; a full disk leaves nothing that a reader could take for a shorter result. The first
// file of an older set of the same name is removed before, and files of it that the new set does not have
// after, so that the two never mix.
//
// Packing runs at memory speed (about 0.2 ns per digit); each full buffer is one write.
class KCDWriter final : public DigitWriter {
public:
  // Gives the buffer back; may be empty.
  using Release = std::function<void(void* buffer)>;
  static constexpr u64 LEAST_BUFFER = 4096;

  // File k, from start_id on, is folder + base_name + k + ".kcd" (folder_prefix applied to folder).
  // digits_per_file: at least 100 ("Invalid Digits per File"), ONE_FILE for a single file of any length.
  // buffer: at least LEAST_BUFFER bytes ("Requested buffer size is too small."); borrowed until release.
  // Other radices than 10 and 16: "Unsupported Radix". Nothing is created before the first digit.
  KCDWriter(const std::wstring& folder, const std::wstring& base_name, std::string first_digits,
            u64 digits_per_file, u64 start_id, int radix, u64 buffer_bytes, void* buffer, Release release,
            FileSystem& files = posix_files());
  // One file of exactly this path, id 0.
  KCDWriter(const std::wstring& path, std::string first_digits, int radix, u64 buffer_bytes, void* buffer,
            Release release, FileSystem& files = posix_files());
  ~KCDWriter() override;
  KCDWriter(const KCDWriter&) = delete;
  KCDWriter& operator=(const KCDWriter&) = delete;

  void write(const char* digits, u64 count) override; // raw values
  void close() override;

private:
  void check(u64 buffer_bytes);
  std::wstring path(u64 id) const;
  void open_next();
  void write_to_file(const char* digits, u64 count); // at most what the file still takes
  void put_word(u64 word);
  void flush();
  void close_file();
  void publish();

  FileSystem& files_;
  std::wstring prefix_; // of the file names, or the only file's path
  bool numbered_ = true;
  KCDHeader header_; // of the open file, or of the next one
  u64 first_id_;
  u64* buffer_;
  u64 buffer_words_, buffered_ = 0;
  void* borrowed_;
  Release release_;
  char partial_[19];        // digits of a word that is not complete yet
  u64 pending_ = 0;         // how many
  u64 digits_in_file_ = 0;  // pending ones included
  u64 position_ = 0;        // bytes written to the file
  bool closed_ = false;     // also after a failure
  std::vector<u64> linked_; // ids of files that were written in place
  int exceptions_at_start_;
  PendingFile file_;
};

// folder + base_name + id + ".kcd"
std::wstring kcd_path(const std::wstring& folder, const std::wstring& base_name, u64 id);

} // namespace kelvane::DigitViewer

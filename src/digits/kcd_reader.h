// The reader of compressed digit files, alone or in sets. The format: kcd_format.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "digits/kcd_file.h"
#include "digits/reader.h"

namespace kelvane::DigitViewer {

// Serves any range of a stream by opening only the files that cover it, one at a time.
//
// The files of a set may lie in several folders; the first folder that has a file is taken. The first file
// of the set (number 0, or the lowest one there is) says what all have in common; each other one must agree
// with it when it is opened, hold its own number, and have a body of the size that its header says.
//
// A set whose last file is full does not state its length (get_digits is 0); find_length finds it.
class KCDReader final : public DigitReader {
public:
  static constexpr u64 STREAM_BYTES = 0x4000000; // of the internal buffer of reload

  // base_name: the common part of the file names, before the number. No folder: the working directory.
  // "Unable to open file #0" when there is no file of the set.
  KCDReader(std::wstring base_name, std::vector<std::wstring> folders, bool raw = false,
            FileSystem& files = posix_files());
  // The set to which the file belongs, or the file alone when its name does not end in its number.
  // "Invalid Extension" for a name that does not end in ".kcd".
  explicit KCDReader(const std::wstring& path, bool raw = false, FileSystem& files = posix_files());

  void print_info() override;
  int get_radix() override { return common_.radix; }
  u64 get_digits() override { return total_; }
  void set_raw(bool raw) override { raw_ = raw; }
  // Also prints what is missing, damaged or beyond the end of the stream.
  bool check_range(u64 start, u64 end) override;
  std::string get_first_digits() override { return common_.first_digits; }
  // "Out of range." beyond a known total; "Unable to open file #" and the number for a file that is missing.
  void read(u64 position, char* out, u64 count) override;
  // Refills the internal buffer with the digits that follow those it holds, the first ones at first, from as
  // many files as there are; takes STREAM_BYTES at the first call. "No more digits left: " and the position
  // at the end of the stream.
  void reload() override;
  const char* stream() const { return stream_.get(); } // digits stream_start() and on
  u64 stream_start() const { return stream_start_; }
  u64 stream_digits() const { return stream_digits_; }

  bool states_total() const { return stated_; } // a file opened so far states the total
  u64 digits_per_file() const { return common_.digits_per_file; }
  const KCDHeader& common() const { return common_; } // of the first file
  // Numbers of the files in the folders, ascending. Empty when the folders cannot be listed.
  std::vector<u64> numbers() const;
  // The total, or else the end of the last file of the set, which get_digits returns from then on.
  u64 find_length();
  // Opens and checks one file; it is the one that reads of its digits use next.
  void open(u64 id);
  // Where a file is, or would be in the first folder.
  std::wstring path_of(u64 id) const;

private:
  void open_first();
  bool is_there(u64 id) const;

  FileSystem& files_;
  std::wstring base_name_;
  std::vector<std::wstring> folders_;
  std::wstring only_path_; // a file outside any set, and its number
  u64 only_id_ = 0;
  bool raw_;
  KCDHeader common_;
  u64 total_ = 0;
  bool stated_ = false; // total_ comes from a header
  KCDFile file_;        // the one opened last
  std::unique_ptr<char[]> stream_;
  u64 stream_start_ = 0, stream_digits_ = 0;
};

// Opens a digit file of either kind by its contents.
std::unique_ptr<DigitReader> open_reader(const std::wstring& path, bool raw,
                                         FileSystem& files = posix_files());

} // namespace kelvane::DigitViewer

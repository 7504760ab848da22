// Files: the one road from the program to the disk.
//
// Three layers. FileHandle and FileSystem are the primitives, shaped like system calls (a count or
// a negative errno, short transfers allowed), so that a test can put a disk in their place that is
// full, fails, lies about a transfer or forgets what was never synced. File is what the program
// uses: it finishes short transfers and turns every failure into a km_exception with the errno as
// code, its fixed message, a line of context as text and the path.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "shell/types.h"

namespace kelvane {

// One open file. All offsets and sizes are bytes; transfers are positioned, there is no file pointer,
// so several threads may use one handle. Destruction closes silently.
class FileHandle {
public:
  virtual ~FileHandle() = default;
  virtual s64 read(u64 offset, void* data, u64 bytes) = 0;        // bytes moved (0 at the end) or -errno
  virtual s64 write(u64 offset, const void* data, u64 bytes) = 0; // bytes moved or -errno
  virtual s64 size() = 0;
  virtual s32 resize(u64 bytes) = 0;  // 0 or -errno, as all below
  virtual s32 reserve(u64 bytes) = 0; // claims disk space for [0, bytes) without changing contents
  virtual s32 sync() = 0;             // returns when the contents are on the medium
  virtual s32 close() = 0;            // once; reports what the system found out late
};

enum class OpenMode {
  READ,       // existing file
  UPDATE,     // existing file, reading and writing
  CREATE,     // new or emptied, reading and writing
  CREATE_NEW, // refuses an existing file (EEXIST)
};

enum class PathKind { NONE, REGULAR, FOLDER, OTHER }; // OTHER: links, devices, pipes

class FileSystem {
public:
  virtual ~FileSystem() = default;
  // direct: transfers go past the system's cache; buffers, offsets and sizes must then be multiples
  // of 4096. A file system that cannot do that opens the file normally.
  virtual s32 open(std::unique_ptr<FileHandle>& out, const std::wstring& path, OpenMode mode,
                   bool direct = false) = 0;
  virtual s32 remove(const std::wstring& path) = 0;
  virtual s32 rename(const std::wstring& from, const std::wstring& to) = 0; // replaces `to` in one step
  virtual s32 sync_folder(const std::wstring& folder) = 0; // makes creations and renames in it lasting
  virtual PathKind kind(const std::wstring& path) = 0;     // of the path itself; links are not followed
  virtual s64 free_bytes(const std::wstring& folder) = 0;  // what this user may still write, or -errno
  // Appends the names in the folder (empty: the working directory), in any order. -ENOSYS where names can
  // only be asked for one by one.
  virtual s32 list(const std::wstring& folder, std::vector<std::wstring>& names);
};

FileSystem& posix_files();

class File {
public:
  File() = default;
  // Throws "Unable to open file." or, for the creating modes, "Unable to create file.".
  File(FileSystem& files, std::wstring path, OpenMode mode, bool direct = false);
  File(File&&) = default;
  File& operator=(File&&) = default;

  bool is_open() const { return handle_ != nullptr; }
  const std::wstring& path() const { return path_; }
  // Path that exceptions name instead, for a file that is written under a temporary name.
  void report_as(std::wstring path) { path_ = std::move(path); }

  u64 size() const;
  // Reads up to `bytes`, returns how many there were before the end. "Error Reading File".
  u64 read(u64 offset, void* data, u64 bytes) const;
  // Writes all or throws "Error writing to file.".
  void write(u64 offset, const void* data, u64 bytes) const;
  void resize(u64 bytes) const;
  void reserve(u64 bytes) const;
  void sync() const;
  void close(); // "Unable to close file."; the file counts as closed either way

private:
  std::unique_ptr<FileHandle> handle_;
  std::wstring path_;
};

void remove_file(FileSystem& files, const std::wstring& path); // "Unable to remove file."
void rename_file(FileSystem& files, const std::wstring& from,
                 const std::wstring& to); // "Unable to rename file."
void sync_folder(FileSystem& files, const std::wstring& folder);

// Makes or replaces a small text file.
void write_whole_file(const std::wstring& path, const std::string& text, FileSystem& files = posix_files());

// Makes or replaces a small file in one step: it is written beside its place, synced, and renamed, so that
// under its name there is the old text, the new text or nothing. A failure removes what was written.
void replace_whole_file(const std::wstring& path, const std::string& text, FileSystem& files = posix_files());

// `folder` with "/" appended when it is neither empty nor ends in "/" or "\".
std::wstring folder_prefix(const std::wstring& folder);
inline std::wstring in_folder(const std::wstring& folder, const std::wstring& name) {
  return folder_prefix(folder) + name;
}
// The folder part of a path, "." when it has none.
std::wstring folder_of(const std::wstring& path);
// The path from the root, for showing to the user.
std::wstring full_path(const std::wstring& path);

} // namespace kelvane

// Files on POSIX, and the throwing wrapper. See file.h.

#include "shell/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>

#include "shell/exception.h"

namespace kelvane {

namespace {

// Repeats a system call that a signal interrupted; -1 becomes -errno.
template <class F> auto call(const F& f) -> decltype(f()) {
  for (;;) {
    const auto result = f();
    if (result != -1) return result;
    if (errno != EINTR) return static_cast<decltype(f())>(-errno);
  }
}

class PosixHandle final : public FileHandle {
public:
  explicit PosixHandle(int fd) : fd_(fd) {}
  ~PosixHandle() override {
    if (fd_ >= 0) ::close(fd_);
  }
  PosixHandle(const PosixHandle&) = delete;
  PosixHandle& operator=(const PosixHandle&) = delete;

  s64 read(u64 offset, void* data, u64 bytes) override {
    return call([&] { return ::pread(fd_, data, bytes, static_cast<off_t>(offset)); });
  }
  s64 write(u64 offset, const void* data, u64 bytes) override {
    const s64 moved = call([&] { return ::pwrite(fd_, data, bytes, static_cast<off_t>(offset)); });
    if (moved != -ESPIPE) return moved; // pipes and terminals know no positions
    return call([&] { return ::write(fd_, data, bytes); });
  }
  s64 size() override {
    struct stat status {};
    const int result = call([&] { return ::fstat(fd_, &status); });
    return result < 0 ? result : static_cast<s64>(status.st_size);
  }
  s32 resize(u64 bytes) override {
    return call([&] { return ::ftruncate(fd_, static_cast<off_t>(bytes)); });
  }
  s32 reserve(u64 bytes) override {
    if (bytes == 0) return 0;
    return call([&] { return ::fallocate(fd_, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)); });
  }
  s32 sync() override {
    const s32 result = call([&] { return ::fsync(fd_); });
    return result == -EINVAL || result == -EROFS ? 0 : result; // nothing behind the file to sync
  }
  s32 close() override {
    const int fd = fd_;
    fd_ = -1;
    // Linux has released the descriptor even when close was interrupted: no second attempt.
    return fd < 0 || ::close(fd) == 0 || errno == EINTR ? 0 : -errno;
  }

private:
  int fd_;
};

class PosixFiles final : public FileSystem {
public:
  s32 open(std::unique_ptr<FileHandle>& out, const std::wstring& path, OpenMode mode, bool direct) override {
    int flags = O_CLOEXEC;
    switch (mode) {
    case OpenMode::READ:
      flags |= O_RDONLY;
      break;
    case OpenMode::UPDATE:
      flags |= O_RDWR;
      break;
    case OpenMode::CREATE:
      flags |= O_RDWR | O_CREAT | O_TRUNC;
      break;
    case OpenMode::CREATE_NEW:
      flags |= O_RDWR | O_CREAT | O_EXCL;
      break;
    }
    const std::string name = path_to_narrow(path);
    constexpr mode_t PERMISSIONS = 0666; // lowered by the user's mask
    int fd = -EINVAL;
    // Some file systems refuse direct transfers (EINVAL): the file is then opened without.
    if (direct) fd = call([&] { return ::open(name.c_str(), flags | O_DIRECT, PERMISSIONS); });
    if (fd == -EINVAL) fd = call([&] { return ::open(name.c_str(), flags, PERMISSIONS); });
    if (fd < 0) return fd;
    out = std::make_unique<PosixHandle>(fd);
    return 0;
  }
  s32 remove(const std::wstring& path) override {
    return call([&] { return ::unlink(path_to_narrow(path).c_str()); });
  }
  s32 rename(const std::wstring& from, const std::wstring& to) override {
    return call([&] { return ::rename(path_to_narrow(from).c_str(), path_to_narrow(to).c_str()); });
  }
  s32 sync_folder(const std::wstring& folder) override {
    const int fd =
        call([&] { return ::open(path_to_narrow(folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (fd < 0) return fd == -EACCES ? 0 : fd; // a folder may be writable without being readable
    return PosixHandle(fd).sync();
  }
  PathKind kind(const std::wstring& path) override {
    struct stat status {};
    if (::lstat(path_to_narrow(path).c_str(), &status) != 0) return PathKind::NONE;
    if (S_ISREG(status.st_mode)) return PathKind::REGULAR;
    return S_ISDIR(status.st_mode) ? PathKind::FOLDER : PathKind::OTHER;
  }
  s64 free_bytes(const std::wstring& folder) override {
    struct statvfs status {};
    const int result = call([&] { return ::statvfs(path_to_narrow(folder).c_str(), &status); });
    if (result < 0) return result;
    const u128 bytes = static_cast<u128>(status.f_bavail) * status.f_frsize;
    constexpr s64 MOST = std::numeric_limits<s64>::max();
    return bytes > static_cast<u128>(MOST) ? MOST : static_cast<s64>(bytes);
  }
  s32 list(const std::wstring& folder, std::vector<std::wstring>& names) override {
    std::error_code error;
    const std::string path = folder.empty() ? "." : path_to_narrow(folder);
    for (std::filesystem::directory_iterator i(path, error), end; !error && i != end; i.increment(error))
      names.push_back(path_to_wide(i->path().filename().string()));
    return error ? -error.value() : 0;
  }
};

void check(s64 result, const char* text, const std::wstring& path) {
  if (result < 0) throw_errno(static_cast<int>(-result), text, path);
}

} // namespace

s32 FileSystem::list(const std::wstring&, std::vector<std::wstring>&) {
  return -ENOSYS;
}

FileSystem& posix_files() {
  static PosixFiles files; // stateless
  return files;
}

File::File(FileSystem& files, std::wstring path, OpenMode mode, bool direct) : path_(std::move(path)) {
  const bool creates = mode == OpenMode::CREATE || mode == OpenMode::CREATE_NEW;
  check(files.open(handle_, path_, mode, direct), creates ? "Unable to create file." : "Unable to open file.",
        path_);
}

u64 File::size() const {
  const s64 bytes = handle_->size();
  check(bytes, "Error Reading File", path_);
  return static_cast<u64>(bytes);
}

u64 File::read(u64 offset, void* data, u64 bytes) const {
  u64 done = 0;
  while (done < bytes) {
    const s64 moved = handle_->read(offset + done, static_cast<u8*>(data) + done, bytes - done);
    check(moved, "Error Reading File", path_);
    if (moved == 0) break;
    done += static_cast<u64>(moved);
  }
  return done;
}

// A nearly full disk first writes a part and gives its reason only when asked for the rest.
void File::write(u64 offset, const void* data, u64 bytes) const {
  u64 done = 0;
  while (done < bytes) {
    const s64 moved = handle_->write(offset + done, static_cast<const u8*>(data) + done, bytes - done);
    // A write that moves nothing and names no reason would loop for ever: the device is at fault.
    check(moved == 0 ? -EIO : moved, "Error writing to file.", path_);
    done += static_cast<u64>(moved);
  }
}

void File::resize(u64 bytes) const {
  check(handle_->resize(bytes), "Error writing to file.", path_);
}

void File::reserve(u64 bytes) const {
  const s32 result = handle_->reserve(bytes);
  if (result == -EOPNOTSUPP || result == -ENOSYS) return; // space is then claimed by writing
  check(result, "Error writing to file.", path_);
}

void File::sync() const {
  check(handle_->sync(), "Error writing to file.", path_);
}

void File::close() {
  if (handle_ == nullptr) return;
  const std::unique_ptr<FileHandle> handle = std::move(handle_);
  check(handle->close(), "Unable to close file.", path_);
}

void remove_file(FileSystem& files, const std::wstring& path) {
  check(files.remove(path), "Unable to remove file.", path);
}

void rename_file(FileSystem& files, const std::wstring& from, const std::wstring& to) {
  check(files.rename(from, to), "Unable to rename file.", to);
}

void sync_folder(FileSystem& files, const std::wstring& folder) {
  check(files.sync_folder(folder), "Error writing to file.", folder);
}

void write_whole_file(const std::wstring& path, const std::string& text, FileSystem& files) {
  File file(files, path, OpenMode::CREATE);
  file.write(0, text.data(), text.size());
  file.sync();
  file.close();
}

void replace_whole_file(const std::wstring& path, const std::string& text, FileSystem& files) {
  const std::wstring incomplete = path + L".incomplete";
  try {
    write_whole_file(incomplete, text, files);
    rename_file(files, incomplete, path);
  } catch (km_exception& e) {
    files.remove(incomplete); // may not exist
    e.wtext = path;
    throw;
  }
  sync_folder(files, folder_of(path));
}

std::wstring folder_prefix(const std::wstring& folder) {
  if (folder.empty() || folder.back() == L'/' || folder.back() == L'\\') return folder;
  return folder + L"/";
}

std::wstring folder_of(const std::wstring& path) {
  const size_t slash = path.rfind(L'/');
  if (slash == std::wstring::npos) return L".";
  return slash == 0 ? L"/" : path.substr(0, slash);
}

std::wstring full_path(const std::wstring& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path_to_narrow(path), error);
  return error ? path : path_to_wide(absolute.lexically_normal().string());
}

} // namespace kelvane

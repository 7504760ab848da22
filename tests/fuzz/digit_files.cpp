// Fuzz target: any bytes as digit files, through every operation of the readers.
//
// The input is one file or, cut at SEPARATOR, several: "x0.kcd", "x1.kcd" and so on, of one folder. Whatever
// they hold, readers answer or throw a km_exception. That they agree is checked too: digits read at once are
// those read in pieces, as values and as characters.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "digits/conversions.h"
#include "digits/kcd_reader.h"
#include "shell/exception.h"

namespace {

using namespace kelvane;
using namespace kelvane::DigitViewer;

constexpr const char* SEPARATOR = "\n--file--\n";
constexpr u64 MOST_DIGITS = 3000; // looked at in each place

// Files in memory, for reading.
class Folder final : public FileSystem {
public:
  std::map<std::wstring, std::string> files;

  s32 open(std::unique_ptr<FileHandle>& out, const std::wstring& path, OpenMode mode, bool) override {
    const auto file = files.find(path);
    if (file == files.end() || mode != OpenMode::READ) return -ENOENT;
    out = std::make_unique<Handle>(file->second);
    return 0;
  }
  s32 remove(const std::wstring&) override { return -EROFS; }
  s32 rename(const std::wstring&, const std::wstring&) override { return -EROFS; }
  s32 sync_folder(const std::wstring&) override { return -EROFS; }
  PathKind kind(const std::wstring& path) override {
    return files.count(path) != 0 ? PathKind::REGULAR : PathKind::NONE;
  }
  s64 free_bytes(const std::wstring&) override { return 0; }
  s32 list(const std::wstring&, std::vector<std::wstring>& names) override {
    for (const auto& [name, text] : files) names.push_back(name);
    return 0;
  }

private:
  struct Handle final : FileHandle {
    explicit Handle(const std::string& text) : text_(text) {}
    s64 read(u64 offset, void* data, u64 bytes) override {
      const u64 n = offset < text_.size() ? std::min<u64>(bytes, text_.size() - offset) : 0;
      std::memcpy(data, text_.data() + offset, n);
      return static_cast<s64>(n);
    }
    s64 write(u64, const void*, u64) override { return -EROFS; }
    s64 size() override { return static_cast<s64>(text_.size()); }
    s32 resize(u64) override { return -EROFS; }
    s32 reserve(u64) override { return -EROFS; }
    s32 sync() override { return 0; }
    s32 close() override { return 0; }
    const std::string& text_;
  };
};

void expect(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

// True when f did not throw.
bool works(const std::function<void()>& f) {
  try {
    f();
    return true;
  } catch (const km_exception&) {
    return false;
  }
}

void read_about(DigitReader& reader, u64 position, u64 count) {
  std::string whole(count, '?'), pieces(count, '?'), raw(count, '?');
  reader.set_raw(false);
  if (!works([&] { reader.read(position, whole.data(), count); })) return;
  const u64 third = count / 3;
  reader.read(position, pieces.data(), third);
  reader.read(position + third, pieces.data() + third, count - third);
  expect(whole == pieces, "digits read in pieces differ");
  reader.set_raw(true);
  reader.read(position, raw.data(), count);
  expect(CVN::str_to_raw(pieces.data(), whole.data(), count, reader.get_radix()) == count, "not a digit");
  expect(raw == pieces, "values and characters differ");
}

void use(DigitReader& reader) {
  const u64 total = reader.get_digits();
  reader.get_first_digits();
  read_about(reader, 0, std::min(total, MOST_DIGITS));
  read_about(reader, 50, 200);
  read_about(reader, total / 2, 19);
  read_about(reader, total, 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
  Folder folder;
  const std::string input(reinterpret_cast<const char*>(data), size);
  size_t start = 0;
  for (int number = 0; number < 8 && start <= input.size(); ++number) {
    const size_t end = input.find(SEPARATOR, start);
    folder.files[L"x" + std::to_wstring(number) + L".kcd"] = input.substr(start, end - start);
    if (end == std::string::npos) break;
    start = end + std::strlen(SEPARATOR);
  }

  works([&] {
    const KCDFile file(L"x0.kcd", folder);
    const KCDHeader& h = file.header();
    expect(h.digits > 0 && h.words > 0 && h.start + h.digits > h.start, "a file without digits");
    u64 words[200];
    for (const u64 position : {u64{0}, u64{1}, h.words - 1, h.words, ~u64{0}})
      for (const u64 count : {u64{1}, u64{200}}) works([&] { file.read_words(position, words, count); });
    file.check_size();
  });
  works([&] {
    KCDReader reader(L"x", {L""}, false, folder);
    use(reader);
    works([&] { reader.find_length(); });
    use(reader);
    if (size % 8 != 0) return; // what prints is slow
    reader.print_info();
    for (const u64 end : {u64{1}, u64{1000}, ~u64{0}}) works([&] { reader.check_range(end / 2, end); });
  });
  works([&] { use(*open_reader(folder.files.rbegin()->first, false, folder)); });
  works([&] {
    TextReader reader(L"x0.kcd", false, 16, folder);
    use(reader);
  });
  return 0;
}

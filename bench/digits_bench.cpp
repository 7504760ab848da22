// Speed of digit files from memory, on one thread: conversions, compressed files, and what the companion
// does.
//
// Usage: digits_bench [DIGITS [ROUNDS]]      (default 100,000,000 and 5)
//
// Prints the median of the rounds in GB (10^9) of digits per second. Files are kept in memory, so that no
// disk is measured.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "companion/analysis.h"
#include "companion/sha1.h"
#include "digits/conversions.h"
#include "digits/kcd_reader.h"
#include "digits/kcd_writer.h"
#include "shell/status_line.h"

using namespace kelvane;

namespace {

u64 rounds = 5;

// One file whose memory has been touched beforehand.
class OneFile final : public FileSystem {
public:
  explicit OneFile(u64 bytes) : data_(bytes) {}
  s32 open(std::unique_ptr<FileHandle>& out, const std::wstring&, OpenMode mode, bool) override {
    if (mode != OpenMode::READ) size_ = 0;
    out = std::make_unique<Handle>(*this);
    return 0;
  }
  s32 remove(const std::wstring&) override { return 0; }
  s32 rename(const std::wstring&, const std::wstring&) override { return 0; }
  s32 sync_folder(const std::wstring&) override { return 0; }
  PathKind kind(const std::wstring& path) override {
    return path == L"x0.kcd" && size_ != 0 ? PathKind::REGULAR : PathKind::NONE;
  }
  s64 free_bytes(const std::wstring&) override { return 0; }

private:
  struct Handle final : FileHandle {
    explicit Handle(OneFile& file) : file_(file) {}
    s64 read(u64 offset, void* data, u64 bytes) override {
      const u64 n = offset < file_.size_ ? std::min(bytes, file_.size_ - offset) : 0;
      std::memcpy(data, file_.data_.data() + offset, n);
      return static_cast<s64>(n);
    }
    s64 write(u64 offset, const void* data, u64 bytes) override {
      std::memcpy(file_.data_.data() + offset, data, bytes);
      file_.size_ = std::max(file_.size_, offset + bytes);
      return static_cast<s64>(bytes);
    }
    s64 size() override { return static_cast<s64>(file_.size_); }
    s32 resize(u64) override { return 0; }
    s32 reserve(u64) override { return 0; }
    s32 sync() override { return 0; }
    s32 close() override { return 0; }
    OneFile& file_;
  };
  std::vector<char> data_;
  u64 size_ = 0;
};

void measure(const char* what, u64 digits, const std::function<void()>& f) {
  std::vector<double> seconds;
  f(); // touches the memory
  for (u64 i = 0; i < rounds; ++i) {
    const double start = Console::wall_seconds();
    f();
    seconds.push_back(Console::wall_seconds() - start);
  }
  std::sort(seconds.begin(), seconds.end());
  std::printf("  %-44s %6.2f\n", what, static_cast<double>(digits) * 1e-9 / seconds[seconds.size() / 2]);
  std::fflush(stdout);
}

void bench(int radix, u64 digits) {
  const u64 per_word = CVN::digits_per_word(radix), words = digits / per_word;
  digits = words * per_word;
  std::vector<u64> packed(words), again(words);
  std::mt19937_64 random(1);
  for (u64& word : packed) word = radix == 16 ? random() : random() % CVN::DECIMAL_RADIX;
  std::vector<char> raw(digits), text(digits), other(digits);
  std::printf("radix %d, GB of digits per second on one thread\n", radix);
  measure("words to values", digits, [&] { CVN::u64_to_raw(raw.data(), packed.data(), words, radix); });
  measure("words to characters", digits, [&] { CVN::u64_to_str(text.data(), packed.data(), words, radix); });
  measure("values to words", digits, [&] { CVN::raw_to_u64(again.data(), raw.data(), words, radix); });
  measure("values to characters", digits, [&] { CVN::raw_to_str(other.data(), raw.data(), digits, radix); });
  measure("characters to values, checked", digits,
          [&] { CVN::str_to_raw(other.data(), text.data(), digits, radix); });
  if (packed != again) std::exit(1);

  OneFile files(words * 8 + 4096);
  std::vector<char> buffer(u64{1} << 20);
  constexpr u64 BLOCK = u64{4} << 20;
  measure("KCDWriter", digits, [&] {
    DigitViewer::KCDWriter writer(L"", L"x", "3.", DigitViewer::ONE_FILE, 0, radix, buffer.size(),
                                  buffer.data(), nullptr, files);
    for (u64 at = 0; at < digits; at += BLOCK) writer.write(raw.data() + at, std::min(BLOCK, digits - at));
    writer.close();
  });
  measure("KCDWriter, pieces of 1000 digits", digits, [&] {
    DigitViewer::KCDWriter writer(L"", L"x", "3.", DigitViewer::ONE_FILE, 0, radix, buffer.size(),
                                  buffer.data(), nullptr, files);
    for (u64 at = 0; at < digits; at += 1000) writer.write(raw.data() + at, std::min(u64{1000}, digits - at));
    writer.close();
  });
  for (const bool values : {true, false})
    measure(values ? "KCDReader, values" : "KCDReader, characters", digits, [&] {
      DigitViewer::KCDReader reader(L"x", {}, values, files);
      for (u64 at = 0; at < digits; at += BLOCK)
        reader.read(at, other.data() + at, std::min(BLOCK, digits - at));
    });
  if (std::memcmp(other.data(), text.data(), digits) != 0) std::exit(1);

  measure("find, 12 digits", digits, [&] {
    companion::PatternSearch search("123456789012");
    std::vector<u64> found;
    search.add(text.data(), digits, 1000, found);
  });
  measure("compare", digits, [&] {
    if (std::memcmp(other.data(), text.data(), digits) != 0) std::exit(1);
  });
  measure("residue", digits, [&] {
    companion::DigitResidue residue(radix);
    residue.add(text.data(), digits);
    if (residue.value() == ~u64{0}) std::exit(1);
  });
  measure("counts", digits, [&] {
    u64 counts[16] = {};
    companion::count_digits(counts, raw.data(), digits, radix);
    if (counts[0] == 0) std::exit(1);
  });
  const auto sha1 = [&](auto blocks) {
    u32 state[5] = {};
    blocks(state, reinterpret_cast<const u8*>(text.data()), digits / 64);
  };
  measure("SHA-1, portable", digits, [&] { sha1(companion::Sha1::blocks_portable); });
  if (companion::Sha1::has_instructions())
    measure("SHA-1, with its instructions", digits, [&] { sha1(companion::Sha1::blocks_sha); });
}

} // namespace

int main(int argc, char** argv) {
  const u64 digits = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100'000'000;
  if (argc > 2) rounds = std::strtoull(argv[2], nullptr, 10);
  bench(10, digits);
  bench(16, digits);
}

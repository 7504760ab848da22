#include "shell/status_line.h"

#include <gtest/gtest.h>

#include <thread>

#include "shell/console.h"
#include "support/capture.h"

namespace kelvane {
namespace {

using Console::Progress;
using Console::StatusLine;

const std::string CLEAR = "\r" + std::string(79, ' ') + "\r";

std::string shown(const std::vector<std::string>& segments, u64 width = 79) {
  const std::string text = capture([&] {
                             StatusLine line;
                             line.width = width;
                             for (const std::string& s : segments) line.segments.push_back({'W', s});
                             line.refresh(2);
                           }).output;
  return text.substr(width + 2);
}

TEST(StatusLine, StaysWithinItsWidth) {
  const std::string a40(40, 'a'), b39(39, 'b'), c1 = "c";
  EXPECT_EQ(shown({a40, b39}), a40 + b39) << "exactly full";
  EXPECT_EQ(shown({a40, b39, c1}), a40 + " ...");
  EXPECT_EQ(shown({a40, a40}), a40 + " ...");
  EXPECT_EQ(shown({"abcdef", "ghijk"}, 10), "abcdef ...") << "room for the ellipsis is kept";
  EXPECT_EQ(shown({"abcd"}, 3), "") << "too narrow for an ellipsis";
}

TEST(StatusLine, ColorsChangeOnlyWhenNeeded) {
  const Captured c = capture(
      [] {
        StatusLine line;
        line.newline = 1;
        line.segments = {{'W', "w"}, {'G', "a"}, {'G', "b"}, {'r', "c"}};
        line.refresh(0);
        line.refresh(1);
        line.refresh(1); // within the interval
      },
      {}, Orientation::wide, true);
  EXPECT_EQ(c.output, CLEAR + "w\033[01;32mab\033[22;31mc\033[01;37m\n");
}

TEST(Progress, ShowsShareAndTimesAndClears) {
  const Captured c = capture([] {
    Progress progress("Summing Series...", 200);
    progress.add(199.99);
    EXPECT_DOUBLE_EQ(progress.done(), 199.99);
    Console::status_line().interval = 0;
    progress.tick();
    progress.add(50); // more than announced
  });
  const size_t second = c.output.find("Summing", CLEAR.size() + 1);
  ASSERT_NE(second, std::string::npos) << c.output;
  EXPECT_EQ(c.output.substr(CLEAR.size(), 34), "Summing Series...    0.0%  elapsed");
  EXPECT_EQ(c.output.substr(second, 34), "Summing Series...   99.9%  elapsed");
  EXPECT_NE(c.output.find(" s, remaining 0.0 s", second), std::string::npos) << c.output;
  EXPECT_NE(c.output.find("100.0%"), std::string::npos);
  EXPECT_EQ(c.output.substr(c.output.size() - CLEAR.size()), CLEAR);
}

TEST(Progress, LongLabelsAreCut) {
  const Captured c = capture([] { Progress progress(std::string(200, 'x').c_str(), 1); });
  EXPECT_NE(c.output.find("xxx  0.0%  elapsed "), std::string::npos) << c.output;
  EXPECT_EQ(c.output.size(), 3 * CLEAR.size() - 2) << "one full line between two clearings";
}

TEST(Progress, OnlyItsOwnThreadDraws) {
  const Captured c = capture([] {
    Console::status_line().interval = 0;
    Progress progress("p", 4000);
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; i++) {
      workers.emplace_back([&] {
        for (int k = 0; k < 1000; k++) progress.add(1);
      });
    }
    for (std::thread& w : workers) w.join();
    Console::print(progress.done() == 4000 ? "complete" : "lost");
  });
  EXPECT_NE(c.output.find("complete"), std::string::npos);
  size_t drawn = 0;
  for (size_t i = c.output.find("p  "); i != std::string::npos; i = c.output.find("p  ", i + 1)) drawn++;
  EXPECT_EQ(drawn, 1u);
}

} // namespace
} // namespace kelvane

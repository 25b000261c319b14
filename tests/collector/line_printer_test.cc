#include "collector/line_printer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/collector/small_pipe.h"

namespace zln::collector {
namespace {

constexpr char kLeftOut[] = "(left out here, because nobody took them: ";

class LinePrinterTest : public testing::Test {
 protected:
  void print(int number) { printer_->print("line " + std::to_string(number)); }

  std::string readLine() const {
    std::string line;
    for (int byte; (byte = std::getc(reader_.get())) != EOF && byte != '\n';) {
      line += static_cast<char>(byte);
    }
    return line;
  }

  SmallPipe pipe_;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> reader_{
      ::fdopen(::dup(pipe_.reading()), "r"), std::fclose};
  std::unique_ptr<LinePrinter> printer_ = std::make_unique<LinePrinter>(pipe_.writing());
};

TEST_F(LinePrinterTest, PrintsInOrder) {
  for (int i = 0; i < 5000; ++i) print(i);

  for (int i = 0; i < 5000; ++i) ASSERT_EQ("line " + std::to_string(i), readLine());
}

TEST_F(LinePrinterTest, SaysHowManyLinesItHasLeftOut) {
  constexpr int kLines = 300000;
  for (int i = 0; i < kLines; ++i) print(i);

  int printed = 0;
  std::string line = readLine();
  for (; line == "line " + std::to_string(printed); line = readLine()) ++printed;
  EXPECT_EQ(kLeftOut + std::to_string(kLines - printed) + " lines)", line);
  EXPECT_LT(10000, printed);

  print(kLines);
  EXPECT_EQ("line " + std::to_string(kLines), readLine());
}

TEST_F(LinePrinterTest, PrintsWhatWaitsAtItsEnd) {
  std::vector<std::string> lines;
  std::thread reader([&] {
    for (int i = 0; i < 2000; ++i) lines.push_back(readLine());
  });
  for (int i = 0; i < 2000; ++i) print(i);
  printer_.reset();
  pipe_.takeWriting();
  reader.join();

  EXPECT_EQ("line 1999", lines.back());
}

TEST_F(LinePrinterTest, EndsThoughNobodyReads) {
  for (int i = 0; i < 2000; ++i) print(i);

  const auto begin = std::chrono::steady_clock::now();
  printer_.reset();

  EXPECT_GT(std::chrono::seconds(20), std::chrono::steady_clock::now() - begin);
  for (int i = 0; i < 2000; ++i) ASSERT_EQ("line " + std::to_string(i), readLine());
  // The printer's thread has been left behind with it.
  [[maybe_unused]] static const auto* const stillOpen = new OwnedSocket(pipe_.takeWriting());
}

TEST_F(LinePrinterTest, WaitsForADescriptorThatDoesNotBlock) {
  ASSERT_EQ(0, ::fcntl(pipe_.writing(), F_SETFL, O_NONBLOCK));

  for (int i = 0; i < 5000; ++i) print(i);

  for (int i = 0; i < 5000; ++i) ASSERT_EQ("line " + std::to_string(i), readLine());
}

}  // namespace
}  // namespace zln::collector

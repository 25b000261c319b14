// What saving costs without a library around it. Two files change places by one rename, so that the
// file of owed reports is whole at every moment, and every report's text is made once.
//
// usage: saving_yardstick whole|tail calls|take-up FILE COUNT [CALLS PAUSE]
//   whole    every save writes all of the file
//   tail     every save writes what the twin does not hold yet
//   calls    COUNT reports are there; times CALLS further ones, each PAUSE milliseconds after
//            another
//   take-up  times COUNT saves of one report more each
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "bench/sample_report.h"

namespace zln::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kRenameExchange = 1U << 1;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void tellTime(const char* name, Clock::time_point begin) {
  const std::chrono::duration<double, std::micro> spent = Clock::now() - begin;
  std::printf("%s %.3f\n", name, spent.count());
}

// The file of owed reports and its twin.
class TwinFiles {
 public:
  explicit TwinFiles(const std::string& path) : path_(path), twinPath_(path + ".twin") {
    stale_ = open(twinPath_);
    current_ = open(path_);
  }

  // Puts `image` in place. Its first `kept` bytes may be those that the stale file already has.
  void save(std::string_view image, std::size_t kept) {
    write(image.substr(kept), static_cast<off_t>(kept));
    if (::ftruncate(stale_, static_cast<off_t>(image.size())) != 0) fail("ftruncate");
    if (::syscall(SYS_renameat2, AT_FDCWD, twinPath_.c_str(), AT_FDCWD, path_.c_str(),
                  kRenameExchange) != 0) {
      fail("renameat2");
    }
    std::swap(stale_, current_);
  }

  off_t size() const {
    struct stat file;
    return ::stat(path_.c_str(), &file) == 0 ? file.st_size : -1;
  }

 private:
  static int open(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0) fail("open");
    return descriptor;
  }

  void write(std::string_view bytes, off_t at) {
    while (!bytes.empty()) {
      const ssize_t written = ::pwrite(stale_, bytes.data(), bytes.size(), at);
      if (written <= 0) fail("pwrite");
      bytes.remove_prefix(static_cast<std::size_t>(written));
      at += written;
    }
  }

  std::string path_;
  std::string twinPath_;
  int stale_;
  int current_;
};

class OwedReports {
 public:
  virtual ~OwedReports() = default;
  virtual void add(const SampleReport& report) = 0;
  virtual void save() = 0;
};

// Puts the whole image together from the reports' texts at every save.
class WholeImage : public OwedReports {
 public:
  explicit WholeImage(TwinFiles& files) : files_(files) {}

  void add(const SampleReport& report) override { elements_.push_back(report.element()); }

  void save() override {
    image_ = kDocumentHead;
    for (const std::string& element : elements_) image_ += element;
    image_ += kDocumentTail;
    files_.save(image_, 0);
  }

 private:
  TwinFiles& files_;
  std::vector<std::string> elements_;
  std::string image_;
};

// Keeps one image, to which reports are only added; each file knows how much of it it has.
class GrowingImage : public OwedReports {
 public:
  GrowingImage(TwinFiles& files, bool wholeSaves) : files_(files), wholeSaves_(wholeSaves) {}

  void add(const SampleReport& report) override { image_ += report.element(); }

  void save() override {
    const std::size_t length = image_.size();
    image_ += kDocumentTail;
    files_.save(image_, wholeSaves_ ? 0 : keptByStale_);
    image_.resize(length);
    keptByStale_ = std::exchange(keptByCurrent_, length);
  }

 private:
  TwinFiles& files_;
  bool wholeSaves_;
  std::string image_{kDocumentHead};
  std::size_t keptByStale_ = 0;
  std::size_t keptByCurrent_ = 0;
};

void timeCalls(OwedReports& owed, const TwinFiles& files, unsigned depth, unsigned calls,
               std::chrono::milliseconds pause) {
  for (unsigned number = 0; number < depth; ++number) owed.add(SampleReport(number));
  owed.save();
  owed.save();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  for (unsigned number = 0; number < calls; ++number) {
    std::this_thread::sleep_for(pause);
    const off_t before = files.size();
    const auto begin = Clock::now();
    owed.add(SampleReport(number));
    owed.save();
    tellTime("call_us", begin);
    if (files.size() <= before) fail("the report is not in the file");
  }
}

void timeTakeUp(OwedReports& owed, unsigned count) {
  std::vector<SampleReport> reports;
  for (unsigned number = 0; number < count; ++number) reports.emplace_back(number);
  const auto begin = Clock::now();
  for (const SampleReport& report : reports) {
    owed.add(report);
    owed.save();
  }
  tellTime("take_up_us", begin);
}

int run(const std::vector<std::string>& words) {
  if (words.size() < 4) return 2;
  const bool whole = words[0] == "whole";
  const auto count = static_cast<unsigned>(std::stoul(words[3]));
  const unsigned calls = words.size() > 4 ? static_cast<unsigned>(std::stoul(words[4])) : 0;
  const std::chrono::milliseconds pause{words.size() > 5 ? std::stoi(words[5]) : 0};
  TwinFiles files(words[2]);
  WholeImage wholeImage(files);
  GrowingImage growingImage(files, whole);
  if (words[1] == "take-up") {
    timeTakeUp(growingImage, count);
  } else if (whole) {
    timeCalls(wholeImage, files, count, calls, pause);
  } else {
    timeCalls(growingImage, files, count, calls, pause);
  }
  return 0;
}

}  // namespace
}  // namespace zln::bench

int main(int argc, char** argv) { return zln::bench::run({argv + 1, argv + argc}); }

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "platform/value.h"
#include "reports/ZLNReportBase.h"

namespace zln {

// The file of the pending reports, a property list. It is made from one list of reports after the
// other; the text that two lists have in common at their beginning stays. One thread at a time uses
// it.
//
// Until forgetStored(), every list has what an earlier process left at its end.
class ReportFile {
 public:
  using Reports = std::vector<std::shared_ptr<ZLNReportBase>>;

  // `sparePath` belongs to this file alone.
  ReportFile(std::string path, std::string sparePath);

  // Begins a list.
  void begin();
  // Lists the report that the last list has for this carrier, unless it is one of `left`. False,
  // and nothing is listed, when the last list does not have it here or the report has changed.
  bool keep(const void* carrier, const Reports& left) {
    if (isSame_ && left.empty() && listed_ < entries_.size() && entries_[listed_].is(carrier)) {
      end_ += entries_[listed_++].size;
      return true;
    }
    return keepLater(carrier, left);
  }
  // Lists a report. `carrier` is what keep() is asked for later. False when the report has no
  // dictionary form.
  bool add(std::shared_ptr<const void> carrier, const std::shared_ptr<ZLNReportBase>& report);
  // How many reports are listed.
  std::size_t count() const { return listed_ + unwritable_; }
  // Ends the list and puts it in place of the file. False when that fails, or when the file of an
  // earlier process cannot be read now; the file then stays as it is.
  bool write();

  // The elements of a list, as its text has them.
  using Elements = std::shared_ptr<const std::string>;
  // What an earlier process left: its list, and the one before it, in case that a power cut has
  // spoilt the first. Either may be null.
  struct Stored {
    Elements last;
    Elements before;
  };
  Stored stored();
  // True when a list that was written has it.
  bool forgetStored() {
    stored_ = {};
    return size_ > 0;
  }
  // The first of the two that can be read.
  static Array listIn(const Stored& stored);

 private:
  struct Entry {
    bool is(const void* other) const {
      return carrier.get() == other && report->revision() == revision;
    }

    std::shared_ptr<const void> carrier;
    std::shared_ptr<ZLNReportBase> report;
    std::uint64_t revision;
    ReportElement element;
    std::size_t size;
  };

  bool keepLater(const void* carrier, const Reports& left);
  void append(Entry entry);
  // From here on the list differs from the last one.
  void part();
  bool readStored();

  const std::string path_;
  const std::string sparePath_;
  std::shared_ptr<AtomicFile> file_;

  // The list, and how many of its reports the file cannot hold. While it is the same as the last
  // list, what follows `listed_` and `end_` is still that one's; afterwards the rest of that is in
  // `last_`, from `next_` on.
  std::vector<Entry> entries_;
  std::size_t listed_ = 0;
  std::size_t unwritable_ = 0;
  std::string text_;
  std::size_t end_;
  bool isSame_ = true;
  std::vector<Entry> last_;
  std::size_t next_ = 0;
  // How much of it, from the beginning, is in place, and how large the file in place is.
  std::size_t inPlace_ = 0;
  std::size_t size_ = 0;

  bool isStoredRead_ = false;
  Stored stored_;
};

}  // namespace zln

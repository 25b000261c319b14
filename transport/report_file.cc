#include "transport/report_file.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/property_list.h"
#include "support/process_state.h"

namespace zln {
namespace {

using property_list::kDocumentHead;
using property_list::kDocumentTail;

constexpr std::string_view kArrayBegin = "<array>\n";
constexpr std::string_view kArrayEnd = "</array>\n";
constexpr std::string_view kEmptyArray = "<array/>\n";

std::string head() { return std::string(kDocumentHead).append(kArrayBegin); }
std::string tail() { return std::string(kArrayEnd).append(kDocumentTail); }

// No longer list is written, and so none is read.
constexpr std::size_t kLargestFile = property_list::kLargestDocument;
// For a full list of ordinary reports: a text that outgrows its room moves, and the save in which
// it does takes several times as long as others. Room that was never used takes no memory.
constexpr std::size_t kRoom = std::size_t{1} << 20;
// How many entries of the last list may be passed over at a time: those of finished operations.
constexpr std::size_t kLookahead = 4;

std::optional<Array> arrayIn(std::string_view content) {
  const std::optional<Value> root = property_list::read(content);
  if (!root || root->array() == nullptr) return std::nullopt;
  return *root->array();
}

// Null when the content is no list. One that this class wrote is not read for that; a power cut
// mostly leaves zeros where bytes are missing.
ReportFile::Elements elementsIn(std::string content) {
  const auto hasOurForm = [&] {
    return content.starts_with(head()) && content.ends_with(tail()) &&
           content.find('\0') == std::string::npos;
  };
  if (!hasOurForm()) {
    const std::optional<Array> list = arrayIn(content);
    const auto written = list ? property_list::write(*list) : std::nullopt;
    if (!written) return nullptr;
    content = *written;
    if (list->empty()) content = head() + tail();
  }
  content.resize(content.size() - tail().size());
  content.erase(0, head().size());
  return std::make_shared<const std::string>(std::move(content));
}

}  // namespace

ReportFile::ReportFile(std::string path, std::string sparePath)
    : path_(std::move(path)), sparePath_(std::move(sparePath)), text_(head()), end_(text_.size()) {}

void ReportFile::begin() {
  if (text_.capacity() < kRoom) text_.reserve(kRoom);
  listed_ = 0;
  unwritable_ = 0;
  end_ = kDocumentHead.size() + kArrayBegin.size();
  isSame_ = true;
}

bool ReportFile::keepLater(const void* carrier, const Reports& left) {
  const std::vector<Entry>& rest = isSame_ ? entries_ : last_;
  const std::size_t begin = isSame_ ? listed_ : next_;
  const std::size_t end = std::min(begin + kLookahead, rest.size());
  std::size_t at = begin;
  while (at < end && rest[at].carrier.get() != carrier) ++at;
  if (at == end || !rest[at].is(carrier)) return false;

  const bool isLeft = std::find(left.begin(), left.end(), rest[at].report) != left.end();
  if (isSame_ && at == begin && !isLeft) {
    end_ += rest[at].size;
    ++listed_;
    return true;
  }
  part();
  next_ += at - begin + 1;
  if (!isLeft) append(std::move(last_[next_ - 1]));
  return true;
}

bool ReportFile::add(std::shared_ptr<const void> carrier,
                     const std::shared_ptr<ZLNReportBase>& report) {
  const std::uint64_t revision = report->revision();
  ReportElement element = report->toElement();
  if (!element) return false;
  const std::size_t size = element->size();
  Entry entry{std::move(carrier), report, revision, std::move(element), size};
  if (size == 0) {
    ++unwritable_;
  } else if (isSame_ && listed_ < entries_.size() && entries_[listed_].element == entry.element) {
    entries_[listed_++] = std::move(entry);
    end_ += size;
  } else {
    part();
    append(std::move(entry));
  }
  return true;
}

void ReportFile::part() {
  if (!std::exchange(isSame_, false)) return;
  const auto rest = entries_.begin() + static_cast<std::ptrdiff_t>(listed_);
  last_.assign(std::make_move_iterator(rest), std::make_move_iterator(entries_.end()));
  entries_.erase(rest, entries_.end());
  next_ = 0;
  text_.resize(end_);
  inPlace_ = std::min(inPlace_, end_);
}

void ReportFile::append(Entry entry) {
  text_ += *entry.element;
  end_ += entry.size;
  entries_.push_back(std::move(entry));
  ++listed_;
}

bool ReportFile::write() {
  if (listed_ < entries_.size()) part();
  last_.clear();
  if (unwritable_ > 0 || !readStored()) return false;
  const std::string_view stored = stored_.last ? *stored_.last : std::string_view();
  const bool isEmpty = listed_ == 0 && stored.empty();
  if (isEmpty) {
    // A long list that is gone does not keep its memory.
    text_ = std::string(kDocumentHead).append(kEmptyArray).append(kDocumentTail);
    entries_ = {};
    last_ = {};
    inPlace_ = 0;
  } else {
    text_.append(stored).append(kArrayEnd).append(kDocumentTail);
  }

  const bool isUnchanged = text_.size() == size_ && (isEmpty || inPlace_ == end_);
  const bool isWritten = text_.size() <= kLargestFile &&
                         file_->replace(text_, isUnchanged ? size_ : inPlace_, nullptr);
  if (isWritten) {
    inPlace_ = isEmpty ? 0 : end_;
    size_ = text_.size();
  }
  text_.resize(end_);
  if (isEmpty) text_ = head();
  return isWritten;
}

ReportFile::Stored ReportFile::stored() {
  readStored();
  return stored_;
}

Array ReportFile::listIn(const Stored& stored) {
  for (const Elements& elements : {stored.last, stored.before}) {
    if (!elements) continue;
    if (auto list = arrayIn(head().append(*elements).append(tail()))) return std::move(*list);
  }
  return {};
}

bool ReportFile::readStored() {
  if (isStoredRead_) return true;
  Files& files = environment().files;
  Error error;
  std::optional<std::string> content = files.read(path_, kLargestFile, &error);
  if (!content && error.code != kReadTooLarge && !isFileMissing(error)) return false;
  if (content) {
    stored_.last = elementsIn(std::move(*content));
    stored_.before = elementsIn(files.read(sparePath_, kLargestFile, nullptr).value_or(""));
    if (!stored_.last) stored_.last.swap(stored_.before);
  }
  file_ = files.atomicFile(path_, sparePath_);
  isStoredRead_ = true;
  return true;
}

}  // namespace zln

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

std::size_t bodyBegin() { return kDocumentHead.size() + kArrayBegin.size(); }

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

// A power cut mostly leaves zeros where bytes are missing.
bool hasOurForm(std::string_view content) {
  return content.starts_with(kDocumentHead) && content.ends_with(kDocumentTail) &&
         content.substr(kDocumentHead.size()).starts_with(kArrayBegin) &&
         content.substr(0, content.size() - kDocumentTail.size()).ends_with(kArrayEnd) &&
         content.find('\0') == std::string_view::npos;
}

// The list as this class writes it; null when the content is no list.
std::shared_ptr<const std::string> inOurForm(const std::string& content) {
  if (hasOurForm(content)) return std::make_shared<const std::string>(content);
  const std::optional<Array> list = arrayIn(content);
  const auto written = list ? property_list::write(*list) : std::nullopt;
  return written ? std::make_shared<const std::string>(*written) : nullptr;
}

}  // namespace

ReportFile::ReportFile(std::string path, std::string sparePath)
    : path_(std::move(path)),
      sparePath_(std::move(sparePath)),
      text_(std::string(kDocumentHead).append(kArrayBegin)),
      end_(text_.size()) {}

void ReportFile::begin() {
  if (text_.capacity() < kRoom) text_.reserve(kRoom);
  listed_ = 0;
  unwritable_ = 0;
  end_ = bodyBegin();
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
  const std::string_view stored = storedElements();
  const bool isEmpty = listed_ == 0 && stored.empty();
  const std::size_t end = isEmpty ? kDocumentHead.size() : end_;
  if (isEmpty) {
    text_.resize(end);
    text_ += kEmptyArray;
    inPlace_ = std::min(inPlace_, end);
  } else {
    text_ += stored;
    text_ += kArrayEnd;
  }
  text_ += kDocumentTail;

  const bool isUnchanged = inPlace_ == end && text_.size() == size_;
  const bool isWritten = text_.size() <= kLargestFile &&
                         file_->replace(text_, isUnchanged ? size_ : inPlace_, nullptr);
  if (isWritten) {
    inPlace_ = end;
    size_ = text_.size();
  }
  text_.resize(end);
  if (isEmpty) {
    // A long list that is gone does not keep its memory.
    text_ = std::string(kDocumentHead).append(kArrayBegin);
    entries_ = {};
    last_ = {};
  }
  return isWritten;
}

ReportFile::Stored ReportFile::stored() {
  readStored();
  return stored_;
}

Array ReportFile::listIn(const Stored& stored) {
  for (const auto& content : {stored.content, stored.before}) {
    if (auto list = content ? arrayIn(*content) : std::nullopt) return std::move(*list);
  }
  return {};
}

bool ReportFile::readStored() {
  if (isStoredRead_) return true;
  Files& files = environment().files;
  Error error;
  const std::optional<std::string> content = files.read(path_, kLargestFile, &error);
  if (!content && error.code != kReadTooLarge && !isFileMissing(error)) return false;
  if (content) {
    stored_.content = inOurForm(*content);
    stored_.before = inOurForm(files.read(sparePath_, kLargestFile, nullptr).value_or(""));
    if (!stored_.content) stored_.content.swap(stored_.before);
  }
  file_ = files.atomicFile(path_, sparePath_);
  isStoredRead_ = true;
  return true;
}

std::string_view ReportFile::storedElements() const {
  if (!stored_.content || !hasOurForm(*stored_.content)) return {};
  const std::size_t end = stored_.content->size() - kArrayEnd.size() - kDocumentTail.size();
  return std::string_view(*stored_.content).substr(bodyBegin(), end - bodyBegin());
}

}  // namespace zln

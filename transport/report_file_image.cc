#include "transport/report_file_image.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "platform/property_list.h"

namespace zln {
namespace {

constexpr std::string_view kArrayBegin = "<array>\n";
constexpr std::string_view kArrayEnd = "</array>\n";
constexpr std::string_view kEmptyArray = "<array/>\n";

// For a full list of ordinary reports: a text that outgrows its room moves, and the save in which
// it does takes several times as long as others. Room that was never used takes no memory.
constexpr std::size_t kRoom = std::size_t{1} << 20;
constexpr std::size_t kSpareMemory = std::size_t{64} * 1024;
// With so much behind it a gap is not closed.
constexpr std::size_t kMuch = std::size_t{16} * 1024;
constexpr std::size_t kToTheEnd = std::numeric_limits<std::size_t>::max();

std::size_t bodyBegin() { return property_list::kDocumentHead.size() + kArrayBegin.size(); }

}  // namespace

ReportFileImage::ReportFileImage()
    : text_(property_list::kDocumentHead), bodyEnd_(text_.size()), changedTo_(kToTheEnd) {}

void ReportFileImage::begin() {
  listed_ = 0;
  unlisted_ = 0;
  listedEnd_ = bodyBegin();
  if (text_.capacity() < kRoom) text_.reserve(kRoom);
  text_.resize(bodyEnd_);
}

void ReportFileImage::addNew(const std::shared_ptr<const ReportElement>& element) {
  if (!element->text) {
    ++unlisted_;
  } else if (!closeGapBefore(element)) {
    cutOldPieces();
    append(element);
  }
}

bool ReportFileImage::closeGapBefore(const std::shared_ptr<const ReportElement>& element) {
  const auto gap = pieces_.begin() + static_cast<std::ptrdiff_t>(listed_);
  std::size_t size = 0;
  auto found = gap;
  while (found != pieces_.end() && found->element != element) size += found++->size;
  if (found == pieces_.end()) return false;
  if (bodyEnd_ - listedEnd_ - size < kMuch) {
    takeAway(gap, found, size);
  } else {
    blank(gap, found, size);
  }
  listedEnd_ += pieces_[listed_++].size;
  return true;
}

void ReportFileImage::blank(Pieces::iterator gap, Pieces::iterator found, std::size_t size) {
  const std::size_t begin = listedEnd_ + gap->blanks();
  const std::size_t end = listedEnd_ + size;
  std::memset(text_.data() + begin, ' ', end - begin);
  text_[end - 1] = '\n';
  changed(begin, end);
  forget(gap, found);
  found->size += size;
  blanks_ += size;
  pieces_.erase(gap, found);
}

void ReportFileImage::takeAway(Pieces::iterator gap, Pieces::iterator found, std::size_t size) {
  text_.erase(listedEnd_, size);
  bodyEnd_ -= size;
  changed(listedEnd_, kToTheEnd);
  forget(gap, found);
  pieces_.erase(gap, found);
}

void ReportFileImage::forget(Pieces::iterator first, Pieces::iterator last) {
  for (; first != last; ++first) blanks_ -= first->blanks();
}

void ReportFileImage::append(const std::shared_ptr<const ReportElement>& element) {
  changed(bodyEnd_, kToTheEnd);
  if (pieces_.empty()) text_ += kArrayBegin;
  text_ += *element->text;
  bodyEnd_ = text_.size();
  pieces_.push_back({element, element->text->size()});
  ++listed_;
  listedEnd_ = bodyEnd_;
}

bool ReportFileImage::finish() {
  cutOldPieces();
  if (blanks_ > bodyEnd_ / 2 || (blanks_ > 0 && bodyEnd_ < kMuch)) takeBlanksAway();
  saveMemory();
  text_ += pieces_.empty() ? kEmptyArray : kArrayEnd;
  text_ += property_list::kDocumentTail;
  return unlisted_ == 0;
}

AtomicFile::Unchanged ReportFileImage::unchanged() const {
  const bool hasSameSize = text_.size() == writtenSize_ && changedTo_ <= text_.size();
  return {std::min(changedFrom_, bodyEnd_), hasSameSize ? text_.size() - changedTo_ : 0};
}

void ReportFileImage::written() {
  changedFrom_ = kToTheEnd;
  changedTo_ = 0;
  writtenSize_ = text_.size();
}

void ReportFileImage::cutOldPieces() {
  if (listed_ == pieces_.size()) return;
  const auto old = pieces_.begin() + static_cast<std::ptrdiff_t>(listed_);
  forget(old, pieces_.end());
  pieces_.erase(old, pieces_.end());
  bodyEnd_ = pieces_.empty() ? property_list::kDocumentHead.size() : listedEnd_;
  text_.resize(bodyEnd_);
  changed(bodyEnd_, kToTheEnd);
}

void ReportFileImage::changed(std::size_t from, std::size_t to) {
  changedFrom_ = std::min(changedFrom_, from);
  changedTo_ = std::max(changedTo_, to);
}

void ReportFileImage::takeBlanksAway() {
  std::size_t from = bodyBegin();
  std::size_t to = from;
  for (Piece& piece : pieces_) {
    if (piece.blanks() > 0) changed(to, kToTheEnd);
    from += piece.blanks();
    piece.size = piece.element->text->size();
    std::memmove(text_.data() + to, text_.data() + from, piece.size);
    from += piece.size;
    to += piece.size;
  }
  blanks_ = 0;
  bodyEnd_ = to;
  text_.resize(bodyEnd_);
}

// A long list that is gone does not keep its memory.
void ReportFileImage::saveMemory() {
  usedRoom_ = std::max(usedRoom_, text_.size());
  if (usedRoom_ < kSpareMemory || text_.size() > usedRoom_ / 4) return;
  std::string text;
  text.reserve(kRoom);
  text = text_;
  text_ = std::move(text);
  usedRoom_ = text_.size();
}

}  // namespace zln

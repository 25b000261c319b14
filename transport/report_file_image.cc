#include "transport/report_file_image.h"

#include <algorithm>
#include <cstddef>

#include "platform/property_list.h"

namespace zln {
namespace {

constexpr std::string_view kArrayBegin = "<array>\n";
constexpr std::string_view kArrayEnd = "</array>\n";
constexpr std::string_view kEmptyArray = "<array/>\n";

constexpr std::size_t kSpareMemory = 64 * 1024;

}  // namespace

ReportFileImage::ReportFileImage() : text_(property_list::kDocumentHead), bodyEnd_(text_.size()) {}

void ReportFileImage::begin() {
  listed_ = 0;
  unlisted_ = 0;
  listedEnd_ = property_list::kDocumentHead.size() + kArrayBegin.size();
  text_.resize(bodyEnd_);
  unchanged_ = std::min(unchanged_, bodyEnd_);
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
  text_.erase(listedEnd_, size);
  bodyEnd_ -= size;
  unchanged_ = std::min(unchanged_, listedEnd_);
  pieces_.erase(gap, found);
  listedEnd_ += pieces_[listed_++].size;
  return true;
}

void ReportFileImage::append(const std::shared_ptr<const ReportElement>& element) {
  if (pieces_.empty()) text_ += kArrayBegin;
  text_ += *element->text;
  bodyEnd_ = text_.size();
  pieces_.push_back({element, element->text->size()});
  ++listed_;
  listedEnd_ = bodyEnd_;
}

bool ReportFileImage::finish() {
  cutOldPieces();
  saveMemory();
  text_ += pieces_.empty() ? kEmptyArray : kArrayEnd;
  text_ += property_list::kDocumentTail;
  return unlisted_ == 0;
}

void ReportFileImage::written() { unchanged_ = bodyEnd_; }

void ReportFileImage::cutOldPieces() {
  if (listed_ == pieces_.size()) return;
  pieces_.resize(listed_);
  bodyEnd_ = pieces_.empty() ? property_list::kDocumentHead.size() : listedEnd_;
  text_.resize(bodyEnd_);
  unchanged_ = std::min(unchanged_, bodyEnd_);
}

// A long list that is gone does not keep its memory.
void ReportFileImage::saveMemory() {
  if (text_.capacity() > kSpareMemory && text_.size() < text_.capacity() / 4) {
    text_.shrink_to_fit();
  }
}

}  // namespace zln

#include "transport/report_file_image.h"

#include <algorithm>

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
  count_ = 0;
  cutText(bodyEnd_);
}

void ReportFileImage::addNew(const std::shared_ptr<const ReportElement>& element) {
  if (!element->text) return;
  cutOldPieces();
  if (pieces_.empty()) text_ += kArrayBegin;
  text_ += *element->text;
  bodyEnd_ = text_.size();
  pieces_.push_back({element, bodyEnd_});
  ++listed_;
}

bool ReportFileImage::finish() {
  cutOldPieces();
  text_ += pieces_.empty() ? kEmptyArray : kArrayEnd;
  text_ += property_list::kDocumentTail;
  return pieces_.size() == count_;
}

void ReportFileImage::written() { unchanged_ = bodyEnd_; }

void ReportFileImage::cutOldPieces() {
  if (listed_ == pieces_.size()) return;
  pieces_.resize(listed_);
  bodyEnd_ = pieces_.empty() ? property_list::kDocumentHead.size() : pieces_.back().end;
  cutText(bodyEnd_);
}

void ReportFileImage::cutText(std::size_t size) {
  text_.resize(size);
  unchanged_ = std::min(unchanged_, size);
  // A long list that is gone shall not keep its memory.
  if (text_.capacity() > kSpareMemory && text_.size() < text_.capacity() / 4) {
    text_.shrink_to_fit();
  }
}

}  // namespace zln

#include "transport/report_file_image.h"

#include <utility>

#include "platform/property_list.h"

namespace zln {
namespace {

constexpr std::string_view kArrayBegin = "<array>\n";
constexpr std::string_view kArrayEnd = "</array>\n";
constexpr std::string_view kEmptyArray = "<array/>\n";

}  // namespace

void ReportFileImage::add(const ReportElement& element) {
  if (count_++ == 0) {
    bytes_ = property_list::kDocumentHead;
    bytes_ += kArrayBegin;
  }
  if (element.text) {
    bytes_ += *element.text;
  } else {
    holdsAll_ = false;
  }
}

std::optional<std::string> ReportFileImage::finish() {
  if (!holdsAll_) return std::nullopt;
  if (count_ == 0) {
    bytes_ = property_list::kDocumentHead;
    bytes_ += kEmptyArray;
  } else {
    bytes_ += kArrayEnd;
  }
  bytes_ += property_list::kDocumentTail;
  return std::move(bytes_);
}

}  // namespace zln

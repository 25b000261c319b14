#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "reports/report_element.h"

namespace zln {

// The text of the report file, put together from its elements. It stays from one list of elements
// to the next: what both lists have in common is not put together again.
class ReportFileImage {
 public:
  ReportFileImage();

  // Begins a list.
  void begin();
  // Lists the next element.
  void add(const std::shared_ptr<const ReportElement>& element) {
    if (listed_ != pieces_.size() && pieces_[listed_].element == element) {
      listedEnd_ += pieces_[listed_++].size;
    } else {
      addNew(element);
    }
  }
  // Ends the list. False when it has an element that the file cannot hold; there is no text then.
  bool finish();

  // How many elements the list has.
  std::size_t count() const { return listed_ + unlisted_; }
  // The whole file.
  std::string_view text() const { return text_; }
  // How many bytes of the text, from its beginning, are those of the text that was written last.
  std::size_t unchanged() const { return unchanged_; }
  // Says that the text has been written.
  void written();

 private:
  struct Piece {
    std::shared_ptr<const ReportElement> element;
    // Of its text.
    std::size_t size;
  };

  void addNew(const std::shared_ptr<const ReportElement>& element);
  // Takes away the old pieces before this element; false when it is none of the old ones.
  bool closeGapBefore(const std::shared_ptr<const ReportElement>& element);
  void append(const std::shared_ptr<const ReportElement>& element);
  // Takes away what is left of the old list.
  void cutOldPieces();
  void saveMemory();

  std::string text_;
  std::vector<Piece> pieces_;
  // The end of the last piece, or of the document's head.
  std::size_t bodyEnd_ = 0;
  // How many pieces the list that is being made has so far, and where the last of them ends; behind
  // them stand those of the old one.
  std::size_t listed_ = 0;
  std::size_t listedEnd_ = 0;
  // How many elements of that list have no text.
  std::size_t unlisted_ = 0;
  std::size_t unchanged_ = 0;
};

}  // namespace zln

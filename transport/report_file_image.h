#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "reports/report_element.h"

namespace zln {

// The text of the report file, put together from its elements. It stays from one list of elements
// to the next: as far as a list begins with the elements of the one before, nothing is done again.
class ReportFileImage {
 public:
  ReportFileImage();

  // Begins a list.
  void begin();
  // Lists the next element.
  void add(const std::shared_ptr<const ReportElement>& element) {
    ++count_;
    if (listed_ < pieces_.size() && pieces_[listed_].element == element) {
      ++listed_;
    } else {
      addNew(element);
    }
  }
  // Ends the list. False when it has an element that the file cannot hold; there is no text then.
  bool finish();

  // How many elements the list has.
  std::size_t count() const { return count_; }
  // The whole file.
  std::string_view text() const { return text_; }
  // How many bytes of the text, from its beginning, are those of the text that was written last.
  std::size_t unchanged() const { return unchanged_; }
  // Says that the text has been written.
  void written();

 private:
  struct Piece {
    std::shared_ptr<const ReportElement> element;
    // Where it ends in the text.
    std::size_t end;
  };

  void addNew(const std::shared_ptr<const ReportElement>& element);
  // Takes away what stands behind the first pieces of the old list that are also those of the new.
  void cutOldPieces();
  void cutText(std::size_t size);

  std::string text_;
  std::vector<Piece> pieces_;
  // The end of the last piece, or of the document's head.
  std::size_t bodyEnd_ = 0;
  // How many pieces the list that is being made has so far; behind them stand those of the old one.
  std::size_t listed_ = 0;
  std::size_t count_ = 0;
  std::size_t unchanged_ = 0;
};

}  // namespace zln

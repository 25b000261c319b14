#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "reports/report_element.h"

namespace zln {

// The text of the report file, put together from its elements. It stays from one list of elements
// to the next: what both lists have in common is not put together again. Where an element goes that
// much stands behind, blanks take its place, so that what stands there need not be written again.
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
  // How much of the text is that of the text that was written last.
  AtomicFile::Unchanged unchanged() const;
  // Says that the text has been written.
  void written();

 private:
  struct Piece {
    std::shared_ptr<const ReportElement> element;
    // Of its text, with the blanks before it.
    std::size_t size;

    std::size_t blanks() const { return size - element->text->size(); }
  };
  using Pieces = std::vector<Piece>;

  void addNew(const std::shared_ptr<const ReportElement>& element);
  // Takes away the old pieces before this element; false when it is none of the old ones.
  bool closeGapBefore(const std::shared_ptr<const ReportElement>& element);
  // Both for the pieces from `gap` to before `found`, which have that size.
  void blank(Pieces::iterator gap, Pieces::iterator found, std::size_t size);
  void takeAway(Pieces::iterator gap, Pieces::iterator found, std::size_t size);
  void forget(Pieces::iterator first, Pieces::iterator last);
  void takeBlanksAway();
  void changed(std::size_t from, std::size_t to);
  void append(const std::shared_ptr<const ReportElement>& element);
  // Takes away what is left of the old list.
  void cutOldPieces();
  void saveMemory();

  std::string text_;
  // The longest that it has been since it got its memory.
  std::size_t usedRoom_ = 0;
  Pieces pieces_;
  // The end of the last piece, or of the document's head.
  std::size_t bodyEnd_ = 0;
  // How many pieces the list that is being made has so far, and where the last of them ends; behind
  // them stand those of the old one.
  std::size_t listed_ = 0;
  std::size_t listedEnd_ = 0;
  // How many elements of that list have no text.
  std::size_t unlisted_ = 0;
  // How many blanks the pieces have before them.
  std::size_t blanks_ = 0;
  // What differs from the text that was written last, and how long that one was.
  std::size_t changedFrom_ = 0;
  std::size_t changedTo_;
  std::size_t writtenSize_ = 0;
};

}  // namespace zln

#include "transport/report_file_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace zln {
namespace {

using Element = std::shared_ptr<const ReportElement>;
using List = std::vector<Element>;

constexpr char kEmptyText[] =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<array/>
</plist>
)";

constexpr char kTextOfOne[] =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<array>
	<string>a</string>
</array>
</plist>
)";

constexpr char kTextOfTwo[] =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<array>
	<string>a</string>
	<string>b</string>
</array>
</plist>
)";

// The bytes before the root element, those of the line that begins an array, and those of an
// element with one letter.
constexpr std::size_t kHead = 164;
constexpr std::size_t kBegin = 8;
constexpr std::size_t kLetter = 20;

Element element(const std::string& name) {
  return std::make_shared<const ReportElement>(ReportElement{"\t<string>" + name + "</string>\n"});
}

// One that the file cannot hold.
Element textless() { return std::make_shared<const ReportElement>(ReportElement{std::nullopt}); }

class ReportFileImageTest : public testing::Test {
 protected:
  bool list(const List& elements) {
    image.begin();
    for (const Element& each : elements) image.add(each);
    return image.finish();
  }

  void write(const List& elements) {
    ASSERT_TRUE(list(elements));
    image.written();
  }

  // The text of an image that has never seen another list.
  static std::string freshText(const List& elements) {
    ReportFileImage fresh;
    fresh.begin();
    for (const Element& each : elements) fresh.add(each);
    EXPECT_TRUE(fresh.finish());
    return std::string(fresh.text());
  }

  const Element a = element("a");
  const Element b = element("b");
  const Element c = element("c");
  const Element d = element("d");
  ReportFileImage image;
};

TEST_F(ReportFileImageTest, AnEmptyListIsAnEmptyArray) {
  EXPECT_TRUE(list({}));

  EXPECT_EQ(kEmptyText, image.text());
  EXPECT_EQ(0u, image.count());
}

TEST_F(ReportFileImageTest, OneElementStandsInAnArray) {
  EXPECT_TRUE(list({a}));

  EXPECT_EQ(kTextOfOne, image.text());
  EXPECT_EQ(1u, image.count());
}

TEST_F(ReportFileImageTest, TwoElementsStandInTheirOrder) {
  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(2u, image.count());
}

TEST_F(ReportFileImageTest, TheSameElementMayStandTwice) {
  EXPECT_TRUE(list({a, a}));

  EXPECT_EQ(freshText({element("a"), element("a")}), image.text());
}

TEST_F(ReportFileImageTest, TheSameListGivesTheSameText) {
  write({a, b});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(2u, image.count());
}

TEST_F(ReportFileImageTest, AnElementIsAppended) {
  write({a});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
}

TEST_F(ReportFileImageTest, AnElementGoesFromTheFront) {
  write({c, a, b});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(kHead + kBegin, image.unchanged().head);
}

TEST_F(ReportFileImageTest, AnElementGoesFromTheMiddle) {
  write({a, c, b});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
}

TEST_F(ReportFileImageTest, AnElementGoesFromTheEnd) {
  write({a, b, c});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
}

TEST_F(ReportFileImageTest, AnElementIsReplaced) {
  write({a, c});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
}

TEST_F(ReportFileImageTest, AnEmptyListGetsAnElementAndLosesItAgain) {
  write({});
  write({a});

  EXPECT_EQ(kTextOfOne, image.text());

  write({});

  EXPECT_EQ(kEmptyText, image.text());
}

TEST_F(ReportFileImageTest, ElementsAreToldApartByWhatTheyAreAndNotByTheirText) {
  write({a, b});

  EXPECT_TRUE(list({element("a"), b}));

  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(kHead, image.unchanged().head);
}

// Unchanged bytes.

TEST_F(ReportFileImageTest, NothingIsUnchangedBeforeAnythingIsWritten) {
  EXPECT_EQ(0u, image.unchanged().head);

  list({a, b});

  EXPECT_EQ(0u, image.unchanged().head);

  list({a, b});

  EXPECT_EQ(0u, image.unchanged().head);
}

TEST_F(ReportFileImageTest, AllElementsOfTheSameListAreUnchanged) {
  write({a, b});

  list({a, b});

  EXPECT_EQ(kHead + kBegin + 2 * kLetter, image.unchanged().head);
}

TEST_F(ReportFileImageTest, WhatStandsBeforeAnAppendedElementIsUnchanged) {
  write({a, b});

  list({a, b, c});

  EXPECT_EQ(kHead + kBegin + 2 * kLetter, image.unchanged().head);
}

TEST_F(ReportFileImageTest, WhatStandsBeforeAnElementThatHasGoneIsUnchanged) {
  write({a, b, c});

  list({a, c});

  EXPECT_EQ(kHead + kBegin + kLetter, image.unchanged().head);
}

TEST_F(ReportFileImageTest, WhatStandsBeforeAReplacedElementIsUnchanged) {
  write({a, b, c});

  list({a, d, c});

  EXPECT_EQ(kHead + kBegin + kLetter, image.unchanged().head);
}

TEST_F(ReportFileImageTest, OnlyTheHeadIsUnchangedWhenTheFirstElementComesOrGoes) {
  write({});

  list({a});

  EXPECT_EQ(kHead, image.unchanged().head);

  image.written();
  list({});

  EXPECT_EQ(kHead, image.unchanged().head);
}

TEST_F(ReportFileImageTest, AfterAFailedWriteUnchangedBytesAreThoseOfTheTextWrittenLast) {
  write({a});

  list({a, b});
  list({a, b, c});

  EXPECT_EQ(kHead + kBegin + kLetter, image.unchanged().head);
}

TEST_F(ReportFileImageTest, WhatAFailedWriteHasCutIsNotUnchangedWhenItComesBack) {
  write({a, b});

  list({a, c});
  list({a, b});

  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(kHead + kBegin + kLetter, image.unchanged().head);
}

TEST_F(ReportFileImageTest, AWriteAfterAFailedOneMakesAllElementsUnchangedAgain) {
  write({a, b});
  list({});

  write({a, b});
  list({a, b, c});

  EXPECT_EQ(kHead + kBegin + 2 * kLetter, image.unchanged().head);
}

// Elements without text.

TEST_F(ReportFileImageTest, AListWithAnElementThatTheFileCannotHoldDoesNotFinish) {
  EXPECT_FALSE(list({a, textless(), b}));

  EXPECT_EQ(3u, image.count());
}

TEST_F(ReportFileImageTest, AnElementThatTheFileCannotHoldAloneDoesNotFinish) {
  EXPECT_FALSE(list({textless()}));
}

TEST_F(ReportFileImageTest, AListOfOldElementsAndOneThatTheFileCannotHoldDoesNotFinish) {
  write({a, b});

  EXPECT_FALSE(list({a, b, textless()}));
}

TEST_F(ReportFileImageTest, TheListFinishesAgainOnceTheElementThatTheFileCannotHoldIsGone) {
  write({a, b});
  list({a, textless(), b});

  EXPECT_TRUE(list({a, b}));

  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(2u, image.count());
}

TEST_F(ReportFileImageTest, UnchangedBytesStayRightAfterAListThatDidNotFinish) {
  write({a, b});
  list({textless(), c, d});

  list({a, b});

  EXPECT_EQ(kHead, image.unchanged().head);
}

// Long lists.

// So many bytes that a gap before them is not closed.
const std::string kLongName(20'000, 'x');

TEST_F(ReportFileImageTest, BlanksTakeThePlaceOfAnElementThatMuchStandsBehind) {
  const Element last = element(kLongName);
  write({a, b, last});
  const std::string before(image.text());

  EXPECT_TRUE(list({a, last}));

  std::string expected = before;
  expected.replace(kHead + kBegin + kLetter, kLetter, std::string(kLetter - 1, ' ') + "\n");
  EXPECT_EQ(expected, image.text());
  EXPECT_EQ(2u, image.count());
  EXPECT_EQ(kHead + kBegin + kLetter, image.unchanged().head);
  EXPECT_EQ(before.size() - kHead - kBegin - 2 * kLetter, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, OfTwoGapsThatMeetOnlyTheNewOneIsWritten) {
  const Element last = element(kLongName);
  write({a, b, c, last});
  write({b, c, last});

  list({c, last});

  EXPECT_EQ(kHead + kBegin + kLetter, image.unchanged().head);
  EXPECT_EQ(image.text().size() - kHead - kBegin - 2 * kLetter, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, TwoGapsOfAFailedWriteAreWrittenTogether) {
  const Element last = element(kLongName);
  write({a, b, c, last});

  list({b, c, last});
  list({b, last});

  EXPECT_EQ(kHead + kBegin, image.unchanged().head);
  EXPECT_EQ(image.text().size() - kHead - kBegin - 3 * kLetter, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, NothingAtTheEndIsUnchangedWhenTheSizeChanges) {
  const Element last = element(kLongName);
  write({a, b, last});

  list({b, last, c});

  EXPECT_EQ(kHead + kBegin, image.unchanged().head);
  EXPECT_EQ(0u, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, BlanksGoOnceTheyAreMoreThanTheElements) {
  const Element last = element(kLongName);
  write({element(kLongName), element(kLongName), a, last});

  EXPECT_TRUE(list({a, last}));

  EXPECT_EQ(freshText({a, last}), image.text());
  EXPECT_EQ(kHead + kBegin, image.unchanged().head);
  EXPECT_EQ(0u, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, AFullListOfOrdinaryReportsNeverMoves) {
  list({});
  const void* begin = image.text().data();
  List elements;

  for (int count = 0; count < 1001; ++count) {
    elements.push_back(element(std::string(600, 'x')));
    ASSERT_TRUE(list(elements));
    ASSERT_EQ(begin, image.text().data()) << count;
  }
}

TEST_F(ReportFileImageTest, AListThatHasBecomeShortGetsFreshMemoryOnce) {
  write({a, element(std::string(200'000, 'x'))});
  const void* used = image.text().data();

  write({a});

  const void* fresh = image.text().data();
  EXPECT_NE(used, fresh);
  EXPECT_EQ(kTextOfOne, image.text());
  write({a, b});
  EXPECT_EQ(fresh, image.text().data());
  EXPECT_EQ(kTextOfTwo, image.text());
}

TEST_F(ReportFileImageTest, BlanksGoWithTheElementsBehindThem) {
  write({a, b, element(kLongName)});
  write({b, element(kLongName)});

  write({b});

  EXPECT_EQ(freshText({b}), image.text());
}

// Many lists.

// Lists as a queue makes them, and any others: elements go, are replaced and come.
class RandomLists {
 public:
  // Of elements with names that are so much longer than a few letters.
  explicit RandomLists(std::size_t longer) : longer_(longer) {}

  const List& next() {
    for (int changes = upTo(3); changes > 0; --changes) change();
    if (upTo(40) == 0) list_.clear();
    return list_;
  }

  bool writeFails() { return upTo(4) == 0; }
  bool hasTextless() { return upTo(20) == 0; }
  std::size_t position() { return static_cast<std::size_t>(upTo(static_cast<int>(list_.size()))); }

 private:
  int upTo(int most) { return static_cast<int>(random_() % static_cast<unsigned>(most + 1)); }

  void change() {
    const auto at = list_.begin() + static_cast<std::ptrdiff_t>(position());
    switch (upTo(4)) {
      case 0:
        if (at != list_.end()) list_.erase(at);
        break;
      case 1:
        if (at != list_.end()) *at = make();
        break;
      case 2:
        list_.insert(at, make());
        break;
      default:
        list_.push_back(make());
    }
    if (list_.size() > 30) list_.erase(list_.begin(), list_.begin() + upTo(30));
  }

  Element make() {
    return element(std::string(longer_ + static_cast<std::size_t>(upTo(5)), letter()));
  }
  char letter() { return static_cast<char>('a' + upTo(2)); }

  const std::size_t longer_;
  std::mt19937 random_{20240229};
  List list_;
};

// Without blanks in a row, all but one.
std::string squeezed(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const bool isBlank = c == ' ' || c == '\n';
    const bool followsBlank = !result.empty() && result.back() == '\n';
    if (!(isBlank && followsBlank)) result += c;
  }
  return result;
}

// Keeps a file by what the image says has changed, as the system's does with its two files.
class KeptFile {
 public:
  void write(const ReportFileImage& image) {
    const std::string_view text = image.text();
    const auto [head, tail] = image.unchanged();
    ASSERT_LE(head, text_.size());
    EXPECT_EQ(text.substr(0, head), text_.substr(0, head));
    std::string next = text_.substr(0, head) + std::string(text.substr(head));
    if (tail > 0) {
      ASSERT_EQ(text.size(), text_.size());
      const std::size_t end = std::max(head, text.size() - std::min(tail, text.size()));
      next = next.substr(0, end) + text_.substr(end);
    }
    text_ = next;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

class ManyListsTest : public ReportFileImageTest,
                      public testing::WithParamInterface<std::size_t> {};

TEST_P(ManyListsTest, AFileKeptByItsUnchangedBytesIsTheSameAsOneWrittenWhole) {
  RandomLists lists(GetParam());
  KeptFile file;
  std::size_t blanked = 0;

  for (int round = 0; round < 2000; ++round) {
    const List next = lists.next();
    if (lists.hasTextless()) {
      List odd = next;
      odd.insert(odd.begin() + static_cast<std::ptrdiff_t>(lists.position()), textless());
      ASSERT_FALSE(list(odd)) << round;
    }
    ASSERT_TRUE(list(next)) << round;
    const std::string whole = freshText(next);
    ASSERT_EQ(whole, squeezed(image.text())) << round;
    ASSERT_LE(image.text().size(), 2 * whole.size()) << round;
    ASSERT_EQ(next.size(), image.count()) << round;
    if (image.text() != whole) ++blanked;
    if (lists.writeFails()) continue;
    file.write(image);
    image.written();
    ASSERT_EQ(image.text(), file.text()) << round;
  }

  const bool isLong = GetParam() > 0;
  EXPECT_EQ(isLong, blanked > 0) << blanked;
}

INSTANTIATE_TEST_SUITE_P(ShortAndLong, ManyListsTest, testing::Values(0u, 2000u));

TEST_F(ReportFileImageTest, ALongListThatIsGoneLeavesARightText) {
  List many(5000, element(std::string(100, 'x')));
  write(many);

  write({a, b});

  EXPECT_EQ(kTextOfTwo, image.text());
}

}  // namespace
}  // namespace zln

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

// Where the root element begins, and the first four elements with one letter.
constexpr std::size_t kRoot = 164;
constexpr std::size_t kFirst = 172;
constexpr std::size_t kSecond = 192;
constexpr std::size_t kThird = 212;
constexpr std::size_t kFourth = 232;

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
  // So long that a gap before it is not closed.
  const Element last = element(std::string(20'000, 'x'));
  ReportFileImage image;
};

TEST_F(ReportFileImageTest, ElementsStandInAnArrayInTheirOrder) {
  struct Row {
    List elements;
    const char* text;
  };
  for (const auto& [elements, text] :
       std::vector<Row>{{{}, kEmptyText}, {{a}, kTextOfOne}, {{a, b}, kTextOfTwo}}) {
    EXPECT_TRUE(list(elements));

    EXPECT_EQ(text, image.text());
    EXPECT_EQ(elements.size(), image.count());
    EXPECT_EQ(text, freshText(elements));
  }
}

TEST_F(ReportFileImageTest, TheSameElementMayStandTwice) {
  EXPECT_TRUE(list({a, a}));

  EXPECT_EQ(freshText({element("a"), element("a")}), image.text());
}

// After a list that was written, the next one: its text, and where it begins to differ.
TEST_F(ReportFileImageTest, AListFollowsAnotherOneAndTellsHowMuchIsUnchanged) {
  struct Row {
    List before;
    List after;
    std::size_t unchanged;
  };
  const std::vector<Row> rows = {{{}, {a}, kRoot},
                                 {{a}, {}, kRoot},
                                 {{a}, {a, b}, kSecond},
                                 {{a, b}, {a, b}, kThird},
                                 {{a, b}, {a, b, c}, kThird},
                                 {{c, a, b}, {a, b}, kFirst},
                                 {{a, c, b}, {a, b}, kSecond},
                                 {{a, b, c}, {a, b}, kThird},
                                 {{a, c}, {a, b}, kSecond},
                                 {{a, b, c}, {a, d, c}, kSecond},
                                 // Told apart by what they are and not by their text.
                                 {{a, b}, {element("a"), b}, kRoot}};
  for (std::size_t row = 0; row < rows.size(); ++row) {
    SCOPED_TRACE(row);
    image = ReportFileImage();
    write(rows[row].before);

    EXPECT_TRUE(list(rows[row].after));

    EXPECT_EQ(freshText(rows[row].after), image.text());
    EXPECT_EQ(rows[row].after.size(), image.count());
    EXPECT_EQ(rows[row].unchanged, image.unchanged().head);
  }
}

TEST_F(ReportFileImageTest, AnEmptyListGetsAnElementAndLosesItAgain) {
  write({});
  write({a});

  EXPECT_EQ(kTextOfOne, image.text());

  write({});

  EXPECT_EQ(kEmptyText, image.text());
}

// Unchanged bytes.

TEST_F(ReportFileImageTest, NothingIsUnchangedBeforeAnythingIsWritten) {
  EXPECT_EQ(0u, image.unchanged().head);

  list({a, b});

  EXPECT_EQ(0u, image.unchanged().head);

  list({a, b});

  EXPECT_EQ(0u, image.unchanged().head);
}

TEST_F(ReportFileImageTest, UnchangedBytesAreThoseOfTheTextWrittenLastWhateverHasFailedSince) {
  struct Row {
    List written;
    List failed;
    List next;
    std::size_t unchanged;
  };
  const std::vector<Row> rows = {{{a}, {a, b}, {a, b, c}, kSecond},
                                 // What comes back had been cut.
                                 {{a, b}, {a, c}, {a, b}, kSecond},
                                 {{a, b}, {textless(), c, d}, {a, b}, kRoot}};
  for (std::size_t row = 0; row < rows.size(); ++row) {
    SCOPED_TRACE(row);
    image = ReportFileImage();
    write(rows[row].written);
    list(rows[row].failed);

    EXPECT_TRUE(list(rows[row].next));

    EXPECT_EQ(freshText(rows[row].next), image.text());
    EXPECT_EQ(rows[row].unchanged, image.unchanged().head);
  }
}

TEST_F(ReportFileImageTest, AWriteAfterAFailedOneMakesAllElementsUnchangedAgain) {
  write({a, b});
  list({});

  write({a, b});
  list({a, b, c});

  EXPECT_EQ(kThird, image.unchanged().head);
}

// Elements without text.

TEST_F(ReportFileImageTest, AListDoesNotFinishUntilTheElementThatTheFileCannotHoldIsGone) {
  EXPECT_FALSE(list({textless()}));
  EXPECT_FALSE(list({a, textless(), b}));
  EXPECT_EQ(3u, image.count());

  write({a, b});

  EXPECT_FALSE(list({a, b, textless()}));
  EXPECT_FALSE(list({a, textless(), b}));
  EXPECT_TRUE(list({a, b}));
  EXPECT_EQ(kTextOfTwo, image.text());
  EXPECT_EQ(2u, image.count());
}

// Long lists.

TEST_F(ReportFileImageTest, BlanksTakeThePlaceOfAnElementThatMuchStandsBehind) {
  write({a, b, last});
  const std::string before(image.text());

  EXPECT_TRUE(list({a, last}));

  std::string expected = before;
  expected.replace(kSecond, 20, std::string(19, ' ') + "\n");
  EXPECT_EQ(expected, image.text());
  EXPECT_EQ(2u, image.count());
  EXPECT_EQ(kSecond, image.unchanged().head);
  EXPECT_EQ(before.size() - kThird, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, OfTwoGapsThatMeetOnlyTheNewOneIsWritten) {
  write({a, b, c, last});
  write({b, c, last});

  list({c, last});

  EXPECT_EQ(kSecond, image.unchanged().head);
  EXPECT_EQ(image.text().size() - kThird, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, TwoGapsOfAFailedWriteAreWrittenTogether) {
  write({a, b, c, last});

  list({b, c, last});
  list({b, last});

  EXPECT_EQ(kFirst, image.unchanged().head);
  EXPECT_EQ(image.text().size() - kFourth, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, NothingAtTheEndIsUnchangedWhenTheSizeChanges) {
  write({a, b, last});

  list({b, last, c});

  EXPECT_EQ(kFirst, image.unchanged().head);
  EXPECT_EQ(0u, image.unchanged().tail);
}

TEST_F(ReportFileImageTest, BlanksGoOnceTheyAreMoreThanTheElements) {
  const std::string longName(20'000, 'x');
  write({element(longName), element(longName), a, last});

  EXPECT_TRUE(list({a, last}));

  EXPECT_EQ(freshText({a, last}), image.text());
  EXPECT_EQ(kFirst, image.unchanged().head);
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
  const std::string longName(20'000, 'x');
  write({a, b, element(longName)});
  write({b, element(longName)});

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

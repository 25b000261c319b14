#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "platform/property_list.h"
#include "tests/support/file_contents.h"
#include "tests/support/temporary_folder.h"

// Other programs as second opinions on both forms of property lists.

namespace zln {
namespace {

class PropertyListToolsTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return folder_.path() + "/" + name; }

  void put(const std::string& name, const std::string& bytes) const {
    writeFile(path(name), bytes);
  }
  std::optional<Value> valueIn(const std::string& name) const {
    return property_list::read(contentsOf(path(name)));
  }

  static bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
  }

  // Runs a script in the folder of the test. True when it ends well.
  bool python(const std::string& script) const {
    put("script.py", "import datetime, plistlib\n" + script);
    return std::system(("cd '" + folder_.path() + "' && python3 script.py").c_str()) == 0;
  }

  bool plistutil(const std::string& arguments) const {
    return std::system(("cd '" + folder_.path() + "' && plistutil " + arguments).c_str()) == 0;
  }

  TemporaryFolder folder_;
};

const Value& sample() {
  static const Value& value = *new Value(Dictionary{
      {"text", "<&> \"quoted\"\n\u20AC \U0001F600"},
      {"empty", ""},
      {"integer", Number::int64(-1700000000)},
      {"long", Number::int64(INT64_MAX)},
      {"real", Number::float64(0.1)},
      {"yes", Number::boolean(true)},
      {"no", Number::boolean(false)},
      {"date", Date{1700000000}},
      {"data", Data{std::string("\0\xFF\x80", 3) +
                    " bytes of some length, more than a line takes of them after all of this"}},
      {"list", Array{Array{}, Dictionary{}, Dictionary{{"k", Number::float64(600)}}}},
  });
  return value;
}

constexpr char kSampleInPython[] =
    "sample = {\n"
    "    'text': '<&> \"quoted\"\\n\\u20ac \\U0001f600',\n"
    "    'empty': '',\n"
    "    'integer': -1700000000,\n"
    "    'long': 9223372036854775807,\n"
    "    'real': 0.1,\n"
    "    'yes': True,\n"
    "    'no': False,\n"
    "    'date': datetime.datetime(2023, 11, 14, 22, 13, 20),\n"
    "    'data': b'\\x00\\xff\\x80 bytes of some length, more than a line takes of them '\n"
    "            b'after all of this',\n"
    "    'list': [[], {}, {'k': 600.0}],\n"
    "}\n";

TEST_F(PropertyListToolsTest, PythonReadsWhatIsWritten) {
  if (!isInstalled("python3")) GTEST_SKIP() << "python3 is not installed";
  put("ours.plist", property_list::write(sample()).value());

  EXPECT_TRUE(python(std::string(kSampleInPython) +
                     "assert plistlib.load(open('ours.plist', 'rb')) == sample\n"));
}

TEST_F(PropertyListToolsTest, ReadsBothFormsThatPythonWrites) {
  if (!isInstalled("python3")) GTEST_SKIP() << "python3 is not installed";

  ASSERT_TRUE(python(std::string(kSampleInPython) +
                     "for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):\n"
                     "    plistlib.dump(sample, open(form.name, 'wb'), fmt=form)\n"));

  EXPECT_EQ(sample(), valueIn("FMT_XML"));
  EXPECT_EQ(sample(), valueIn("FMT_BINARY"));
}

TEST_F(PropertyListToolsTest, WritesTheVeryBytesThatPythonWrites) {
  if (!isInstalled("python3")) GTEST_SKIP() << "python3 is not installed";
  const Value value(Dictionary{{"b", Array{"x", Number::int64(3), Number::boolean(true)}},
                               {"a", Dictionary{{"empty", Array{}}, {"none", Dictionary{}}}},
                               {"c", Data{std::string(100, 'z')}},
                               {"d", Date{1700000000}}});

  ASSERT_TRUE(
      python("value = {'b': ['x', 3, True], 'a': {'empty': [], 'none': {}}, 'c': b'z' * 100,\n"
             "         'd': datetime.datetime(2023, 11, 14, 22, 13, 20)}\n"
             "plistlib.dump(value, open('theirs.plist', 'wb'))\n"));

  EXPECT_EQ(contentsOf(path("theirs.plist")), property_list::write(value));
}

TEST_F(PropertyListToolsTest, ReadsWhatPlistutilMakesOfAFile) {
  if (!isInstalled("plistutil")) GTEST_SKIP() << "plistutil is not installed";
  put("ours.plist", property_list::write(sample()).value());

  ASSERT_TRUE(plistutil("-i ours.plist -f bin -o theirs.bplist"));
  ASSERT_TRUE(plistutil("-i theirs.bplist -f xml -o theirs.plist"));

  EXPECT_EQ("bplist00", contentsOf(path("theirs.bplist")).substr(0, 8));
  EXPECT_EQ(sample(), valueIn("theirs.bplist"));
  EXPECT_EQ(sample(), valueIn("theirs.plist"));
}

}  // namespace
}  // namespace zln

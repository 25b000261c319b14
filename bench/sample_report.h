#pragma once

#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zln::bench {

// An ad attempt as a game that writes its own code would hold it: the keys, and about the length,
// of the library's two kinds in turns. No value needs more than the escapes below.
class SampleReport {
 public:
  explicit SampleReport(unsigned number) : fill_(number % 2 == 0) {
    texts_ = {{"adEventId", uuid()},
              {"adType", "interstitial"},
              {"bundleId", "com.example.bench"},
              {"country", "US"},
              {"device", "x86_64"},
              {"network", "Sunrise Ads & Partners"},
              {"platform", "iOS"},
              {"type", fill_ ? "ReportTypeAdAttempt" : "ReportTypeAdZoneAttempt"},
              {"userId", "06118A00-1C64-4C26-9BAA-B61A61D66420"}};
    if (!fill_) texts_.emplace_back("zoneId", "level complete");
  }

  // The report as an element of a property list.
  std::string element() const {
    std::string out;
    out.reserve(1024);
    out += "\t<dict>\n\t\t<key>fill</key>\n";
    out += fill_ ? "\t\t<true/>\n" : "\t\t<false/>\n";
    for (const auto& [key, text] : texts_) {
      out.append("\t\t<key>").append(key).append("</key>\n\t\t<string>");
      for (const char byte : text) appendEscaped(out, byte);
      out += "</string>\n";
    }
    out += "\t</dict>\n";
    return out;
  }

  std::string json() const {
    std::string out = fill_ ? "{\"fill\":true" : "{\"fill\":false";
    for (const auto& [key, text] : texts_) {
      out.append(",\"").append(key).append("\":\"").append(text).append("\"");
    }
    out += "}";
    return out;
  }

 private:
  static std::string uuid() {
    static std::mt19937_64 random{20260};
    std::string digits(32, '0');
    unsigned long long bits = 0;
    for (std::size_t i = 0; i < digits.size(); ++i, bits >>= 4) {
      if (i % 16 == 0) bits = random();
      digits[i] = "0123456789ABCDEF"[bits & 15];
    }
    digits[12] = '4';
    digits[16] = 'A';
    for (const std::size_t dash : {20, 16, 12, 8}) digits.insert(dash, 1, '-');
    return digits;
  }

  static void appendEscaped(std::string& out, char byte) {
    switch (byte) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += byte;
    }
  }

  bool fill_;
  std::vector<std::pair<const char*, std::string>> texts_;
};

inline constexpr std::string_view kDocumentHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<array>\n";
inline constexpr std::string_view kDocumentTail = "</array>\n</plist>\n";

}  // namespace zln::bench

#include "reports/report_element.h"

#include <cstddef>
#include <string>

#include "platform/property_list.h"

namespace zln {
namespace {

// More than the text of most reports takes.
constexpr std::size_t kRoomForText = 1024;

}  // namespace

std::shared_ptr<const ReportElement> ReportElement::of(const Dictionary& report) {
  // The elements of the file's one array stand one level deep.
  constexpr int kLevel = 1;
  auto element = std::make_shared<ReportElement>();
  std::string text;
  text.reserve(kRoomForText);
  // The copy, of which up to a thousand are kept, takes no more room than it needs.
  if (property_list::appendElement(text, report, kLevel)) element->text.emplace(text);
  return element;
}

}  // namespace zln

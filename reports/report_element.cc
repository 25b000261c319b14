#include "reports/report_element.h"

#include <utility>

#include "platform/property_list.h"

namespace zln {

std::shared_ptr<const ReportElement> ReportElement::of(const Dictionary& report) {
  // The elements of the file's one array stand one level deep.
  constexpr int kLevel = 1;
  auto element = std::make_shared<ReportElement>();
  std::string text;
  if (property_list::appendElement(text, report, kLevel)) element->text = std::move(text);
  return element;
}

}  // namespace zln

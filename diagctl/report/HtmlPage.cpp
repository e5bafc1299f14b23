#include "diagctl/report/HtmlPage.h"

#include <stdexcept>

#include "diagctl/terminal/Translation.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

// The text of a page up to a place that is to be filled, which is taken off as well.
std::string takenUpTo(std::string_view& skeleton, std::string_view place) {
  const std::size_t position = skeleton.find(place);
  if (position == std::string_view::npos) {
    throw std::logic_error(tr("the page has no place for {}", place));
  }
  std::string before(skeleton.substr(0, position));
  skeleton.remove_prefix(position + place.size());
  return before;
}

}  // namespace

PageFrame frameOf(std::string_view title) {
  Svg::Markup escaped;
  escaped.text(title);
  std::string_view rest = skeletonOfPage();
  PageFrame frame;
  frame.before = takenUpTo(rest, "{{language}}") + languageOfTexts();
  frame.before += takenUpTo(rest, "{{title}}") + escaped.written();
  frame.before += takenUpTo(rest, "{{style}}") + std::string(styleOfPage());
  frame.before += takenUpTo(rest, "{{body}}");
  frame.behind = rest;
  return frame;
}

}  // namespace TarvexDiags::FrontEnd::Html

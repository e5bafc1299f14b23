#pragma once

#include <string>
#include <string_view>

namespace TarvexDiags::FrontEnd::Html {

/// What stands before and behind the content of a page.
struct PageFrame {
  std::string before;
  std::string behind;
};

/// @param title of the window.
PageFrame frameOf(std::string_view title);

/// The files of report/page, which are part of the program.
std::string_view skeletonOfPage();
std::string_view styleOfPage();

}  // namespace TarvexDiags::FrontEnd::Html

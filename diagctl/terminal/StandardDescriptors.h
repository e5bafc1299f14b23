#pragma once

namespace TarvexDiags::FrontEnd {

/// Takes up those of the standard descriptors that the program was started without, so that no file
/// which it opens gets their number, and with it what is meant for people. They can be neither read
/// nor written: a report that was to go there is known to be lost. Call it before anything is
/// opened.
/// @return whether all three are taken.
[[nodiscard]] bool holdStandardDescriptors();

}  // namespace TarvexDiags::FrontEnd

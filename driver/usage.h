// The usage text that -? and --help print after the banner: the syntax line
// and one line per option, from a table of the option messages.
#pragma once

#include <string>

namespace tarn_driver {

// `slash_options`: whether "/" starts an option (Windows); elsewhere the
// options are shown with "-", the only form accepted there.
std::u16string usage_text(bool slash_options);

} // namespace tarn_driver

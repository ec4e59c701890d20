// Which messages have no handler yet.
#pragma once

#include <string_view>

namespace kw {

bool isPendingSelector(std::string_view selector);

} // namespace kw

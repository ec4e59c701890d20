// The entry of the table for `size`.
#pragma once

#include "CommandLine/Command.h"

namespace kw {

Command sizeCommand();

} // namespace kw

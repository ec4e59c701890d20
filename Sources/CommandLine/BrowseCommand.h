// The entry of the table for `browse`.
#pragma once

#include "CommandLine/Command.h"

namespace kw {

Command browseCommand();

} // namespace kw

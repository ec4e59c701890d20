// The entry of the table for `find`.
#pragma once

#include "CommandLine/Command.h"

namespace kw {

Command findCommand();

} // namespace kw

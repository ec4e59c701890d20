// Arguments and replies as the platform's objects, and the other way round.
// Objects that are given back are autoreleased.
#pragma once

#include "Foundation/Base/macOS/Platform/Foundation.h"
#include "Protocol/XPCInterface.h"

#include <optional>
#include <string>
#include <vector>

namespace NS {

// nil for text that is not well-formed UTF-8.
NSString *platformText(const std::string &text);
// nil if one of the texts is.
NSArray *platformTexts(const std::vector<std::string> &texts);
// With the user info that both sides have; of causes beneath causes only the
// first few.
NSError *platformError(const Error &error);

// nil for the monostate.
NSString *platformText(const XPCValue &value);
NSError *platformError(const XPCValue &value);

// A path or name. nil gives empty text. Text that UTF-8 cannot express gives the
// monostate, which every request refuses.
XPCValue requiredText(NSString *text);
// The same, but nil gives the monostate.
XPCValue optionalText(NSString *text);
// As requiredText(). An array with another object than text gives the monostate.
XPCValue requiredTexts(NSArray *texts);
XPCValue errorValue(NSError *error);

} // namespace NS

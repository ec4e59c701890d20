// Whether a person is watching, and whether one can be asked.
#pragma once

namespace NS {

bool standardInputIsTerminal();
bool standardOutputIsTerminal();
bool standardErrorIsTerminal();

} // namespace NS

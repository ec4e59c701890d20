// Whether a person is watching.
#pragma once

namespace NS {

bool standardOutputIsTerminal();

} // namespace NS

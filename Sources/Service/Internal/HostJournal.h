// The journal on this host.
#pragma once

#include "Service/RequestJournal.h"

namespace NS {

// Writes one entry with the record's fields. False when this host keeps no
// journal.
bool writeToHostJournal(const RequestRecord &record);

// The record as a sentence.
std::string textOf(const RequestRecord &record);

} // namespace NS

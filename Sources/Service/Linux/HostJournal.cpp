// Writes entries of the journal by its native interface.
#include "Service/Internal/HostJournal.h"

#include <sys/uio.h>
#include <unistd.h>

// Without it each entry would name this source file.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace NS {
namespace {

constexpr const char *journalSocket = "/run/systemd/journal/socket";
constexpr const char *priorityNotice = "PRIORITY=5";

} // namespace

bool writeToHostJournal(const RequestRecord &record) {
  // The library reports success without a journal.
  if (::access(journalSocket, F_OK) != 0)
    return false;
  std::vector<std::string> fields = {"MESSAGE=" + textOf(record),
                                     priorityNotice,
                                     "SYSLOG_IDENTIFIER=keepwell-agent",
                                     "KEEPWELL_MEMBER=" + record.member,
                                     "KEEPWELL_USER=" + std::to_string(record.requester.user),
                                     "KEEPWELL_PROCESS=" + std::to_string(record.requester.process),
                                     "KEEPWELL_OUTCOME=" + record.outcome,
                                     "KEEPWELL_MICROSECONDS=" +
                                         std::to_string(record.took.count())};
  // A field may occur several times.
  for (const std::string &item : record.items)
    fields.push_back("KEEPWELL_ITEM=" + item);
  if (!record.reason.empty())
    fields.push_back("KEEPWELL_REASON=" + record.reason);
  std::vector<iovec> parts;
  parts.reserve(fields.size());
  for (std::string &field : fields)
    parts.push_back({field.data(), field.size()});
  return ::sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
}

} // namespace NS

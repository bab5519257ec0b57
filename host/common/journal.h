// Entries with fields in the system's journal, by its native protocol: a datagram of fields on a
// local socket. A writer of our own is some 60 lines, where the library for it is a dependency that
// loads several more. Any thread.
#ifndef HOST_COMMON_JOURNAL_H_
#define HOST_COMMON_JOURNAL_H_

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

// Names are capital letters, digits and "_"; values are any bytes.
using JournalFields = std::vector<std::pair<std::string, std::string>>;

inline constexpr char kJournalSocket[] = "/run/systemd/journal/socket";

// Whether the descriptor is the journal's, as JOURNAL_STREAM says it (systemd.exec(5)).
bool is_journal(int fd);

// The datagram: "NAME=value\n", or, of a value with a line feed, "NAME\n", its length as 8 bytes,
// the lowest first, the value and "\n".
std::string journal_datagram(const JournalFields& fields);

// False if the entry did not get there, with errno. Does not wait.
bool send_to_journal(const JournalFields& fields, const std::string& socket = kJournalSocket);

}  // namespace host

#endif  // HOST_COMMON_JOURNAL_H_

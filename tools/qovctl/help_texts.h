#ifndef QOV_TOOLS_QOVCTL_HELP_TEXTS_H
#define QOV_TOOLS_QOVCTL_HELP_TEXTS_H

namespace qov::ctl {

// What stands at the end of the help of the commands that speak with an endpoint.

inline constexpr const char* kResending = R"(
A request that no reply came to is sent once more, or as often as --retries says, on a new
connection each time, before the command gives up: a request may take its time-outs so many times,
and the endpoint may have served it more than once. A note on standard error says so.)";

inline constexpr const char* kEnvironment = R"(
Environment:
  QOVCTL_ENDPOINT  the endpoint if there is no --endpoint; without it 127.0.0.1:19001
  QOVCTL_TABLES    the file if there is no --tables; without it qovpub/tables.json in
                   $XDG_CONFIG_HOME or ~/.config, and without that the tables of qov-endpoint)";

inline constexpr const char* kGetText = R"(
Rows are printed as they come, with an empty line between them. A key that the endpoint refuses is
a line on standard error, and the other rows are printed all the same.
For example:
  qovctl get --table interfaces 2 3
  qovctl get --table interfaces --columns name,mtu 2
  qovctl get counts)";

inline constexpr const char* kWalkText = R"(
Each row is printed as it comes. A column is as wide as its widest value so far (8 to 60
characters); the line of names comes again with a row that has one more column. --json has a message
for each row, --dump each reply that refuses nothing, as the logs would have it. A walk stops after
10000 rows; --after goes on behind the last key.)";

inline constexpr const char* kSendText = R"(
The file holds one V3 message as "qovctl decode --json" prints it; what has a default and all
lengths may be left out. On the command line a message is made of --command, which begins a record,
and --cell, which adds to it:
  qovctl send --command store/0x1000 --cell 1:String:hello --cell 2:Uint:5
COMMAND is a number, or get-next, get, store or counts, a slash and a table. TYPE is Invalid, Octet
(VALUE in hexadecimal digits), String, Uint, Int, Bool, Enum, Time (numbers, 16 or 0x10), Array or
Json (JSON text); a Bool may be true or false. COLUMN is a name of the command's table, which tells
tag and type; "key" and "status" are columns of every table. The link gives the message a serial
number of its own. The reply is printed whatever its RET: RET, and of each record its command and
cells.)";

inline constexpr const char* kTablesText = R"(
A line for each column of each table, from the file that --table, --columns and --cell go by:
  {"tables":[{"number":4096,"name":"fans","columns":[{"tag":1,"name":"speed","type":"Uint"}]}]}
A number is 1 to 4294967295, a tag 0 to 4092 or 4094, a type as of send. A name is a letter, and
letters, digits, "-", "_" and "." behind it. No number, tag or name comes twice where it would be
mistaken.)";

}  // namespace qov::ctl

#endif

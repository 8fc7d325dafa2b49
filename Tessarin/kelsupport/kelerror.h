#pragma once
// Error reporting of the support library. Every check formats its message into
// one static buffer and hands it to a replaceable handler. A handler may return:
// the caller then goes on with its data as they stand.

namespace kel {

using message_handler = void (*)(const char* text);

// The fatal handler's default prints "<error> TEXT" and ends the process; the
// warning handler's default prints "<warning> TEXT" and returns.
message_handler set_fatal_handler(message_handler h);   // returns the previous one
message_handler set_warning_handler(message_handler h); // returns the previous one

void fatal(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void warning(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

} // namespace kel

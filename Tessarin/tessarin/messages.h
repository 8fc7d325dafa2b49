#pragma once
// The kernel's three report channels. Each prefixes its word ("<warning> ",
// "<internal error> ", "<user error> ") and hands the finished text to its
// handler, which may return; the kernel then goes on. Nothing here is re-entrant.

namespace tessarin {

using report_handler = void (*)(const char* text);

// Each setter returns the previous handler; null restores the default, which
// prints the text to standard error and returns.
report_handler set_warning_handler(report_handler h);
report_handler set_internal_error_handler(report_handler h);
report_handler set_user_error_handler(report_handler h);

void warning(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void internal_error(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void user_error(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

} // namespace tessarin

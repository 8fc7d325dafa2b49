#include "Tessarin/tessarin/messages.h"

#include <cstdarg>
#include <cstdio>

namespace tessarin {
namespace {

char buffer[4096];

void print_default(const char* text) {
    std::fputs(text, stderr), std::fputc('\n', stderr);
}

report_handler warning_h = print_default;
report_handler internal_h = print_default;
report_handler user_h = print_default;

report_handler swap(report_handler& slot, report_handler h) {
    report_handler old = slot;
    slot = h ? h : print_default;
    return old;
}

void emit(report_handler h, const char* prefix, const char* fmt, va_list ap) {
    int n = std::snprintf(buffer, sizeof buffer, "%s", prefix);
    std::vsnprintf(buffer + n, sizeof buffer - size_t(n), fmt, ap);
    h(buffer);
}

} // namespace

report_handler set_warning_handler(report_handler h) {
    return swap(warning_h, h);
}
report_handler set_internal_error_handler(report_handler h) {
    return swap(internal_h, h);
}
report_handler set_user_error_handler(report_handler h) {
    return swap(user_h, h);
}

void warning(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    emit(warning_h, "<warning> ", fmt, ap);
    va_end(ap);
}

void internal_error(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    emit(internal_h, "<internal error> ", fmt, ap);
    va_end(ap);
}

void user_error(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    emit(user_h, "<user error> ", fmt, ap);
    va_end(ap);
}

} // namespace tessarin

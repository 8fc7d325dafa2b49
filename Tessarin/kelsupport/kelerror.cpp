#include "Tessarin/kelsupport/kelerror.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace kel {
namespace {

char message_buffer[2048];

void default_fatal(const char* text) {
    std::fprintf(stderr, "<error> %s\n", text);
    std::exit(1);
}

void default_warning(const char* text) {
    std::fprintf(stderr, "<warning> %s\n", text);
}

message_handler fatal_handler = default_fatal;
message_handler warning_handler = default_warning;

} // namespace

message_handler set_fatal_handler(message_handler h) {
    message_handler old = fatal_handler;
    fatal_handler = h ? h : default_fatal;
    return old;
}

message_handler set_warning_handler(message_handler h) {
    message_handler old = warning_handler;
    warning_handler = h ? h : default_warning;
    return old;
}

void fatal(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(message_buffer, sizeof message_buffer, fmt, ap);
    va_end(ap);
    fatal_handler(message_buffer);
}

void warning(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(message_buffer, sizeof message_buffer, fmt, ap);
    va_end(ap);
    warning_handler(message_buffer);
}

} // namespace kel

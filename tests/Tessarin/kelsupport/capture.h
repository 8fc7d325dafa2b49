#pragma once
#include <string>
#include <vector>

#include "Tessarin/kelsupport/kelerror.h"

// Installs handlers that record messages and return, for the life of the object.
struct message_capture {
    static inline std::vector<std::string> fatals, warnings;
    kel::message_handler old_fatal, old_warning;
    message_capture() {
        fatals.clear();
        warnings.clear();
        old_fatal = kel::set_fatal_handler([](const char* t) { fatals.emplace_back(t); });
        old_warning = kel::set_warning_handler([](const char* t) { warnings.emplace_back(t); });
    }
    ~message_capture() {
        kel::set_fatal_handler(old_fatal);
        kel::set_warning_handler(old_warning);
    }
    std::string last_fatal() const { return fatals.empty() ? "" : fatals.back(); }
};

// Counts operator new calls in this test program.
extern long heap_allocations;

#pragma once
#include <string>
#include <vector>

#include "Tessarin/tessarin/messages.h"

// Records the kernel's reports for the life of the object.
struct report_capture {
    static inline std::vector<std::string> warnings, internal, user;
    tessarin::report_handler ow, oi, ou;
    report_capture() {
        warnings.clear();
        internal.clear();
        user.clear();
        ow = tessarin::set_warning_handler([](const char* t) { warnings.emplace_back(t); });
        oi = tessarin::set_internal_error_handler([](const char* t) { internal.emplace_back(t); });
        ou = tessarin::set_user_error_handler([](const char* t) { user.emplace_back(t); });
    }
    ~report_capture() {
        tessarin::set_warning_handler(ow);
        tessarin::set_internal_error_handler(oi);
        tessarin::set_user_error_handler(ou);
    }
    static bool has(const std::vector<std::string>& v, const std::string& text) {
        for (const auto& s : v)
            if (s == text) return true;
        return false;
    }
};

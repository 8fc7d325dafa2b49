#include "Tessarin/kelsupport/io.h"

#include "Tessarin/kelsupport/kelerror.h"

std::FILE* kel_open(const char* name, bool for_output, const char* caller) {
    if (!name) {
        kel::warning("%s: argument error", caller ? caller : "kel_open");
        return nullptr;
    }
    std::FILE* f = std::fopen(name, for_output ? "w" : "r");
    if (!f) {
        const char* what = for_output ? "output" : "input";
        if (caller)
            kel::warning("%s: cannot open '%s' for %s", caller, name, what);
        else
            kel::warning("Cannot open '%s' for %s", name, what);
    }
    return f;
}

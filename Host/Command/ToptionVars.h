#pragma once
// Named preferences kept for the session (the optionVar command's store).

#include "Host/Script/TscriptValue.h"

#include <string>
#include <vector>

class ToptionVars {
public:
    static bool exists(const std::string& name);
    // The stored value, None when absent.
    static TscriptValue value(const std::string& name);
    // Read with a fallback when absent or of a kind that does not convert.
    static int intValue(const std::string& name, int fallback = 0);
    static double floatValue(const std::string& name, double fallback = 0.0);
    static std::string stringValue(const std::string& name, const std::string& fallback = {});

    static void setInt(const std::string& name, int value);
    static void setFloat(const std::string& name, double value);
    static void setString(const std::string& name, const std::string& value);
    // Appending makes an array of the kind appended; a scalar of that kind
    // becomes the first element, anything else is replaced.
    static void appendInt(const std::string& name, int value);
    static void appendFloat(const std::string& name, double value);
    static void appendString(const std::string& name, const std::string& value);

    static bool remove(const std::string& name);
    static std::vector<std::string> names(); // sorted
    static void clear();
};

#pragma once
// The project directory files are written under, and its file rules (which
// subdirectory holds which kind of file).

#include <string>
#include <vector>

class TworkspaceRoot {
public:
    // The root; the process's working directory until set. No trailing '/'.
    static std::string get();
    static void set(const std::string& directory);
    // Forgets the root and the rules set at run time.
    static void reset();

    // The rule's directory relative to the root ("particles" for the
    // "particles" rule); empty for an unknown rule.
    static std::string fileRule(const std::string& rule);
    static void setFileRule(const std::string& rule, const std::string& directory);
    static std::vector<std::string> fileRuleNames(); // sorted

    // root/rule-directory, or the root itself for an unknown or empty rule.
    static std::string directoryFor(const std::string& rule);
};

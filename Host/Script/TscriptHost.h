#pragma once
// What the interpreter needs from the program around it: the commands, and
// the places where output, warnings and errors go.

#include "Host/Script/TscriptValue.h"

#include <stdexcept>
#include <string>
#include <vector>

struct TsourceLocation {
    std::string file; // "-c" for text given on the command line
    int line = 0;
};

// One argument of a command call. A bare `-word` in command syntax is a flag;
// in function syntax, a string argument of the form "-word" is a flag too.
struct TscriptArg {
    TscriptValue value;
    bool isFlag = false;
};

// A failure that stops the script. `reported` is true when the message was
// already shown (through TscriptHost::error) and must not be shown again.
class TscriptError : public std::runtime_error {
public:
    TscriptError(const std::string& message, TsourceLocation where, bool reported = false)
        : std::runtime_error(message), fWhere(std::move(where)), fReported(reported) {}
    const TsourceLocation& where() const { return fWhere; }
    bool reported() const { return fReported; }

private:
    TsourceLocation fWhere;
    bool fReported;
};

class TscriptHost {
public:
    virtual ~TscriptHost() = default;

    virtual bool hasCommand(const std::string& name) const = 0;

    // Runs a command and gives its result (None when it returns nothing).
    // Throws TscriptError on failure; a command that already displayed its
    // error throws with `reported` set.
    virtual TscriptValue runCommand(const std::string& name, const std::vector<TscriptArg>& args,
                                    const TsourceLocation& where) = 0;

    // Text from `print`, as is (no newline added).
    virtual void output(const std::string& text) = 0;
    // Shown as "// Warning: TEXT //".
    virtual void warning(const std::string& text) = 0;
    // Shown as "// Error: FILE:LINE: TEXT //".
    virtual void error(const TsourceLocation& where, const std::string& text) = 0;
    // Shown as "// Result: VALUE //" for top-level commands when echo is on.
    virtual void result(const TscriptValue& value) = 0;
};

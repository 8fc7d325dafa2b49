#pragma once
// The arguments of one command call, as the interpreter hands them over:
// the command's name and its words in order, flags marked.

#include "Host/Script/TscriptHost.h"
#include "Host/Script/TscriptValue.h"

#include <initializer_list>
#include <string>
#include <vector>

class TargList {
public:
    TargList() = default;
    TargList(std::string commandName, std::vector<TscriptArg> args);

    // Words as typed: "-word" is a flag unless it reads as a number, anything
    // else is a string (the parser converts strings where numbers are wanted).
    static TargList fromWords(std::string commandName, std::initializer_list<std::string> words);
    static TargList fromWords(std::string commandName, const std::vector<std::string>& words);

    const std::string& commandName() const { return fCommandName; }
    void setCommandName(std::string name) { fCommandName = std::move(name); }

    std::size_t length() const { return fArgs.size(); }
    bool empty() const { return fArgs.empty(); }
    const TscriptArg& operator[](std::size_t i) const { return fArgs[i]; }
    // Checked: a missing argument throws std::out_of_range naming the command.
    const TscriptArg& at(std::size_t i) const;
    const std::vector<TscriptArg>& args() const { return fArgs; }

    TargList& add(TscriptValue value);
    // "-radius" or "radius".
    TargList& addFlag(const std::string& name);

    // The call as a command line: polySphere -radius 2 -name "ball".
    std::string toString() const;

private:
    std::string fCommandName;
    std::vector<TscriptArg> fArgs;
};

#pragma once
// A host for interpreter tests: it records every command call with its
// arguments and answers from canned results.

#include "Host/Script/TscriptHost.h"

#include <map>
#include <set>
#include <string>
#include <vector>

struct RecordedCall {
    std::string name;
    std::vector<TscriptArg> args;
    int line = 0;

    // The arguments as text, flags marked: "-r 0 -5 0" style with flags as "[-r]".
    std::string argText() const {
        std::string out;
        for (const auto& a : args) {
            if (!out.empty()) out += ' ';
            if (a.isFlag) out += '[';
            out += a.value.toString();
            if (a.isFlag) out += ']';
        }
        return out;
    }
};

class FakeScriptHost : public TscriptHost {
public:
    std::set<std::string> commands = {"setAttr", "getAttr", "move",    "polySphere", "ls",
                                      "select",  "failing", "nothing", "currentTime"};
    std::map<std::string, TscriptValue> results; // by command name
    std::vector<RecordedCall> calls;
    std::string out;
    std::vector<std::string> warnings;
    std::vector<std::string> errors; // "FILE:LINE: TEXT"
    std::vector<std::string> echoed;

    bool hasCommand(const std::string& name) const override { return commands.count(name) > 0; }

    TscriptValue runCommand(const std::string& name, const std::vector<TscriptArg>& args,
                            const TsourceLocation& where) override {
        calls.push_back({name, args, where.line});
        if (name == "failing") {
            error(where, "failing: it failed");
            throw TscriptError("failing: it failed", where, true);
        }
        auto it = results.find(name);
        return it == results.end() ? TscriptValue() : it->second;
    }
    void output(const std::string& text) override { out += text; }
    void warning(const std::string& text) override { warnings.push_back(text); }
    void error(const TsourceLocation& where, const std::string& text) override {
        errors.push_back(where.file + ":" + std::to_string(where.line) + ": " + text);
    }
    void result(const TscriptValue& value) override { echoed.push_back(value.toString()); }
};

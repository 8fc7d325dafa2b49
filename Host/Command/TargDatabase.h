#pragma once
// A command call parsed against its syntax: which flags were given with which
// arguments, the mode, the objects and trailing values.

#include "Host/Command/TargList.h"
#include "Host/Command/Tsyntax.h"
#include "Host/Script/TscriptValue.h"
#include "Host/Time/TanimTime.h"

#include <stdexcept>
#include <string>
#include <vector>

// Bad arguments; the message names the command and the flag. The command
// engine shows it as the command's error.
class TargError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Asks a command what it accepts without running it: while a probe is open,
// the first TargDatabase a command builds hands its syntax to the probe and
// stops the command (by throwing TsyntaxProbed, which is no std::exception,
// so no command's own error handling swallows it).
struct TsyntaxProbed {};
class TsyntaxProbe {
public:
    TsyntaxProbe();
    ~TsyntaxProbe();
    TsyntaxProbe(const TsyntaxProbe&) = delete;
    TsyntaxProbe& operator=(const TsyntaxProbe&) = delete;
    const Tsyntax& syntax() const { return fSyntax; }
    bool found() const { return fFound; }

private:
    friend class TargDatabase;
    Tsyntax fSyntax;
    bool fFound = false;
    TsyntaxProbe* fOuter = nullptr;
};

class TargDatabase {
public:
    TargDatabase() = default;
    // Parses, throwing TargError.
    TargDatabase(const Tsyntax& syntax, const TargList& args);

    // Parses into this database. On failure shows the error through the
    // current command engine and returns -1 (the code for "already shown").
    int parse(const Tsyntax& syntax, const TargList& args);

    const std::string& commandName() const { return fCommand; }

    // Unknown names are simply not set.
    bool isFlagSet(const std::string& flag) const;
    std::size_t flagUseCount(const std::string& flag) const;
    // Arguments a use of the flag carries (fewer than declared in query mode).
    std::size_t flagArgumentCount(const std::string& flag, std::size_t use = 0) const;

    // The argument as parsed: Bool and Int give int, Double and Time double,
    // String string. Throws TargError when the flag is unknown, not set, or
    // has no such use or position.
    const TscriptValue& flagArgument(const std::string& flag, std::size_t use = 0,
                                     std::size_t position = 0) const;
    bool flagArgumentBool(const std::string& flag, std::size_t use = 0, std::size_t position = 0) const;
    int flagArgumentInt(const std::string& flag, std::size_t use = 0, std::size_t position = 0) const;
    double flagArgumentDouble(const std::string& flag, std::size_t use = 0, std::size_t position = 0) const;
    std::string flagArgumentString(const std::string& flag, std::size_t use = 0,
                                   std::size_t position = 0) const;
    // A time argument is a number of the current time unit.
    double flagArgumentTime(const std::string& flag, std::size_t use = 0, std::size_t position = 0) const;
    TanimTime flagArgumentAnimTime(const std::string& flag, std::size_t use = 0,
                                   std::size_t position = 0) const;

    // Reads an argument when the flag was given with it; the value is left
    // alone and false returned otherwise.
    bool getFlagArgument(const std::string& flag, std::size_t position, bool& value,
                         std::size_t use = 0) const;
    bool getFlagArgument(const std::string& flag, std::size_t position, int& value,
                         std::size_t use = 0) const;
    bool getFlagArgument(const std::string& flag, std::size_t position, double& value,
                         std::size_t use = 0) const;
    bool getFlagArgument(const std::string& flag, std::size_t position, std::string& value,
                         std::size_t use = 0) const;

    bool isQuery() const { return fQuery; }
    bool isEdit() const { return fEdit; }

    const std::vector<std::string>& objects() const { return fObjects; }
    std::size_t objectCount() const { return fObjects.size(); }
    // True when the objects came from the selection rather than the arguments.
    bool objectsFromSelection() const { return fFromSelection; }

    const std::vector<TscriptValue>& values() const { return fValues; }
    std::size_t valueCount() const { return fValues.size(); }
    // A trailing value converted; throws TargError naming the position.
    double valueDouble(std::size_t index) const;
    int valueInt(std::size_t index) const;
    std::string valueString(std::size_t index) const;

private:
    struct FlagUses {
        std::vector<std::vector<TscriptValue>> uses;
    };

    void parseInto(const Tsyntax& syntax, const TargList& args);
    const FlagUses* usesOf(const std::string& flag) const;
    std::string displayFlag(const std::string& flag) const;
    const std::vector<TscriptValue>* use(const std::string& flag, std::size_t useIndex) const;
    [[noreturn]] void fail(const std::string& text) const;

    std::string fCommand;
    std::vector<TflagInfo> fFlagInfo;
    std::vector<FlagUses> fFlags; // parallel to fFlagInfo
    bool fQuery = false;
    bool fEdit = false;
    std::vector<std::string> fObjects;
    bool fFromSelection = false;
    std::vector<TscriptValue> fValues;
};

// The converters the parser uses, for commands that read values themselves.
// Each returns false when the value does not read as the type.
bool scriptValueToBool(const TscriptValue& value, bool& out);
bool scriptValueToInt(const TscriptValue& value, int& out);
bool scriptValueToDouble(const TscriptValue& value, double& out);

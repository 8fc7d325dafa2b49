#include "Host/Command/TargDatabase.h"

#include "Host/Command/TcommandEngine.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>

namespace {

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Whole-text number reading, independent of the locale.
bool readDouble(const std::string& text, double& out) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    if (begin < end && text[begin] == '+') ++begin;
    if (begin == end) return false;
    double value = 0.0;
    auto [ptr, ec] = std::from_chars(text.data() + begin, text.data() + end, value);
    if (ec != std::errc() || ptr != text.data() + end || !std::isfinite(value)) return false;
    out = value;
    return true;
}

bool isNumericType(TargType type) {
    return type == TargType::Int || type == TargType::Double || type == TargType::Time;
}

const char* typeWanted(TargType type) {
    switch (type) {
    case TargType::Bool:
        return "on or off";
    case TargType::Int:
        return "an integer";
    case TargType::Double:
        return "a number";
    case TargType::String:
        return "a string";
    case TargType::Time:
        return "a time";
    }
    return "a value";
}

const char* kindName(const TscriptValue& value) {
    switch (value.type()) {
    case TscriptType::Vector:
        return "a vector";
    case TscriptType::IntArray:
    case TscriptType::FloatArray:
    case TscriptType::StringArray:
    case TscriptType::VectorArray:
        return "an array";
    case TscriptType::None:
        return "nothing";
    default:
        return "";
    }
}

// Converts one argument to the flag's type; false when it does not fit.
bool convert(const TscriptValue& value, TargType type, TscriptValue& out) {
    switch (type) {
    case TargType::Bool: {
        bool b = false;
        if (!scriptValueToBool(value, b)) return false;
        out = TscriptValue(b ? 1 : 0);
        return true;
    }
    case TargType::Int: {
        int i = 0;
        if (!scriptValueToInt(value, i)) return false;
        out = TscriptValue(i);
        return true;
    }
    case TargType::Double:
    case TargType::Time: {
        double d = 0.0;
        if (!scriptValueToDouble(value, d)) return false;
        out = TscriptValue(d);
        return true;
    }
    case TargType::String:
        if (value.type() != TscriptType::String && !value.isNumber()) return false;
        out = TscriptValue(value.asString());
        return true;
    }
    return false;
}

std::string counted(std::size_t n, const char* noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

std::string shown(const TscriptValue& value) {
    const char* kind = kindName(value);
    if (*kind) return kind;
    if (value.type() == TscriptType::Float && !std::isfinite(value.asFloat()))
        return std::string("'") + value.asString() + "', which is not a finite number";
    // Built by appending: GCC 12 warns falsely (-Wrestrict) on "'" + temporary.
    std::string out(1, '\'');
    out += value.asString();
    out += '\'';
    return out;
}

} // namespace

bool scriptValueToBool(const TscriptValue& value, bool& out) {
    switch (value.type()) {
    case TscriptType::Int:
    case TscriptType::Float:
        out = value.asFloat() != 0.0;
        return true;
    case TscriptType::String: {
        std::string word = lower(value.asString());
        if (word == "on" || word == "true" || word == "yes" || word == "1") {
            out = true;
            return true;
        }
        if (word == "off" || word == "false" || word == "no" || word == "0") {
            out = false;
            return true;
        }
        return false;
    }
    default:
        return false;
    }
}

bool scriptValueToDouble(const TscriptValue& value, double& out) {
    switch (value.type()) {
    case TscriptType::Int:
        out = value.asFloat();
        return true;
    case TscriptType::Float:
        // 0/0 and overflows make NaN and infinities in scripts: they stop where they enter.
        out = value.asFloat();
        return std::isfinite(out);
    case TscriptType::String:
        return readDouble(value.asString(), out);
    default:
        return false;
    }
}

bool scriptValueToInt(const TscriptValue& value, int& out) {
    if (value.type() == TscriptType::Int) {
        out = value.asInt();
        return true;
    }
    double d = 0.0;
    if (!scriptValueToDouble(value, d)) return false;
    // 2.0 is an integer, 2.5 is not; the whole range of int only.
    if (d != std::floor(d) || d < static_cast<double>(INT_MIN) || d > static_cast<double>(INT_MAX))
        return false;
    out = static_cast<int>(d);
    return true;
}

TargDatabase::TargDatabase(const Tsyntax& syntax, const TargList& args) {
    parseInto(syntax, args);
}

int TargDatabase::parse(const Tsyntax& syntax, const TargList& args) {
    try {
        parseInto(syntax, args);
    } catch (const TargError& e) {
        TcommandEngine::current().displayError(e.what());
        return -1;
    }
    return 0;
}

void TargDatabase::fail(const std::string& text) const {
    throw TargError(fCommand.empty() ? text : fCommand + ": " + text);
}

namespace {
TsyntaxProbe* gProbe = nullptr;
} // namespace

TsyntaxProbe::TsyntaxProbe() : fOuter(gProbe) {
    gProbe = this;
}

TsyntaxProbe::~TsyntaxProbe() {
    gProbe = fOuter;
}

void TargDatabase::parseInto(const Tsyntax& syntax, const TargList& args) {
    if (gProbe) {
        gProbe->fSyntax = syntax;
        gProbe->fFound = true;
        throw TsyntaxProbed{};
    }
    fCommand = args.commandName();
    fFlagInfo = syntax.flags();
    fFlags.assign(fFlagInfo.size(), FlagUses{});
    fQuery = fEdit = fFromSelection = false;
    fObjects.clear();
    fValues.clear();

    // The mode first: how many arguments a flag takes depends on it.
    const int queryIndex = syntax.queryEnabled() ? syntax.flagIndex("query") : -1;
    const int editIndex = syntax.editEnabled() ? syntax.flagIndex("edit") : -1;
    for (const TscriptArg& arg : args.args()) {
        if (!arg.isFlag) continue;
        int index = syntax.flagIndex(arg.value.asString());
        if (index >= 0 && index == queryIndex) fQuery = true;
        if (index >= 0 && index == editIndex) fEdit = true;
    }
    if (fQuery && fEdit) fail("-query and -edit cannot be used together");

    std::vector<TscriptValue> positional;
    const std::size_t count = args.length();
    for (std::size_t i = 0; i < count; ++i) {
        const TscriptArg& arg = args[i];
        if (!arg.isFlag) {
            positional.push_back(arg.value);
            continue;
        }
        std::string word = arg.value.asString();
        int index = syntax.flagIndex(word);
        double number = 0.0;
        if (index < 0 && readDouble(word, number) && word.rfind('-', 0) == 0) {
            // A negative number among the objects or values (setAttr ball.tx -5).
            positional.push_back(TscriptValue(number));
            continue;
        }
        if (index < 0) fail("invalid flag '-" + stripFlagDash(word) + "'");
        const TflagInfo& info = fFlagInfo[static_cast<std::size_t>(index)];
        FlagUses& uses = fFlags[static_cast<std::size_t>(index)];
        if (!info.multiUse && !uses.uses.empty())
            fail("flag '" + info.displayName() + "' may be used only once");

        const std::size_t need = fQuery ? info.queryArgCount : info.types.size();
        std::vector<TscriptValue> got;
        while (got.size() < need) {
            const TargType type = info.types[got.size()];
            if (i + 1 >= count) fail("missing argument for flag '" + info.displayName() + "'");
            const TscriptArg& next = args[i + 1];
            // A negative number can arrive looking like a flag.
            if (next.isFlag && !(isNumericType(type) && readDouble(next.value.asString(), number)))
                fail("missing argument for flag '" + info.displayName() + "'");
            ++i;
            const TscriptValue& value = next.value;
            if (value.type() == TscriptType::Vector && need - got.size() >= 3 &&
                std::all_of(info.types.begin() + static_cast<std::ptrdiff_t>(got.size()),
                            info.types.begin() + static_cast<std::ptrdiff_t>(got.size() + 3),
                            isNumericType)) {
                // <<x, y, z>> for three number arguments.
                for (double component : value.asVector()) {
                    const TargType componentType = info.types[got.size()];
                    TscriptValue converted;
                    if (!convert(TscriptValue(component), componentType, converted))
                        fail("flag '" + info.displayName() + "' expects " + typeWanted(componentType) +
                             ", got " + shown(TscriptValue(component)) + " in a vector");
                    got.push_back(std::move(converted));
                }
                continue;
            }
            TscriptValue converted;
            if (!convert(value, type, converted))
                fail("flag '" + info.displayName() + "' expects " + typeWanted(type) + ", got " +
                     shown(value));
            got.push_back(std::move(converted));
        }
        uses.uses.push_back(std::move(got));
    }

    // Objects come first among the positional words, then plain values.
    const Tsyntax::ObjectKind kind = syntax.objectKind();
    std::size_t next = 0;
    if (kind != Tsyntax::ObjectKind::None) {
        while (next < positional.size() && fObjects.size() < syntax.maxObjects()) {
            const TscriptValue& value = positional[next];
            if (value.type() == TscriptType::String) {
                fObjects.push_back(value.asString());
            } else if (value.type() == TscriptType::StringArray) {
                const auto& names = value.stringArray();
                if (names.size() > syntax.maxObjects() - fObjects.size()) fail("too many objects");
                fObjects.insert(fObjects.end(), names.begin(), names.end());
            } else if (syntax.takesValues()) {
                break;
            } else if (kind == Tsyntax::ObjectKind::Strings && value.isNumber()) {
                fObjects.push_back(value.asString());
            } else {
                fail("expects an object name, got " + shown(value));
            }
            ++next;
        }
    }
    if (syntax.takesValues()) {
        fValues.assign(positional.begin() + static_cast<std::ptrdiff_t>(next), positional.end());
    } else if (next < positional.size()) {
        if (kind == Tsyntax::ObjectKind::None) fail("unexpected argument " + shown(positional[next]));
        fail("too many objects");
    }

    if (fObjects.empty() && kind != Tsyntax::ObjectKind::None && syntax.selectionAsDefault()) {
        fObjects = TcommandEngine::current().selection();
        fFromSelection = true;
    }
    if (kind == Tsyntax::ObjectKind::Objects && !fFromSelection) {
        const TcommandEngine& engine = TcommandEngine::current();
        std::vector<std::string> matched;
        for (const std::string& name : fObjects) {
            std::vector<std::string> names = engine.matchObjects(name);
            if (names.empty()) fail("no object matches name '" + name + "'");
            // A name given twice, or matched by two patterns, counts once.
            for (std::string& n : names)
                if (std::find(matched.begin(), matched.end(), n) == matched.end())
                    matched.push_back(std::move(n));
        }
        fObjects = std::move(matched);
    }
    if (fObjects.size() < syntax.minObjects()) {
        if (fObjects.empty())
            fail(syntax.selectionAsDefault() ? "no object given or selected" : "no object given");
        fail("needs at least " + counted(syntax.minObjects(), "object") + ", got " +
             std::to_string(fObjects.size()));
    }
    if (fObjects.size() > syntax.maxObjects())
        fail(fFromSelection ? "too many objects selected" : "too many objects");
    if (syntax.takesValues()) {
        if (fValues.size() < syntax.minValues())
            fail("expects at least " + counted(syntax.minValues(), "value") + ", got " +
                 std::to_string(fValues.size()));
        if (fValues.size() > syntax.maxValues())
            fail("expects at most " + counted(syntax.maxValues(), "value") + ", got " +
                 std::to_string(fValues.size()));
    }
}

std::string TargDatabase::displayFlag(const std::string& flag) const {
    std::string bare = stripFlagDash(flag);
    for (const TflagInfo& info : fFlagInfo)
        if (info.longName == bare || info.shortName == bare) return info.displayName();
    return "-" + bare;
}

const TargDatabase::FlagUses* TargDatabase::usesOf(const std::string& flag) const {
    std::string bare = stripFlagDash(flag);
    for (int pass = 0; pass < 2; ++pass) {
        for (std::size_t i = 0; i < fFlagInfo.size(); ++i) {
            const std::string& name = pass == 0 ? fFlagInfo[i].longName : fFlagInfo[i].shortName;
            if (name == bare) return &fFlags[i];
        }
    }
    return nullptr;
}

bool TargDatabase::isFlagSet(const std::string& flag) const {
    const FlagUses* uses = usesOf(flag);
    return uses && !uses->uses.empty();
}

std::size_t TargDatabase::flagUseCount(const std::string& flag) const {
    const FlagUses* uses = usesOf(flag);
    return uses ? uses->uses.size() : 0;
}

std::size_t TargDatabase::flagArgumentCount(const std::string& flag, std::size_t useIndex) const {
    const FlagUses* uses = usesOf(flag);
    if (!uses || useIndex >= uses->uses.size()) return 0;
    return uses->uses[useIndex].size();
}

const std::vector<TscriptValue>* TargDatabase::use(const std::string& flag, std::size_t useIndex) const {
    const FlagUses* uses = usesOf(flag);
    if (!uses) fail("no flag '-" + stripFlagDash(flag) + "' in this command");
    if (useIndex >= uses->uses.size()) return nullptr;
    return &uses->uses[useIndex];
}

const TscriptValue& TargDatabase::flagArgument(const std::string& flag, std::size_t useIndex,
                                               std::size_t position) const {
    const std::vector<TscriptValue>* values = use(flag, useIndex);
    const std::string name = displayFlag(flag);
    if (!values) fail("flag '" + name + "' was not given");
    if (position >= values->size())
        fail("flag '" + name + "' has no argument " + std::to_string(position + 1) +
             (fQuery ? " in query mode" : ""));
    return (*values)[position];
}

bool TargDatabase::flagArgumentBool(const std::string& flag, std::size_t useIndex,
                                    std::size_t position) const {
    const TscriptValue& value = flagArgument(flag, useIndex, position);
    bool out = false;
    if (!scriptValueToBool(value, out))
        fail("flag '" + displayFlag(flag) + "' expects on or off, got " + shown(value));
    return out;
}

int TargDatabase::flagArgumentInt(const std::string& flag, std::size_t useIndex, std::size_t position) const {
    const TscriptValue& value = flagArgument(flag, useIndex, position);
    int out = 0;
    if (!scriptValueToInt(value, out))
        fail("flag '" + displayFlag(flag) + "' expects an integer, got " + shown(value));
    return out;
}

double TargDatabase::flagArgumentDouble(const std::string& flag, std::size_t useIndex,
                                        std::size_t position) const {
    const TscriptValue& value = flagArgument(flag, useIndex, position);
    double out = 0.0;
    if (!scriptValueToDouble(value, out))
        fail("flag '" + displayFlag(flag) + "' expects a number, got " + shown(value));
    return out;
}

double TargDatabase::flagArgumentTime(const std::string& flag, std::size_t useIndex,
                                      std::size_t position) const {
    return flagArgumentDouble(flag, useIndex, position);
}

TanimTime TargDatabase::flagArgumentAnimTime(const std::string& flag, std::size_t useIndex,
                                             std::size_t position) const {
    return TanimTime::checked(flagArgumentDouble(flag, useIndex, position), kCurrentFrameUnit,
                              "-" + stripFlagDash(flag));
}

std::string TargDatabase::flagArgumentString(const std::string& flag, std::size_t useIndex,
                                             std::size_t position) const {
    return flagArgument(flag, useIndex, position).asString();
}

bool TargDatabase::getFlagArgument(const std::string& flag, std::size_t position, bool& value,
                                   std::size_t useIndex) const {
    if (flagArgumentCount(flag, useIndex) <= position) return false;
    value = flagArgumentBool(flag, useIndex, position);
    return true;
}

bool TargDatabase::getFlagArgument(const std::string& flag, std::size_t position, int& value,
                                   std::size_t useIndex) const {
    if (flagArgumentCount(flag, useIndex) <= position) return false;
    value = flagArgumentInt(flag, useIndex, position);
    return true;
}

bool TargDatabase::getFlagArgument(const std::string& flag, std::size_t position, double& value,
                                   std::size_t useIndex) const {
    if (flagArgumentCount(flag, useIndex) <= position) return false;
    value = flagArgumentDouble(flag, useIndex, position);
    return true;
}

bool TargDatabase::getFlagArgument(const std::string& flag, std::size_t position, std::string& value,
                                   std::size_t useIndex) const {
    if (flagArgumentCount(flag, useIndex) <= position) return false;
    value = flagArgumentString(flag, useIndex, position);
    return true;
}

double TargDatabase::valueDouble(std::size_t index) const {
    if (index >= fValues.size()) fail("missing value " + std::to_string(index + 1));
    double out = 0.0;
    if (!scriptValueToDouble(fValues[index], out))
        fail("value " + std::to_string(index + 1) + " should be a number, got " + shown(fValues[index]));
    return out;
}

int TargDatabase::valueInt(std::size_t index) const {
    if (index >= fValues.size()) fail("missing value " + std::to_string(index + 1));
    int out = 0;
    if (!scriptValueToInt(fValues[index], out))
        fail("value " + std::to_string(index + 1) + " should be an integer, got " + shown(fValues[index]));
    return out;
}

std::string TargDatabase::valueString(std::size_t index) const {
    if (index >= fValues.size()) fail("missing value " + std::to_string(index + 1));
    return fValues[index].asString();
}

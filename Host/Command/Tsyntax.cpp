#include "Host/Command/Tsyntax.h"

#include <stdexcept>

std::string stripFlagDash(const std::string& name) {
    return (!name.empty() && name[0] == '-') ? name.substr(1) : name;
}

std::size_t Tsyntax::addFlag(const std::string& shortName, const std::string& longName,
                             std::initializer_list<TargType> types) {
    return addFlag(shortName, longName, std::vector<TargType>(types));
}

std::size_t Tsyntax::addFlag(const std::string& shortName, const std::string& longName,
                             std::vector<TargType> types) {
    TflagInfo info;
    info.shortName = stripFlagDash(shortName);
    info.longName = stripFlagDash(longName);
    if (info.shortName.empty() && info.longName.empty())
        throw std::logic_error("Tsyntax: flag without a name");
    if (info.shortName.empty()) info.shortName = info.longName;
    if (info.longName.empty()) info.longName = info.shortName;
    for (const std::string* name : {&info.shortName, &info.longName}) {
        if (findFlag(*name)) throw std::logic_error("Tsyntax: flag '-" + *name + "' defined twice");
    }
    info.types = std::move(types);
    fFlags.push_back(std::move(info));
    return fFlags.size() - 1;
}

TflagInfo& Tsyntax::flagRef(const std::string& name) {
    int index = flagIndex(name);
    if (index < 0) throw std::logic_error("Tsyntax: no flag '-" + stripFlagDash(name) + "'");
    return fFlags[static_cast<std::size_t>(index)];
}

void Tsyntax::makeFlagMultiUse(const std::string& flag) {
    flagRef(flag).multiUse = true;
}

void Tsyntax::makeFlagQueryWithArgs(const std::string& flag, std::size_t count) {
    TflagInfo& info = flagRef(flag);
    if (count > info.types.size())
        throw std::logic_error("Tsyntax: flag '" + info.displayName() +
                               "' has fewer arguments than its query takes");
    info.queryArgCount = count;
}

void Tsyntax::enableQuery(bool on) {
    if (on && !fQuery) addFlag("q", "query");
    fQuery = on;
}

void Tsyntax::enableEdit(bool on) {
    if (on && !fEdit) addFlag("e", "edit");
    fEdit = on;
}

void Tsyntax::setObjectKind(ObjectKind kind, std::size_t minCount, std::size_t maxCount) {
    fObjectKind = kind;
    fMinObjects = kind == ObjectKind::None ? 0 : minCount;
    fMaxObjects = kind == ObjectKind::None ? 0 : maxCount;
}

void Tsyntax::setValueArguments(std::size_t minCount, std::size_t maxCount) {
    fTakesValues = true;
    fMinValues = minCount;
    fMaxValues = maxCount;
}

int Tsyntax::flagIndex(const std::string& name) const {
    std::string bare = stripFlagDash(name);
    if (bare.empty()) return -1;
    // Long names first: a long name of one flag may be a short name of another.
    for (std::size_t i = 0; i < fFlags.size(); ++i)
        if (fFlags[i].longName == bare) return static_cast<int>(i);
    for (std::size_t i = 0; i < fFlags.size(); ++i)
        if (fFlags[i].shortName == bare) return static_cast<int>(i);
    return -1;
}

const TflagInfo* Tsyntax::findFlag(const std::string& name) const {
    int index = flagIndex(name);
    return index < 0 ? nullptr : &fFlags[static_cast<std::size_t>(index)];
}

#pragma once
// What a command accepts: its flags with their argument types, query and
// edit modes, the objects it works on and trailing plain values.

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

enum class TargType {
    Bool, // on/off, true/false, yes/no, 1/0
    Int,
    Double,
    String,
    Time, // a number in the current time unit
};

struct TflagInfo {
    std::string shortName; // without the leading '-'
    std::string longName;
    std::vector<TargType> types;
    bool multiUse = false;
    // How many of its arguments the flag still takes in query mode
    // (`workspace -q -fileRule particles`); 0 for most flags.
    std::size_t queryArgCount = 0;

    // The name to show in messages.
    std::string displayName() const { return "-" + (longName.empty() ? shortName : longName); }
};

class Tsyntax {
public:
    static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

    enum class ObjectKind {
        None,    // positional words are an error (or trailing values)
        Strings, // plain strings, taken as given
        Objects, // names of scene objects or plugs, checked to exist when the graph can tell
    };

    // Returns the flag's index. Names may carry the leading '-'. A name that is
    // already taken is a programming error and throws std::logic_error.
    std::size_t addFlag(const std::string& shortName, const std::string& longName,
                        std::initializer_list<TargType> types = {});
    std::size_t addFlag(const std::string& shortName, const std::string& longName,
                        std::vector<TargType> types);
    void makeFlagMultiUse(const std::string& flag);
    void makeFlagQueryWithArgs(const std::string& flag, std::size_t count);

    // Adds -query/-q and -edit/-e.
    void enableQuery(bool on = true);
    void enableEdit(bool on = true);
    bool queryEnabled() const { return fQuery; }
    bool editEnabled() const { return fEdit; }

    void setObjectKind(ObjectKind kind, std::size_t minCount = 0, std::size_t maxCount = kUnlimited);
    void setMinObjects(std::size_t count) { fMinObjects = count; }
    void setMaxObjects(std::size_t count) { fMaxObjects = count; }
    // With no objects named, take the selection.
    void useSelectionAsDefault(bool on = true) { fSelectionDefault = on; }
    ObjectKind objectKind() const { return fObjectKind; }
    std::size_t minObjects() const { return fMinObjects; }
    std::size_t maxObjects() const { return fMaxObjects; }
    bool selectionAsDefault() const { return fSelectionDefault; }

    // Plain values after the objects (`setAttr plug 1 2 3`).
    void setValueArguments(std::size_t minCount, std::size_t maxCount = kUnlimited);
    bool takesValues() const { return fTakesValues; }
    std::size_t minValues() const { return fMinValues; }
    std::size_t maxValues() const { return fMaxValues; }

    // By short or long name, with or without the '-'; null when unknown.
    const TflagInfo* findFlag(const std::string& name) const;
    // -1 when unknown.
    int flagIndex(const std::string& name) const;
    const std::vector<TflagInfo>& flags() const { return fFlags; }

private:
    TflagInfo& flagRef(const std::string& name);

    std::vector<TflagInfo> fFlags;
    bool fQuery = false;
    bool fEdit = false;
    ObjectKind fObjectKind = ObjectKind::None;
    std::size_t fMinObjects = 0;
    std::size_t fMaxObjects = 0;
    bool fSelectionDefault = false;
    bool fTakesValues = false;
    std::size_t fMinValues = 0;
    std::size_t fMaxValues = 0;
};

// A flag name without its leading '-'.
std::string stripFlagDash(const std::string& name);

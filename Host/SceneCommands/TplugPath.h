#pragma once
// Reading plug names as users write them ("ball.translateX", "p.inputForce[2]",
// "f.inputData[0].inputPositions") and the values they hold.

#include "Host/Graph/TdependGraph.h"
#include "Host/Script/TscriptValue.h"

#include <stdexcept>
#include <string>

// A name that does not lead to a node, attribute or element; the text says which.
class TplugError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Elements of a multi attribute are numbered from 0 to this, exclusive.
constexpr int kMaxMultiIndex = 10'000'000;

TdependNode* findNodeOrThrow(TdependGraph& graph, const std::string& name);
// The plug a name stands for. With `needAttribute` false a bare node name
// gives a null attribute.
Tplug parsePlug(TdependGraph& graph, const std::string& text, bool needAttribute = true);

// A plug's value in a context, as a script value: numbers as int or float,
// numeric compounds as float arrays, times in the current frame unit, arrays
// and strings as script arrays and strings, matrices as 16 floats.
TscriptValue plugValue(const Tplug& plug, const TdgContext& context);

// A copy of a plug's stored value, to put back on undo.
class TplugSnapshot {
public:
    explicit TplugSnapshot(const Tplug& plug);
    // Writes the copy back from outside (dirtying what depends on it).
    void restore() const;

private:
    Tplug fPlug;
    TvalueSlot fSlot;
    T4dDblVector fVector;
    bool fHadElement = true;
};

// Writes a value to a plug from outside: stores it and dirties its dependents.
// False when the node refused it (its setCachedValue said no).
bool writePlugNumber(const Tplug& plug, double value);
bool writePlugVector(const Tplug& plug, const T4dDblVector& value);
bool writePlugTime(const Tplug& plug, TanimTime value);
bool writePlugData(const Tplug& plug, const Tdata& value);
// As above, for commands: a refusal throws a TgraphError naming the plug.
template <class Write> void writeOrThrow(const Tplug& plug, Write write) {
    if (!write()) throw TgraphError(plug.name() + " refused the value");
}

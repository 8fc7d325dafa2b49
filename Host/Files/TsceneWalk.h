#pragma once
// One pass over a scene in the order a scene file holds it: the nodes
// (parents before children), the attributes added to each, the stored values
// that differ from their defaults, the connections, then the scene's
// settings. Every file format writes from this pass, so a node type added
// later is saved without code of its own.

#include "Host/Graph/TdependGraph.h"

#include <string>
#include <vector>

// A stored value as a file holds it.
struct TsceneValue {
    enum class Kind { Number, Time, Vector, Data };
    Kind kind = Kind::Number;
    double number = 0;
    TanimTime time;
    T4dDblVector vector; // numeric compounds, `components` of them used
    unsigned components = 0;
    Tdata data;
};

struct TsceneSettings {
    TtimeUnitSystem unit = kFilm;
    TanimTime minTime, maxTime, currentTime;
    std::vector<std::string> selection;
    // The workspace's file rules (rule, directory under the project root); the root itself
    // is the program's, not the scene's.
    std::vector<std::pair<std::string, std::string>> fileRules;
};

class TsceneVisitor {
public:
    virtual ~TsceneVisitor() = default;
    virtual void node(TdependNode& node, TdependNode* parent) = 0;
    // A root attribute added to the node after it was made (children come with it).
    virtual void dynamicAttribute(TdependNode& node, const Tattribute& attribute) = 0;
    virtual void value(const Tplug& plug, const TsceneValue& value) = 0;
    virtual void connection(const Tplug& source, const Tplug& destination) = 0;
    virtual void settings(const TsceneSettings& settings) = 0;
};

void walkScene(TdependGraph& graph, TsceneVisitor& visitor);

// Whether the letter is a kind scene files hold (numbers, strings, arrays,
// matrices, meshes, curves); other letters are rebuilt by their nodes.
bool isStoredLetter(const Tdata& data);

#include "Host/Files/TsceneWalk.h"

#include "Host/Command/TworkspaceRoot.h"
#include "Host/Dag/TdagObject.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Time/TanimInfo.h"

#include <set>

bool isStoredLetter(const Tdata& d) {
    return d.as<TdataNumber>() || d.as<TdataString>() || d.as<TdataDoubleArray>() ||
           d.as<TdataVectorArray>() || d.as<TdataInt32Array>() || d.as<TdataStringArray>() ||
           d.as<TdataMatrix>() || d.as<TdataMesh>() || d.as<TdataCurve>();
}

namespace {

// An empty array or string says no more than no letter at all: nodes make
// their own empty ones.
bool isEmptyLetter(const Tdata& d) {
    if (d.isNULL()) return true;
    if (auto* a = d.as<TdataDoubleArray>()) return a->length() == 0;
    if (auto* a = d.as<TdataVectorArray>()) return a->length() == 0;
    if (auto* a = d.as<TdataInt32Array>()) return a->length() == 0;
    if (auto* a = d.as<TdataStringArray>()) return a->length() == 0;
    if (auto* s = d.as<TdataString>()) return s->string().empty();
    return false;
}

bool isNumericCompound(const Tattribute* a) {
    return a && a->isCompound() && a->numericComponents() > 0;
}

// A computed number waiting to be computed again: after opening it is computed
// again too, so its old value is not worth keeping. Arrays are kept as they
// stand: a simulation computes its next state from them.
bool isStale(TdependNode& n, TdataBlock& block, const Tattribute* a, int element) {
    const int i = a->index();
    const bool computed =
        i >= 0 && static_cast<unsigned>(i) < n.vsData()->attributeCount() && n.vsData()->isAffected(i);
    return computed && a->isNumeric() && block.slot(a, element).dirty;
}

class Walk {
public:
    Walk(TdependGraph& graph, TsceneVisitor& visitor) : fGraph(graph), fVisitor(visitor) {}

    void run() {
        for (TdependNode* n : fGraph.nodes())
            visitNode(n);
        for (TdependNode* n : fOrder)
            visitAttributes(*n);
        for (TdependNode* n : fOrder)
            visitValues(*n);
        for (TdependNode* n : fOrder)
            visitConnections(*n);
        fVisitor.settings(settings());
    }

private:
    // Parents first, so that a child can be made under its parent.
    void visitNode(TdependNode* n) {
        if (!n->isInGraph() || fSeen.count(n)) return;
        TdependNode* parent = nullptr;
        if (auto* dag = TdagObject::cast(n)) parent = dag->parentObject();
        if (parent) visitNode(parent);
        fSeen.insert(n);
        fOrder.push_back(n);
        fVisitor.node(*n, parent);
    }

    void visitAttributes(TdependNode& n) {
        for (Tattribute* a : n.localDynamicAttrs())
            if (!a->parent()) fVisitor.dynamicAttribute(n, *a);
    }

    void visitValues(TdependNode& n) {
        TdataBlock& block = n.normalBlock();
        for (unsigned i = 0; i < n.attributeCount(); ++i) {
            Tattribute* a = n.attribute(i);
            if (!a || !a->hasFlag(Tattribute::kStorable) || !a->hasFlag(Tattribute::kWritable)) continue;
            if (a->type() == TattrType::Message) continue;
            // A numeric compound is written whole; other compounds child by child.
            if (isNumericCompound(a->parent())) continue;
            if (a->isCompound() && !isNumericCompound(a)) continue;
            if (a->isElementOfArray()) {
                for (int e : block.elementIndices(a))
                    visitValue(n, block, a, e);
            } else {
                visitValue(n, block, a, -1);
            }
        }
    }

    void visitValue(TdependNode& n, TdataBlock& block, Tattribute* a, int element) {
        const Tplug plug(&n, a, element);
        if (!n.shouldBeWritten(plug)) return;
        TsceneValue v;
        if (auto* c = asCompound(a); c && isNumericCompound(a)) {
            bool differs = false;
            v.kind = TsceneValue::Kind::Vector;
            v.components = c->numericComponents();
            for (unsigned k = 0; k < v.components; ++k) {
                Tattribute* child = c->children()[k];
                // With one part driven, the others are written one by one.
                if (Tplug(&n, child, element).isDestination() || isStale(n, block, child, element)) {
                    for (Tattribute* each : c->children())
                        visitValue(n, block, each, element);
                    return;
                }
                v.vector[static_cast<int>(k)] = block.slot(child, element).number;
                differs = differs || v.vector[static_cast<int>(k)] != child->defaultNumber();
            }
            if (!differs) return;
        } else {
            if (plug.isDestination()) return;
            const TvalueSlot& s = block.slot(a, element);
            if (isStale(n, block, a, element)) return;
            if (a->type() == TattrType::Time) {
                v.kind = TsceneValue::Kind::Time;
                v.time = TanimTime::fromTicks(s.ticks);
                if (v.time == TanimTime(a->defaultNumber(), kSeconds)) return;
            } else if (a->isNumeric()) {
                v.number = s.number;
                if (v.number == a->defaultNumber()) return;
            } else {
                v.kind = TsceneValue::Kind::Data;
                v.data = s.data;
                if (!isStoredLetter(v.data) || v.data.letter() == a->defaultData().letter()) return;
                if (a->defaultData().isNULL() && isEmptyLetter(v.data)) return;
            }
        }
        fVisitor.value(plug, v);
    }

    void visitConnections(TdependNode& n) {
        for (const auto& [key, source] : n.inputConnections()) {
            Tattribute* a = n.attribute(static_cast<unsigned>(key.attr));
            if (!a || source.isNull() || !source.node()->isInGraph()) continue;
            fVisitor.connection(source, Tplug(&n, a, key.index));
        }
    }

    TsceneSettings settings() const {
        TsceneSettings s;
        s.unit = TtimeUnit::current();
        s.minTime = TanimInfo::currAnimInfo().startTime();
        s.maxTime = TanimInfo::currAnimInfo().endTime();
        s.currentTime = fGraph.time();
        if (Tmodel* m = TmodelList::activeModel())
            for (TdependNode* n : m->activeList())
                s.selection.push_back(n->name());
        for (const std::string& rule : TworkspaceRoot::fileRuleNames())
            s.fileRules.emplace_back(rule, TworkspaceRoot::fileRule(rule));
        return s;
    }

    TdependGraph& fGraph;
    TsceneVisitor& fVisitor;
    std::set<TdependNode*> fSeen;
    std::vector<TdependNode*> fOrder;
};

} // namespace

void walkScene(TdependGraph& graph, TsceneVisitor& visitor) {
    Walk(graph, visitor).run();
}

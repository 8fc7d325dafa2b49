// setAttr, getAttr, addAttr, deleteAttr.

#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Graph/TuserAttribute.h"
#include "Host/SceneCommands/TsceneCommand.h"

#include <memory>

namespace {

class TsetAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("typ", "type", {TargType::String});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
        s.setValueArguments(0);
    }

    // The values after the plug, `count` of them, as numbers.
    std::vector<double> numbers(const TargDatabase& db, std::size_t from, std::size_t count) {
        std::vector<double> out;
        if (db.valueCount() < from + count)
            fail("expected " + std::to_string(count) + " value" + (count == 1 ? "" : "s") + " for " +
                 db.objects()[0] + ", got " +
                 std::to_string(db.valueCount() - std::min(from, db.valueCount())));
        for (std::size_t i = from; i < from + count; ++i)
            out.push_back(db.valueDouble(i));
        return out;
    }
    // Array types: a count, then that many elements.
    std::size_t arrayCount(const TargDatabase& db, std::size_t perElement) {
        if (db.valueCount() == 0) fail("expected an element count for " + db.objects()[0]);
        int n = db.valueInt(0);
        if (n < 0) fail("a negative element count for " + db.objects()[0]);
        if (db.valueCount() != 1 + static_cast<std::size_t>(n) * perElement)
            fail("expected " + std::to_string(n) + " element" + (n == 1 ? "" : "s") + " for " +
                 db.objects()[0] + ", got " +
                 std::to_string((db.valueCount() - 1) / std::max<std::size_t>(perElement, 1)));
        return static_cast<std::size_t>(n);
    }

    // Reads the values in order: counts first, each checked against what is left.
    class ValueReader {
    public:
        ValueReader(TsetAttrCmd& cmd, const TargDatabase& db, const Tplug& plug)
            : fCmd(cmd), fDb(db), fPlug(plug) {}
        std::size_t count(const char* what, std::size_t perItem) {
            const double n = number(what);
            const std::size_t left = fDb.valueCount() - fNext;
            if (!(n >= 0) || n != static_cast<double>(static_cast<long long>(n)) ||
                static_cast<double>(left) < n * static_cast<double>(perItem))
                fCmd.fail("the " + std::string(what) + " of " + fPlug.name() + " (" + formatScriptNumber(n) +
                          ") does not fit the " + std::to_string(left) + " values after it");
            return static_cast<std::size_t>(n);
        }
        double number(const char* what) {
            if (fNext >= fDb.valueCount())
                fCmd.fail("the values of " + fPlug.name() + " end before its " + what);
            return fDb.valueDouble(fNext++);
        }
        T4dDblVector vector() {
            const double x = number("points"), y = number("points"), z = number("points");
            return {x, y, z};
        }
        void finish() {
            if (fNext != fDb.valueCount()) fCmd.fail("too many values for " + fPlug.name());
        }

    private:
        TsetAttrCmd& fCmd;
        const TargDatabase& fDb;
        const Tplug& fPlug;
        std::size_t fNext = 0;
    };

    TpolyMesh meshValue(const TargDatabase& db, const Tplug& plug) {
        ValueReader in(*this, db, plug);
        TpolyMesh m;
        m.points.resize(in.count("point count", 3));
        for (T4dDblVector& p : m.points)
            p = in.vector();
        m.faceCounts.resize(in.count("face count", 1));
        for (int& c : m.faceCounts)
            c = static_cast<int>(in.number("face sizes"));
        m.faceVertices.resize(in.count("corner count", 1));
        for (int& v : m.faceVertices)
            v = static_cast<int>(in.number("face corners"));
        m.uvs.resize(in.count("uv count", 2));
        for (TuvPoint& uv : m.uvs) {
            uv.u = in.number("uvs");
            uv.v = in.number("uvs");
        }
        m.uvIndices.resize(in.count("uv corner count", 1));
        for (int& i : m.uvIndices)
            i = static_cast<int>(in.number("uv corners"));
        in.finish();
        try {
            m.validate();
        } catch (const std::invalid_argument& e) {
            fail("the mesh for " + plug.name() + " is not valid: " + e.what());
        }
        return m;
    }

    Tcurve curveValue(const TargDatabase& db, const Tplug& plug) {
        ValueReader in(*this, db, plug);
        const double degree = in.number("degree");
        if (degree != 1 && degree != 3) fail("a curve's degree is 1 or 3, not " + formatScriptNumber(degree));
        std::vector<T4dDblVector> cvs(in.count("control point count", 3));
        for (T4dDblVector& p : cvs)
            p = in.vector();
        in.finish();
        return Tcurve(static_cast<int>(degree), std::move(cvs));
    }

    int run(const TargDatabase& db) override {
        Tplug plug = parsePlug(graph(), db.objects()[0]);
        Tattribute* a = plug.attribute();
        if (a->isArray() && plug.multiIndex() < 0)
            fail(plug.name() + " is a multi attribute: name an element");
        if (!a->hasFlag(Tattribute::kWritable)) fail(plug.name() + " cannot be written to");
        if (plug.isDestination())
            fail(plug.name() + " is connected from " + plug.source().name() + " and cannot be set");

        std::string type;
        db.getFlagArgument("type", 0, type);
        std::function<void()> apply;
        auto* compound = dynamic_cast<TattributeCompound*>(a);
        const bool typed = a->type() == TattrType::Typed || a->type() == TattrType::Generic;

        if (compound && compound->numericComponents() > 0) {
            auto v = numbers(db, 0, compound->numericComponents());
            if (db.valueCount() > v.size()) fail("too many values for " + plug.name());
            T4dDblVector vec;
            for (std::size_t i = 0; i < v.size(); ++i)
                vec[static_cast<int>(i)] = v[i];
            apply = [plug, vec] { writeOrThrow(plug, [&] { return writePlugVector(plug, vec); }); };
        } else if (a->isNumeric()) {
            if (!type.empty() && type != "double" && type != "float" && type != "long" && type != "bool")
                fail("-type " + type + " does not fit " + plug.name() + ", which holds a number");
            double v = 0;
            if (a->type() == TattrType::Enum && db.valueCount() == 1 &&
                db.values()[0].type() == TscriptType::String) {
                int field = 0;
                if (!a->fieldValue(db.valueString(0), field))
                    fail("'" + db.valueString(0) + "' is not a value of " + plug.name());
                v = field;
            } else {
                v = numbers(db, 0, 1)[0];
            }
            if (db.valueCount() > 1) fail("too many values for " + plug.name());
            if (a->type() == TattrType::Time) {
                const TanimTime t = TanimTime::checked(v, kCurrentFrameUnit, plug.name());
                apply = [plug, t] { writeOrThrow(plug, [&] { return writePlugTime(plug, t); }); };
            } else {
                apply = [plug, v] { writeOrThrow(plug, [&] { return writePlugNumber(plug, v); }); };
            }
        } else if (typed) {
            Tdata d;
            if (type.empty())
                fail("give -type for " + plug.name() + " (string, doubleArray, vectorArray, ...)");
            if (type == "string") {
                if (db.valueCount() != 1) fail("expected one string for " + plug.name());
                d = makeData<TdataString>(db.valueString(0));
            } else if (type == "doubleArray") {
                std::size_t n = arrayCount(db, 1);
                auto letter = new TdataDoubleArray;
                for (std::size_t i = 0; i < n; ++i)
                    letter->array().addLast(db.valueDouble(1 + i));
                d = Tdata(letter);
            } else if (type == "Int32Array") {
                std::size_t n = arrayCount(db, 1);
                auto letter = new TdataInt32Array;
                for (std::size_t i = 0; i < n; ++i)
                    letter->array().addLast(db.valueInt(1 + i));
                d = Tdata(letter);
            } else if (type == "vectorArray") {
                std::size_t n = arrayCount(db, 3);
                auto letter = new TdataVectorArray;
                for (std::size_t i = 0; i < n; ++i)
                    letter->array().addLast(
                        {db.valueDouble(1 + 3 * i), db.valueDouble(2 + 3 * i), db.valueDouble(3 + 3 * i)});
                d = Tdata(letter);
            } else if (type == "stringArray") {
                std::size_t n = arrayCount(db, 1);
                auto letter = new TdataStringArray;
                for (std::size_t i = 0; i < n; ++i)
                    letter->array().addLast(db.valueString(1 + i));
                d = Tdata(letter);
            } else if (type == "matrix") {
                auto v = numbers(db, 0, 16);
                T4dDblMatrix m;
                for (int i = 0; i < 16; ++i)
                    m.m[i / 4][i % 4] = v[i];
                d = makeData<TdataMatrix>(m);
            } else if (type == "mesh") {
                d = makeData<TdataMesh>(meshValue(db, plug));
            } else if (type == "curve") {
                d = makeData<TdataCurve>(curveValue(db, plug));
            } else {
                fail("unknown -type '" + type + "'");
            }
            if (!a->acceptsLetter(d.letterClass())) fail("-type " + type + " does not fit " + plug.name());
            apply = [plug, d] { writeOrThrow(plug, [&] { return writePlugData(plug, d); }); };
        } else {
            fail(plug.name() + " cannot be set by value");
        }
        auto before = std::make_shared<TplugSnapshot>(plug);
        perform(apply, [before] { before->restore(); });
        return 0;
    }
};

class TgetAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("t", "time", {TargType::Time});
        s.addFlag("s", "size", {});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
        s.useSelectionAsDefault(false);
    }
    int run(const TargDatabase& db) override {
        Tplug plug = parsePlug(graph(), db.objects()[0]);
        if (db.isFlagSet("size")) {
            if (plug.attribute()->isArray() && plug.multiIndex() < 0) {
                engine().setResult(
                    static_cast<int>(plug.node()->normalBlock().elementIndices(plug.attribute()).size()));
                return 0;
            }
            TscriptValue v = plugValue(plug, TdgContext::fsNormal);
            int n = 1;
            switch (v.type()) {
            case TscriptType::IntArray:
                n = static_cast<int>(v.intArray().size());
                break;
            case TscriptType::FloatArray:
                n = static_cast<int>(v.floatArray().size());
                break;
            case TscriptType::StringArray:
                n = static_cast<int>(v.stringArray().size());
                break;
            case TscriptType::VectorArray:
                n = static_cast<int>(v.vectorArray().size());
                break;
            default:
                break;
            }
            engine().setResult(n);
            return 0;
        }
        if (plug.attribute()->isArray() && plug.multiIndex() < 0) {
            // A whole multi reads as the values of its elements, when they are numbers.
            std::vector<double> out;
            for (int i : plug.node()->normalBlock().elementIndices(plug.attribute())) {
                TscriptValue v = plugValue(Tplug(plug.node(), plug.attribute(), i), TdgContext::fsNormal);
                if (!v.isNumber()) fail(plug.name() + " is a multi attribute: name an element");
                out.push_back(v.asFloat());
            }
            engine().setResult(out);
            return 0;
        }
        if (db.isFlagSet("time")) {
            TdgContextTimed at(TanimTime::checked(db.flagArgumentTime("time"), kCurrentFrameUnit, "-time"));
            engine().setResult(plugValue(plug, at));
        } else {
            engine().setResult(plugValue(plug, TdgContext::fsNormal));
        }
        return 0;
    }
};

class TaddAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("ln", "longName", {TargType::String});
        s.addFlag("sn", "shortName", {TargType::String});
        s.addFlag("at", "attributeType", {TargType::String});
        s.addFlag("dt", "dataType", {TargType::String});
        s.addFlag("dv", "defaultValue", {TargType::Double});
        s.addFlag("min", "minValue", {TargType::Double});
        s.addFlag("max", "maxValue", {TargType::Double});
        s.addFlag("m", "multi", {});
        s.addFlag("k", "keyable", {TargType::Bool});
        s.setObjectKind(Tsyntax::ObjectKind::Objects, 1);
        s.useSelectionAsDefault(true);
    }
    int run(const TargDatabase& db) override {
        std::string ln, sn, at, dt;
        if (!db.getFlagArgument("longName", 0, ln)) fail("give the attribute's name with -longName");
        db.getFlagArgument("shortName", 0, sn);
        if (sn.empty()) sn = ln;
        db.getFlagArgument("attributeType", 0, at);
        db.getFlagArgument("dataType", 0, dt);
        for (const std::string& name : db.objects()) {
            TdependNode* node = findNodeOrThrow(graph(), name);
            if (node->attribute(ln) || node->attribute(sn))
                fail("node '" + node->name() + "' already has an attribute named '" + ln + "'");
            std::unique_ptr<Tattribute> attr;
            try {
                attr = makeUserAttribute(ln, sn, {at, dt});
            } catch (const std::invalid_argument& e) {
                fail(e.what());
            }
            double v;
            if (db.getFlagArgument("defaultValue", 0, v)) {
                if (auto* nc = dynamic_cast<TattributeNumericCompound*>(attr.get()))
                    nc->setNativeDefaultData(v, v, v);
                else
                    attr->setNativeDefaultData(v);
            }
            if (db.getFlagArgument("minValue", 0, v)) attr->setMinValue(v);
            if (db.getFlagArgument("maxValue", 0, v)) attr->setMaxValue(v);
            if (db.isFlagSet("multi")) attr->setArray(true);
            bool k = false;
            if (db.getFlagArgument("keyable", 0, k)) attr->setKeyable(k);
            auto holder = std::make_shared<std::unique_ptr<Tattribute>>(std::move(attr));
            Tattribute* raw = holder->get();
            perform([node, holder] { node->addAttribute(std::move(*holder)); },
                    [node, holder, raw] { *holder = node->removeAttribute(raw); });
        }
        return 0;
    }
};

class TdeleteAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("at", "attribute", {TargType::String});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
    }
    int run(const TargDatabase& db) override {
        std::string text = db.objects()[0];
        std::string at;
        if (db.getFlagArgument("attribute", 0, at)) text += "." + at;
        Tplug plug = parsePlug(graph(), text);
        Tattribute* a = plug.attribute();
        TdependNode* node = plug.node();
        if (!a->hasFlag(Tattribute::kDynamic) || a->parent())
            fail("'" + a->name() + "' is not an attribute added to " + node->name() +
                 " and cannot be deleted");
        auto holder = std::make_shared<std::unique_ptr<Tattribute>>();
        auto links = std::make_shared<std::vector<std::pair<std::string, std::string>>>();
        auto value = std::make_shared<std::shared_ptr<TplugSnapshot>>();
        perform(
            [node, a, holder, links, value] {
                // The value goes back with the attribute on undo.
                *value = a->isElementOfArray() ? nullptr : std::make_shared<TplugSnapshot>(Tplug(node, a));
                links->clear();
                for (auto& [k, src] : node->inputConnections())
                    if (k.attr == a->index()) links->emplace_back(src.name(), Tplug(node, a, k.index).name());
                for (auto& [k, dst] : node->outputConnections())
                    if (k.attr == a->index()) links->emplace_back(Tplug(node, a, k.index).name(), dst.name());
                *holder = node->removeAttribute(a);
            },
            [node, holder, links, value] {
                node->addAttribute(std::move(*holder));
                if (*value) (*value)->restore();
                TdependGraph& g = TdependGraph::current();
                for (auto& [s, d] : *links)
                    g.connect(parsePlug(g, s), parsePlug(g, d), true);
            });
        return 0;
    }
};

// listAttr NODE: the node's attributes by long name, in their order; -ud only those added to it.
class TlistAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("ud", "userDefined", {});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
    }
    int run(const TargDatabase& db) override {
        TdependNode* node = findNodeOrThrow(graph(), db.objects()[0]);
        std::vector<std::string> names;
        if (db.isFlagSet("userDefined")) {
            for (Tattribute* a : node->localDynamicAttrs())
                names.push_back(a->name());
        } else {
            for (unsigned i = 0; i < node->attributeCount(); ++i)
                if (Tattribute* a = node->attribute(i)) names.push_back(a->name());
        }
        engine().setResult(names);
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("listAttr", TlistAttrCmd);
MOTILANE_REGISTER_COMMAND("setAttr", TsetAttrCmd);
MOTILANE_REGISTER_COMMAND("getAttr", TgetAttrCmd);
MOTILANE_REGISTER_COMMAND("addAttr", TaddAttrCmd);
MOTILANE_REGISTER_COMMAND("deleteAttr", TdeleteAttrCmd);

} // namespace

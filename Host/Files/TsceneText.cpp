#include "Host/Files/TsceneText.h"

#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Files/TsceneWalk.h"
#include "Host/Graph/TuserAttribute.h"
#include "Host/Script/TscriptValue.h"

#include <charconv>

namespace {

std::string quoted(std::string_view s) {
    std::string out = "\"";
    for (char c : s) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += c;
        }
    }
    return out + "\"";
}

std::string num(double v) {
    return formatScriptNumber(v);
}

// Numbers of long arrays go several to a line, so the file stays readable.
class Numbers {
public:
    explicit Numbers(std::ostream& out, int perLine) : fOut(out), fPerLine(perLine) {}
    void add(double v) {
        fOut << (fCount % fPerLine == 0 ? "\n    " : " ") << num(v);
        ++fCount;
    }
    void add(const T4dDblVector& v) {
        fOut << (fCount % fPerLine == 0 ? "\n    " : "  ") << num(v.x) << ' ' << num(v.y) << ' ' << num(v.z);
        ++fCount;
    }

private:
    std::ostream& fOut;
    int fPerLine;
    long long fCount = 0;
};

class TextWriter : public TsceneVisitor {
public:
    explicit TextWriter(std::ostream& out) : fOut(out) {}

    void node(TdependNode& n, TdependNode* parent) override {
        fOut << "createNode " << n.typeName() << " -n " << quoted(n.name());
        if (parent) fOut << " -p " << quoted(parent->name());
        // -shared: nodes a new scene already has (the time node) are taken as they are.
        fOut << " -shared;\n";
    }

    void dynamicAttribute(TdependNode& n, const Tattribute& a) override {
        const TuserAttributeType type = userAttributeType(a);
        if (!type.known()) {
            fOut << "// " << n.name() << "." << a.name() << ": an attribute of a kind files do not hold\n";
            return;
        }
        fOut << "addAttr -ln " << quoted(a.name()) << " -sn " << quoted(a.shortName());
        if (!type.dataType.empty())
            fOut << " -dt " << type.dataType;
        else
            fOut << " -at " << type.attributeType;
        if (a.isNumeric() && a.defaultNumber() != 0) fOut << " -dv " << num(a.defaultNumber());
        if (a.hasMinValue()) fOut << " -min " << num(a.minValue());
        if (a.hasMaxValue()) fOut << " -max " << num(a.maxValue());
        if (a.isArray()) fOut << " -m";
        fOut << ' ' << quoted(n.name()) << ";\n";
    }

    void value(const Tplug& plug, const TsceneValue& v) override {
        fOut << "setAttr " << quoted(plug.name());
        switch (v.kind) {
        case TsceneValue::Kind::Number:
            fOut << ' ' << num(v.number);
            break;
        case TsceneValue::Kind::Time:
            fOut << ' ' << num(v.time.frames());
            break;
        case TsceneValue::Kind::Vector:
            for (unsigned i = 0; i < v.components; ++i)
                fOut << ' ' << num(v.vector[static_cast<int>(i)]);
            break;
        case TsceneValue::Kind::Data:
            data(v.data);
            break;
        }
        fOut << ";\n";
    }

    void connection(const Tplug& source, const Tplug& destination) override {
        fOut << "connectAttr " << quoted(source.name()) << ' ' << quoted(destination.name()) << ";\n";
    }

    void settings(const TsceneSettings& s) override {
        fOut << "playbackOptions -min " << num(s.minTime.frames()) << " -max " << num(s.maxTime.frames())
             << ";\n";
        // The scene is drawn at its time once opened, as a viewer would show it.
        fOut << "currentTime " << num(s.currentTime.frames()) << ";\n";
        if (s.selection.empty()) {
            fOut << "select -cl;\n";
        } else {
            fOut << "select -r";
            for (const std::string& n : s.selection)
                fOut << ' ' << quoted(n);
            fOut << ";\n";
        }
        for (const auto& [rule, directory] : s.fileRules)
            fOut << "workspace -fileRule " << quoted(rule) << ' ' << quoted(directory) << ";\n";
    }

private:
    void data(const Tdata& d) {
        if (auto* n = d.as<TdataNumber>()) {
            fOut << ' ' << num(n->value());
        } else if (auto* s = d.as<TdataString>()) {
            fOut << " -type string " << quoted(s->string());
        } else if (auto* doubles = d.as<TdataDoubleArray>()) {
            fOut << " -type doubleArray " << doubles->length();
            Numbers out(fOut, 8);
            for (unsigned i = 0; i < doubles->length(); ++i)
                out.add(doubles->array()[i]);
        } else if (auto* ints = d.as<TdataInt32Array>()) {
            fOut << " -type Int32Array " << ints->length();
            Numbers out(fOut, 12);
            for (unsigned i = 0; i < ints->length(); ++i)
                out.add(ints->array()[i]);
        } else if (auto* vectors = d.as<TdataVectorArray>()) {
            fOut << " -type vectorArray " << vectors->length();
            Numbers out(fOut, 2);
            for (unsigned i = 0; i < vectors->length(); ++i)
                out.add(vectors->array()[i]);
        } else if (auto* strings = d.as<TdataStringArray>()) {
            fOut << " -type stringArray " << strings->length();
            for (unsigned i = 0; i < strings->length(); ++i)
                fOut << "\n    " << quoted(strings->array()[i]);
        } else if (auto* matrix = d.as<TdataMatrix>()) {
            fOut << " -type matrix";
            for (int i = 0; i < 16; ++i)
                fOut << ' ' << num(matrix->matrix().m[i / 4][i % 4]);
        } else if (auto* meshData = d.as<TdataMesh>()) {
            mesh(meshData->mesh());
        } else if (auto* c = d.as<TdataCurve>()) {
            const Tcurve& curve = c->curve();
            fOut << " -type curve " << curve.degree() << ' ' << curve.numControlPoints();
            Numbers out(fOut, 2);
            for (const T4dDblVector& p : curve.controlPoints())
                out.add(p);
        }
    }

    // Points, face sizes, face corners, then uvs and the uv of each corner.
    void mesh(const TpolyMesh& m) {
        fOut << " -type mesh " << m.numPoints();
        Numbers points(fOut, 2);
        for (const T4dDblVector& p : m.points)
            points.add(p);
        fOut << "\n    " << m.numFaces();
        Numbers counts(fOut, 16);
        for (int c : m.faceCounts)
            counts.add(c);
        fOut << "\n    " << m.faceVertices.size();
        Numbers corners(fOut, 16);
        for (int v : m.faceVertices)
            corners.add(v);
        fOut << "\n    " << m.uvs.size();
        Numbers uvs(fOut, 8);
        for (const TuvPoint& uv : m.uvs) {
            uvs.add(uv.u);
            uvs.add(uv.v);
        }
        fOut << "\n    " << m.uvIndices.size();
        Numbers uvIds(fOut, 16);
        for (int i : m.uvIndices)
            uvIds.add(i);
    }

    std::ostream& fOut;
};

} // namespace

void writeSceneText(TdependGraph& graph, std::ostream& out) {
    out << kSceneTextHeader << kSceneTextFormat << "\n";
    out << "// Open with `file -open`, or `motilane --open FILE`.\n";
    // Times below are in this unit.
    out << "currentUnit -time " << TtimeUnit::name(TtimeUnit::current()) << ";\n";
    TextWriter writer(out);
    walkScene(graph, writer);
}

int sceneTextFormat(std::string_view text) {
    if (text.substr(0, kSceneTextHeader.size()) != kSceneTextHeader) return 0;
    std::string_view rest = text.substr(kSceneTextHeader.size());
    int format = 0;
    auto [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), format);
    if (ec != std::errc() || format < 1) return -1;
    return format;
}

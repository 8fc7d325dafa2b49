#include "Host/Files/TsceneBinary.h"

#include "Host/Command/TworkspaceRoot.h"
#include "Host/Dag/TdagObject.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Files/TiffFile.h"
#include "Host/Files/TsceneWalk.h"
#include "Host/Graph/Tmetaclass.h"
#include "Host/Graph/TuserAttribute.h"
#include "Host/SceneCommands/TplugPath.h"
#include "Host/Time/TanimInfo.h"

#include <cmath>

namespace {

constexpr TiffTag kHead = makeIffTag("HEAD");
constexpr TiffTag kNode = makeIffTag("NODE");
constexpr TiffTag kAddedAttribute = makeIffTag("DATR");
constexpr TiffTag kValue = makeIffTag("VALU");
constexpr TiffTag kConnection = makeIffTag("CONN");
constexpr TiffTag kTime = makeIffTag("TIME");
constexpr TiffTag kSelection = makeIffTag("SELE");
constexpr TiffTag kFileRules = makeIffTag("RULE");

enum ValueKind : std::uint8_t { kNumber = 0, kTimeValue = 1, kVector = 2, kLetter = 3 };
enum LetterKind : std::uint8_t {
    kLetterNumber = 1,
    kLetterString,
    kLetterDoubles,
    kLetterInts,
    kLetterVectors,
    kLetterStrings,
    kLetterMatrix,
    kLetterMesh,
    kLetterCurve,
};
enum AttributeFlags : std::uint8_t { kHasMin = 1, kHasMax = 2, kMulti = 4 };

// ---- writing ----

class BinaryWriter : public TsceneVisitor {
public:
    explicit BinaryWriter(TiffWriter& out) : fOut(out) {}

    void node(TdependNode& n, TdependNode* parent) override {
        fOut.beginChunk(kNode);
        fOut.putU32(n.iffTag());
        fOut.putString(n.typeName());
        fOut.putString(n.name());
        fOut.putString(parent ? parent->name() : std::string());
        fOut.endChunk();
    }

    void dynamicAttribute(TdependNode& n, const Tattribute& a) override {
        const TuserAttributeType type = userAttributeType(a);
        if (!type.known()) return;
        fOut.beginChunk(kAddedAttribute);
        fOut.putString(n.name());
        fOut.putString(a.name());
        fOut.putString(a.shortName());
        fOut.putString(type.attributeType);
        fOut.putString(type.dataType);
        fOut.putF64(a.defaultNumber());
        fOut.putU8(static_cast<std::uint8_t>((a.hasMinValue() ? kHasMin : 0) |
                                             (a.hasMaxValue() ? kHasMax : 0) | (a.isArray() ? kMulti : 0)));
        fOut.putF64(a.minValue());
        fOut.putF64(a.maxValue());
        fOut.endChunk();
    }

    void value(const Tplug& plug, const TsceneValue& v) override {
        fOut.beginChunk(kValue);
        fOut.putString(plug.name());
        fOut.putU32(plug.attribute()->tag());
        switch (v.kind) {
        case TsceneValue::Kind::Number:
            fOut.putU8(kNumber);
            fOut.putF64(v.number);
            break;
        case TsceneValue::Kind::Time:
            fOut.putU8(kTimeValue);
            fOut.putI64(v.time.ticks());
            break;
        case TsceneValue::Kind::Vector:
            fOut.putU8(kVector);
            fOut.putU8(static_cast<std::uint8_t>(v.components));
            for (unsigned i = 0; i < v.components; ++i)
                fOut.putF64(v.vector[static_cast<int>(i)]);
            break;
        case TsceneValue::Kind::Data:
            fOut.putU8(kLetter);
            letter(v.data);
            break;
        }
        fOut.endChunk();
    }

    void connection(const Tplug& source, const Tplug& destination) override {
        fOut.beginChunk(kConnection);
        fOut.putString(source.name());
        fOut.putString(destination.name());
        fOut.endChunk();
    }

    void settings(const TsceneSettings& s) override {
        fOut.beginChunk(kTime);
        fOut.putI64(s.minTime.ticks());
        fOut.putI64(s.maxTime.ticks());
        fOut.putI64(s.currentTime.ticks());
        fOut.endChunk();
        fOut.beginChunk(kSelection);
        fOut.putU32(static_cast<std::uint32_t>(s.selection.size()));
        for (const std::string& n : s.selection)
            fOut.putString(n);
        fOut.endChunk();
        fOut.beginChunk(kFileRules);
        fOut.putU32(static_cast<std::uint32_t>(s.fileRules.size()));
        for (const auto& [rule, directory] : s.fileRules) {
            fOut.putString(rule);
            fOut.putString(directory);
        }
        fOut.endChunk();
    }

private:
    void point(const T4dDblVector& p) {
        fOut.putF64(p.x);
        fOut.putF64(p.y);
        fOut.putF64(p.z);
    }
    template <class V, class F> void list(const V& items, F&& put) {
        fOut.putU32(static_cast<std::uint32_t>(items.size()));
        for (const auto& item : items)
            put(item);
    }

    void letter(const Tdata& d) {
        if (auto* n = d.as<TdataNumber>()) {
            fOut.putU8(kLetterNumber);
            fOut.putF64(n->value());
        } else if (auto* s = d.as<TdataString>()) {
            fOut.putU8(kLetterString);
            fOut.putString(s->string());
        } else if (auto* doubles = d.as<TdataDoubleArray>()) {
            fOut.putU8(kLetterDoubles);
            fOut.putU32(doubles->length());
            fOut.putF64s(doubles->array().data(), doubles->length());
        } else if (auto* ints = d.as<TdataInt32Array>()) {
            fOut.putU8(kLetterInts);
            fOut.putU32(ints->length());
            for (unsigned i = 0; i < ints->length(); ++i)
                fOut.putI32(ints->array()[i]);
        } else if (auto* vectors = d.as<TdataVectorArray>()) {
            fOut.putU8(kLetterVectors);
            fOut.putU32(vectors->length());
            for (unsigned i = 0; i < vectors->length(); ++i) {
                const T4dDblVector& p = vectors->array()[i];
                const double xyz[3] = {p.x, p.y, p.z};
                fOut.putF64s(xyz, 3);
            }
        } else if (auto* strings = d.as<TdataStringArray>()) {
            fOut.putU8(kLetterStrings);
            fOut.putU32(strings->length());
            for (unsigned i = 0; i < strings->length(); ++i)
                fOut.putString(strings->array()[i]);
        } else if (auto* matrix = d.as<TdataMatrix>()) {
            fOut.putU8(kLetterMatrix);
            for (int i = 0; i < 16; ++i)
                fOut.putF64(matrix->matrix().m[i / 4][i % 4]);
        } else if (auto* meshData = d.as<TdataMesh>()) {
            const TpolyMesh& mesh = meshData->mesh();
            fOut.putU8(kLetterMesh);
            list(mesh.points, [&](const T4dDblVector& p) { point(p); });
            list(mesh.faceCounts, [&](int c) { fOut.putI32(c); });
            list(mesh.faceVertices, [&](int v) { fOut.putI32(v); });
            list(mesh.uvs, [&](const TuvPoint& uv) {
                fOut.putF64(uv.u);
                fOut.putF64(uv.v);
            });
            list(mesh.uvIndices, [&](int i) { fOut.putI32(i); });
        } else if (auto* c = d.as<TdataCurve>()) {
            fOut.putU8(kLetterCurve);
            fOut.putI32(c->curve().degree());
            list(c->curve().controlPoints(), [&](const T4dDblVector& p) { point(p); });
        }
    }

    TiffWriter& fOut;
};

// ---- reading ----

class BinaryReader {
public:
    BinaryReader(const TiffReader& reader, const TiffReader::Chunk& chunk)
        : fReader(reader), fIn(reader, chunk), fChunk(chunk) {}

    void head() {
        const std::uint32_t format = fIn.u32();
        if (format > static_cast<std::uint32_t>(kSceneBinaryFormat))
            fIn.fail("written by a newer motilane (scene format " + std::to_string(format) +
                     "; this one reads format " + std::to_string(kSceneBinaryFormat) + " and older)");
        const std::string unitName = fIn.string();
        const TtimeUnitSystem unit = TtimeUnit::fromName(unitName.c_str());
        if (unit == kInvalidTimeUnit) fIn.fail("unknown time unit '" + unitName + "'");
        if (TtimeUnit::current() != unit) TtimeUnit::setCurrent(unit);
        fIn.finish();
    }

    void node() {
        TdependGraph& g = TdependGraph::current();
        const TiffTag tag = fIn.u32();
        const std::string type = fIn.string(), name = fIn.string(), parentName = fIn.string();
        fIn.finish();
        const TdependNodeMetaClass* meta = TnodeTypeRegistry::find(type);
        if (!meta || meta->iffTag() != tag)
            fIn.fail("unknown node type '" + type + "' (tag '" + iffTagText(tag) + "')");
        TdependNode* n = g.findNode(name);
        if (n && std::string(n->typeName()) != type)
            fIn.fail("a node named " + name + " exists already and is a " + n->typeName() + ", not a " +
                     type);
        if (!n) {
            n = g.createNode(type, name);
            if (n->name() != name) fIn.fail("'" + name + "' is not a name a node can have");
        }
        if (!parentName.empty()) {
            auto* child = TdagObject::cast(n);
            auto* parent = TdagObject::cast(g.findNode(parentName));
            if (!child || !parent) fIn.fail("cannot put " + name + " under " + parentName);
            child->setParentObject(parent);
        }
    }

    void addedAttribute() {
        const std::string nodeName = fIn.string(), longName = fIn.string(), shortName = fIn.string();
        TuserAttributeType type;
        type.attributeType = fIn.string();
        type.dataType = fIn.string();
        const double dv = fIn.f64();
        const std::uint8_t flags = fIn.u8();
        const double min = fIn.f64(), max = fIn.f64();
        fIn.finish();
        TdependNode* n = TdependGraph::current().findNode(nodeName);
        if (!n) fIn.fail("no node named " + nodeName);
        if (n->attribute(longName) || n->attribute(shortName))
            fIn.fail(nodeName + " already has an attribute named " + longName);
        std::unique_ptr<Tattribute> a;
        try {
            a = makeUserAttribute(longName, shortName, type);
        } catch (const std::invalid_argument& e) {
            fIn.fail(e.what());
        }
        if (auto* nc = dynamic_cast<TattributeNumericCompound*>(a.get()))
            nc->setNativeDefaultData(dv, dv, dv);
        else
            a->setNativeDefaultData(dv);
        if (flags & kHasMin) a->setMinValue(min);
        if (flags & kHasMax) a->setMaxValue(max);
        if (flags & kMulti) a->setArray(true);
        if (!n->addAttribute(std::move(a))) fIn.fail("could not add " + longName + " to " + nodeName);
    }

    void value() {
        const std::string name = fIn.string();
        const TiffTag tag = fIn.u32();
        const Tplug plug = parsePlug(TdependGraph::current(), name);
        if (plug.attribute()->tag() != tag)
            fIn.fail(name + " has the tag '" + iffTagText(plug.attribute()->tag()) + "', the file says '" +
                     iffTagText(tag) + "'");
        bool ok = true;
        switch (fIn.u8()) {
        case kNumber:
            ok = writePlugNumber(plug, fIn.f64());
            break;
        case kTimeValue:
            ok = writePlugTime(plug, TanimTime::fromTicks(fIn.i64()));
            break;
        case kVector: {
            const unsigned n = fIn.u8();
            if (n > 3) fIn.fail(std::to_string(n) + " components for " + name);
            T4dDblVector v;
            for (unsigned i = 0; i < n; ++i)
                v[static_cast<int>(i)] = fIn.f64();
            ok = writePlugVector(plug, v);
            break;
        }
        case kLetter: {
            Tdata d = letter(name);
            if (!plug.attribute()->acceptsLetter(d.letterClass()))
                fIn.fail(name + " does not take that kind of value");
            ok = writePlugData(plug, d);
            break;
        }
        default:
            fIn.fail("unknown kind of value for " + name);
        }
        fIn.finish();
        if (!ok) fIn.fail(name + " refused the value");
    }

    void connection() {
        TdependGraph& g = TdependGraph::current();
        const std::string src = fIn.string(), dst = fIn.string();
        fIn.finish();
        g.connect(parsePlug(g, src), parsePlug(g, dst));
    }

    void time() {
        const auto min = TanimTime::fromTicks(fIn.i64()), max = TanimTime::fromTicks(fIn.i64());
        fTime = TanimTime::fromTicks(fIn.i64());
        fIn.finish();
        if (max < min) fIn.fail("the playback range ends before it starts");
        TanimInfo::currAnimInfo().setRange(min, max);
    }

    void selection() {
        std::vector<TdependNode*> nodes;
        for (std::size_t i = 0, n = fIn.count(4); i < n; ++i) {
            const std::string name = fIn.string();
            TdependNode* node = TdependGraph::current().findNode(name);
            if (!node) fIn.fail("no node named " + name + " to select");
            nodes.push_back(node);
        }
        fIn.finish();
        TmodelList::activeModel()->setActiveList(nodes);
    }

    void fileRules() {
        for (std::size_t i = 0, n = fIn.count(8); i < n; ++i) {
            const std::string rule = fIn.string(), directory = fIn.string();
            if (rule.empty()) fIn.fail("a file rule without a name");
            TworkspaceRoot::setFileRule(rule, directory);
        }
        fIn.finish();
    }

    TanimTime sceneTime() const { return fTime; }
    void reset(const TiffReader::Chunk& chunk) {
        fIn = TiffFields(fReader, chunk);
        fChunk = chunk;
    }

private:
    T4dDblVector point() {
        const double x = fIn.f64(), y = fIn.f64(), z = fIn.f64();
        return {x, y, z};
    }

    Tdata letter(const std::string& name) {
        switch (fIn.u8()) {
        case kLetterNumber:
            return makeData<TdataNumber>(fIn.f64());
        case kLetterString:
            return makeData<TdataString>(fIn.string());
        case kLetterDoubles: {
            auto* l = new TdataDoubleArray;
            Tdata d(l);
            const std::size_t n = fIn.count(8);
            l->array().changeLogicalSizeTo(static_cast<unsigned>(n));
            for (std::size_t i = 0; i < n; ++i)
                l->array()[static_cast<unsigned>(i)] = fIn.f64();
            return d;
        }
        case kLetterInts: {
            auto* l = new TdataInt32Array;
            Tdata d(l);
            const std::size_t n = fIn.count(4);
            l->array().changeLogicalSizeTo(static_cast<unsigned>(n));
            for (std::size_t i = 0; i < n; ++i)
                l->array()[static_cast<unsigned>(i)] = fIn.i32();
            return d;
        }
        case kLetterVectors: {
            auto* l = new TdataVectorArray;
            Tdata d(l);
            const std::size_t n = fIn.count(24);
            l->array().changeLogicalSizeTo(static_cast<unsigned>(n));
            for (std::size_t i = 0; i < n; ++i)
                l->array()[static_cast<unsigned>(i)] = point();
            return d;
        }
        case kLetterStrings: {
            auto* l = new TdataStringArray;
            Tdata d(l);
            for (std::size_t i = 0, n = fIn.count(4); i < n; ++i)
                l->array().addLast(fIn.string());
            return d;
        }
        case kLetterMatrix: {
            T4dDblMatrix m;
            for (int i = 0; i < 16; ++i)
                m.m[i / 4][i % 4] = fIn.f64();
            return makeData<TdataMatrix>(m);
        }
        case kLetterMesh: {
            TpolyMesh m;
            m.points.resize(fIn.count(24));
            for (T4dDblVector& p : m.points)
                p = point();
            m.faceCounts.resize(fIn.count(4));
            for (int& c : m.faceCounts)
                c = fIn.i32();
            m.faceVertices.resize(fIn.count(4));
            for (int& v : m.faceVertices)
                v = fIn.i32();
            m.uvs.resize(fIn.count(16));
            for (TuvPoint& uv : m.uvs) {
                uv.u = fIn.f64();
                uv.v = fIn.f64();
            }
            m.uvIndices.resize(fIn.count(4));
            for (int& i : m.uvIndices)
                i = fIn.i32();
            try {
                m.validate();
            } catch (const std::invalid_argument& e) {
                fIn.fail("the mesh for " + name + " is not valid: " + e.what());
            }
            return makeData<TdataMesh>(std::move(m));
        }
        case kLetterCurve: {
            const int degree = fIn.i32();
            if (degree != 1 && degree != 3)
                fIn.fail("a curve's degree is 1 or 3, not " + std::to_string(degree));
            std::vector<T4dDblVector> cvs(fIn.count(24));
            for (T4dDblVector& p : cvs)
                p = point();
            return makeData<TdataCurve>(Tcurve(degree, std::move(cvs)));
        }
        default:
            fIn.fail("unknown kind of data for " + name);
        }
    }

    const TiffReader& fReader;
    TiffFields fIn;
    TiffReader::Chunk fChunk;
    TanimTime fTime;
};

} // namespace

std::string writeSceneBinary(TdependGraph& graph) {
    TiffWriter out;
    out.beginGroup(kSceneBinaryType);
    out.beginChunk(kHead);
    out.putU32(kSceneBinaryFormat);
    out.putString(TtimeUnit::name(TtimeUnit::current()));
    out.endChunk();
    BinaryWriter writer(out);
    walkScene(graph, writer);
    out.endGroup();
    return out.bytes();
}

bool isSceneBinary(std::string_view bytes) {
    return bytes.size() >= 12 && bytes.substr(0, 4) == "FORM" && bytes.substr(8, 4) == "MLSB";
}

void readSceneBinary(std::string_view bytes, const std::string& file) {
    TiffReader top(bytes, file);
    TiffReader::Chunk scene;
    if (!top.next(scene) || scene.tag != kIffGroupTag || scene.groupType != kSceneBinaryType)
        top.fail(0, "not a binary scene file");
    TiffReader::Chunk extra;
    if (top.next(extra)) top.fail(extra.offset, "bytes after the scene");

    TiffReader chunks = top.inside(scene);
    TiffReader::Chunk c;
    if (!chunks.next(c) || c.tag != kHead)
        chunks.fail(scene.offset + 12, "the scene does not start with its header");
    BinaryReader in(chunks, c);
    in.head();
    bool timed = false;
    while (chunks.next(c)) {
        in.reset(c);
        try {
            switch (c.tag) {
            case kNode:
                in.node();
                break;
            case kAddedAttribute:
                in.addedAttribute();
                break;
            case kValue:
                in.value();
                break;
            case kConnection:
                in.connection();
                break;
            case kTime:
                in.time();
                timed = true;
                break;
            case kSelection:
                in.selection();
                break;
            case kFileRules:
                in.fileRules();
                break;
            default:
                chunks.fail(c.offset, "unknown chunk '" + iffTagText(c.tag) + "'");
            }
        } catch (const TiffError&) {
            throw;
        } catch (const std::exception& e) {
            // Graph and plug errors name what; the offset says where.
            chunks.fail(c.offset, e.what());
        }
    }
    // The scene is drawn at its time once opened, as a viewer would show it.
    if (timed) TdependGraph::current().setTime(in.sceneTime(), true);
}

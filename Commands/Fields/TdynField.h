#pragma once
// A field turns arrays of sample points into arrays of forces. A client
// (particle object, rigid node, fluid) connects one element of `inputData`
// and reads the element of `outputForce` with the same index; the field keeps
// no state per client.

#include "Commands/Fields/TdynPointReceptor.h"
#include "Commands/Fields/TdynVolumePrimitive.h"
#include "Commands/Scene/TdynAuxiliary.h"

#include <cmath>

// Child names of the `direction` compound most fields carry.
inline const char* const kFieldDirectionNames[] = {"directionX", "directionY", "directionZ"};
inline const char* const kFieldDirectionShortNames[] = {"dx", "dy", "dz"};
#include <limits>
#include <memory>
#include <string>
#include <vector>

class TdynField;
using TdynFieldPtrArray = std::vector<TdynField*>;

class TdnVSTdynField : public TdnVSTdynAuxiliary {
public:
    TdnVSTdynField();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;

    TattributeDouble magnitude;
    TattributeDouble attenuation;
    TattributeDouble maxDistance;
    TattributeBoolean applyPerVertex;
    TattributeBoolean useMaxDistance;
    TattributeCompound inputData;
    TattributeTyped inputPositions;
    TattributeTyped inputVelocities;
    TattributeTyped inputMass;
    TattributeTime deltaTime;
    TattributeTyped inputForce;
    TattributeTyped outputForce;
    TattributeEnum volumeShape;
    TattributeBoolean volumeExclusion;
    Tattribute3Double volumeOffset;
    TattributeDouble sectionRadius;
    TattributeDouble volumeSweep;
};

// x to the power a, with the common exponents done by multiplication (bit for bit what pow gives for them,
// since both round the exact result once).
inline double fieldPower(double x, double a) {
    if (a == 1) return x;
    if (a == 2) return x * x;
    return std::pow(x, a);
}

// What every law reads once before its loops.
struct TdynFieldFrame {
    double magnitude = 1;
    double attenuation = 0; // clamped below at 0
    double maxDistance = std::numeric_limits<double>::max();
    bool useMaxDistance = false;
    bool applyPerVertex = false;
    const TdynVolumePrimitive* primitive = nullptr; // null: no volume
    TdynVolumeMatrix volumeMatrix;
    bool exclusion = false;
    T4dDblMatrix worldMatrix;
    T4dDblVectorArray sources;
    bool hasOwner = false;

    // Squared reach at attenuation 0 (a negative distance thus reaches as far as its absolute value).
    double reachSquared() const { return maxDistance * maxDistance; }
    bool inVolume(const T4dDblVector& p) const {
        return !primitive || TdynFieldFrame::applyVolumeField(primitive, p, volumeMatrix, exclusion);
    }
    static bool applyVolumeField(const TdynVolumePrimitive* primitive, const T4dDblVector& p,
                                 const TdynVolumeMatrix& matrix, bool exclusion) {
        return primitive->isPointInVolume(p, matrix) != exclusion;
    }
};

class TdynField : public TdynAuxiliary {
    TDECLARE_NODE(TdynField, TdnVSTdynField)
public:
    TdynField();
    ~TdynField() override;

    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    void connectionMade(const Tplug& plug, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& plug, const Tplug& other, bool asSource) override;
    void destroyNode() override;
    // A client's new input element also dirties the output element of the same index, which may not exist
    // yet.
    void setDependentsDirty(TmsgDirty& msg) override;

    // The force law: adds to the receptor's forces. `elementIndex` is the output element being computed.
    // Without `useReceptorDeltaTime` a law that needs a step reads apiDeltaTime().
    virtual bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime);
    virtual bool positionalForce() const { return true; }

    // Forces at the given points, added to `forcesOut` when it already has one per point, else replacing it.
    // -1 for no points or a velocity array of another length; 0 otherwise.
    int getForceAtPoint(const T4dDblVectorArray& positions, const T4dDblVectorArray& velocities,
                        const TdoubleArray& masses, T4dDblVectorArray& forcesOut, double deltaTime);
    // For callers outside the module; always true.
    static bool sForceFunction(TdynPointReceptor* receptor, TdynField* field);

    // The step of a client, in seconds.
    double deltaTime(int elementIndex);
    double apiDeltaTime() const { return fApiDeltaTime; }
    void setApiDeltaTime(double dt) { fApiDeltaTime = dt; }
    bool usedForFluids() const { return fUsedForFluids; }
    void setUsedForFluids(bool on) { fUsedForFluids = on; }
    void setManipulator(void* m) { fManipulator = m; }
    void* manipulator() const { return fManipulator; }

    // ---- volume ----
    // The primitive for the current shape with the sweep and tube radius pushed in, or null for none.
    TdynVolumePrimitive* volumePrimitive();
    TdynVolumePrimitive* volumePrimitive(TdataBlock& block);
    // The inclusive world matrix after a translation by volumeOffset in the field's own space.
    T4dDblMatrix finalVolumeMatrix();
    T4dDblMatrix finalVolumeMatrix(TdataBlock& block);
    bool applyVolumeField(const T4dDblPoint& point);
    static bool applyVolumeField(const TdynVolumePrimitive* primitive, const T4dDblPoint& point,
                                 TdynVolumeMatrix matrix, bool exclusion) {
        return TdynFieldFrame::applyVolumeField(primitive, point, matrix, exclusion);
    }
    TboundingBox boundingBox() override;

    // Copies the shared settings from another field (attenuation clamped at 0).
    void copyData(TdynField& from);

    // ---- finding fields ----
    // The fields among the objects matching a name pattern in the active scene.
    static void getFields(const std::string& pattern, TdynFieldPtrArray& out);
    static void getListOfFields(TdynFieldPtrArray& out);
    static void getAllPositionalFields(TdynFieldPtrArray& out);
    static void getFieldsOwnedBy(const TdependNode* shape, TdynFieldPtrArray& out);
    static void getAllFieldOwners(std::vector<TdependNode*>& out);
    // Fields whose outputForce reaches the object's inputForce.
    static void getFieldsConnectedTo(TdependNode* object, TdynFieldPtrArray& out);
    static bool isFieldOwner(const TdependNode* object);
    // Connects the field to a client: client.fieldData -> inputData[i], outputForce[i] ->
    // client.inputForce[i], with i the client's first free inputForce element. Returns i, or -1 with `why`
    // set (nothing connected).
    int connectToClient(TdependNode* client, std::string& why);

    // ---- attribute accessors ----
    static TdnVSTdynField* saVs() { return sVsData(); }
    static Tattribute* saMagnitude() { return &sVsData()->magnitude; }
    static Tattribute* saAttenuation() { return &sVsData()->attenuation; }
    static Tattribute* saMaxDistance() { return &sVsData()->maxDistance; }
    static Tattribute* saUseMaxDistance() { return &sVsData()->useMaxDistance; }
    static Tattribute* saApplyPerVertex() { return &sVsData()->applyPerVertex; }
    static Tattribute* saInputData() { return &sVsData()->inputData; }
    static Tattribute* saInputForce() { return &sVsData()->inputForce; }
    static Tattribute* saOutputForce() { return &sVsData()->outputForce; }
    static Tattribute* saVolumeShape() { return &sVsData()->volumeShape; }
    static Tattribute* saVolumeExclusion() { return &sVsData()->volumeExclusion; }
    static Tattribute* saSectionRadius() { return &sVsData()->sectionRadius; }
    static Tattribute* saVolumeSweep() { return &sVsData()->volumeSweep; }
    double magnitude() { return number(&fieldVs()->magnitude); }
    void setMagnitude(double v) { setNumber(&fieldVs()->magnitude, v); }
    double attenuation() { return number(&fieldVs()->attenuation); }
    void setAttenuation(double v) { setNumber(&fieldVs()->attenuation, v); }
    double maxDistance() { return number(&fieldVs()->maxDistance); }
    void setMaxDistance(double v) { setNumber(&fieldVs()->maxDistance, v); }
    bool useMaxDistance() { return number(&fieldVs()->useMaxDistance) != 0; }
    void setUseMaxDistance(bool v) { setNumber(&fieldVs()->useMaxDistance, v ? 1 : 0); }
    bool applyPerVertex() { return number(&fieldVs()->applyPerVertex) != 0; }
    void setApplyPerVertex(bool v) { setNumber(&fieldVs()->applyPerVertex, v ? 1 : 0); }
    int volumeShape() { return static_cast<int>(number(&fieldVs()->volumeShape)); }
    void setVolumeShape(int v) { setNumber(&fieldVs()->volumeShape, v); }

    // The attributes of this node's own class: derived classes hold their own copies, which equal the
    // base class's only by index.
    TdnVSTdynField* fieldVs() const { return static_cast<TdnVSTdynField*>(vsData()); }

    // Numbers by attribute (any class's copy of it), for commands and tests.
    double number(const Tattribute* attr, int element = -1);
    void setNumber(const Tattribute* attr, double value, int element = -1);

    const char* baseObjectName() const override { return "field#"; }

protected:
    // The block a law reads: the one being computed into, else the normal one.
    TdataBlock& lawBlock() { return fBlock ? *fBlock : normalBlock(); }
    // Reads the shared settings, primitive and matrix, and builds the source points.
    // False when the owner's points are asked for and cannot be read.
    bool prepareFrame(TdynFieldFrame& f, bool needSources = true);
    // The step a law uses.
    double lawDeltaTime(const TdynPointReceptor& r, bool useReceptorDeltaTime) const {
        return useReceptorDeltaTime ? r.deltaTime() : fApiDeltaTime;
    }

private:
    TdataBlock* fBlock = nullptr;
    std::unique_ptr<TdynVolumePrimitive> fPrimitives[5];
    double fApiDeltaTime = 0;
    bool fUsedForFluids = false;
    void* fManipulator = nullptr;
};

// The summed falloff of the sources that reach `p`: 1 each, or 1 / (1 + d)^a with attenuation; the laws whose
// force only scales with it share this sum.
template <bool kUseMax, bool kAtten>
inline double sourceWeight(const T4dDblVector& p, const T4dDblVector* src, int ns, double a, double R,
                           double R2) {
    double W = 0;
    for (int s = ns - 1; s >= 0; --s) {
        const T4dDblVector rel = p - src[s];
        if constexpr (kAtten) {
            const double d = rel.length();
            if (kUseMax && d > R) continue;
            W += 1.0 / fieldPower(1.0 + d, a);
        } else {
            if (kUseMax && rel.lengthSquared() > R2) continue;
            W += 1.0;
        }
    }
    return W;
}

// Calls `body.template operator()<kUseMax, kAtten>()` for the case at hand: each law keeps one loop per
// combination, so `pow` and square roots appear only in the loops that need them.
template <class Body> inline bool dispatchFieldLoop(bool useMax, bool atten, Body&& body) {
    if (useMax)
        return atten ? body.template operator()<true, true>() : body.template operator()<true, false>();
    return atten ? body.template operator()<false, true>() : body.template operator()<false, false>();
}

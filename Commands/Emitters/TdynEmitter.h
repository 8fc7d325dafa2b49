#pragma once
// An emitter answers, once per target and per step, how many particles are
// born and where. Every per-target attribute is a multi attribute indexed by
// the target: the particle object reads element i of `output`, and its timing,
// fullness, seed and inherit factor arrive at the same index.

#include "Commands/Fields/TdynVolumePrimitive.h"
#include "Commands/Scene/TdynAuxiliary.h"
#include "Host/Data/TdataArrayAttrs.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class TdynEmitter;
class TdynSweptGeometry;
class TdynSweptTriangle;
class TdynSweptLine;
class TtextureSampler;
using TdynEmitterPtrArray = std::vector<TdynEmitter*>;

enum TemitterType { kEmitDirectional = 0, kEmitOmni = 1, kEmitSurface = 2, kEmitCurve = 3, kEmitVolume = 4 };
enum TemitterVolumeShape { kEmitCube = 0, kEmitSphere = 1, kEmitCylinder = 2, kEmitCone = 3, kEmitTorus = 4 };

class TdnVSTdynEmitter : public TdnVSTdynAuxiliary {
public:
    TdnVSTdynEmitter();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;

    TattributeEnum emitterType;
    TattributeDouble rate;
    TattributeBoolean scaleRateByObjectSize;
    TattributeBoolean useRatePP;
    TattributeBoolean needParentUV;
    TattributeEnum cycleEmission;
    TattributeInt32 cycleInterval;
    TattributeTime deltaTimeCycle;
    TattributeDouble maxDistance;
    TattributeDouble minDistance;
    Tattribute3Double direction;
    TattributeDouble spread;
    TattributeDouble speed;
    TattributeDouble speedRandom;
    TattributeDouble tangentSpeed;
    TattributeDouble normalSpeed;
    TattributeTime currentTime;
    TattributeDouble inheritFactor;
    TattributeBoolean isFull;
    TattributeTime startTime;
    TattributeTime deltaTime;
    TattributeTyped emitCountRemainder;
    TattributeTyped ratePP;
    TattributeTyped parentId;
    TattributeTyped sweptGeometry;
    TattributeTyped output;
    TattributeInt32 seed;
    Tattribute3Int32 randState;
    TattributeBoolean enableTextureRate;
    Tattribute3Float textureRate;
    TattributeBoolean emitFromDark;
    TattributeBoolean inheritColor;
    TattributeBoolean inheritOpacity;
    TattributeBoolean invertOpacity;
    TattributeBoolean useLuminance;
    Tattribute3Float particleColor;
    TattributeEnum volumeShape;
    Tattribute3Double volumeOffset;
    TattributeDouble volumeEfficiency;
    TattributeDouble volumeSweep;
    TattributeDouble sectionRadius;
    TattributeDouble awayFromCenter;
    TattributeDouble awayFromAxis;
    TattributeDouble alongAxis;
    TattributeDouble aroundAxis;
    TattributeDouble randomDirection;
    TattributeDouble directionalSpeed;
    TattributeBoolean scaleSpeedBySize;
    TattributeBoolean displaySpeed;
};

// What a point routine reads of its sources.
struct TdynEmitSources {
    const T4dDblVectorArray* positions = nullptr;
    const T4dDblVectorArray* velocities = nullptr;
    const TdoubleArray* parentIds = nullptr; // null: no "parentId" output
};

// The per-particle settings every routine reads once before its loops.
struct TdynEmitSettings {
    double dt = 0; // seconds
    double inheritFactor = 0;
    double speed = 1;
    double speedRandom = 0;
    double spread = 0;
    double minDistance = 0;
    double maxDistance = 0;
    double tangentSpeed = 0;
    double normalSpeed = 1;
};

class TdynEmitter : public TdynAuxiliary {
    TDECLARE_NODE(TdynEmitter, TdnVSTdynEmitter)
public:
    TdynEmitter();
    ~TdynEmitter() override;

    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    void destroyNode() override;
    void postConstructor() override;
    void setDependentsDirty(TmsgDirty& msg) override;
    const char* baseObjectName() const override { return "emitter#"; }

    // ---- the four emitters ----
    bool pointEmitter(const Tplug& plug, TdataBlock& block);
    bool surfaceEmitter(const Tplug& plug, TdataBlock& block);
    bool curveEmitter(const Tplug& plug, TdataBlock& block);
    bool volumeEmitter(const Tplug& plug, TdataBlock& block);

    // ---- counts ----
    static void emitCountPerPoint(double rate, double dt, double& remainder, int& count);
    static void emitCountPerPoint(double dt, const TdoubleArray& rates, TdoubleArray& remainders,
                                  Tint32Array& counts);
    // Particles for a whole geometry in one step; `size` is its area or length (1 when not scaling).
    static int totalEmitCount(double size, double rate, double dt, double& remainder);
    // The most particles one emitter makes in one step; more would take the machine's memory.
    static constexpr long long kMaxBirthsPerStep = 5'000'000;
    // Cuts the counts down to the step's limit (saying so once); false when nothing is to be made.
    bool limitBirths(Tint32Array& counts);
    bool getEmitCountPerPoint(const Tplug& plug, TdataBlock& block, unsigned n, Tint32Array& counts);
    bool getEmitCountVolume(const Tplug& plug, TdataBlock& block, Tint32Array& counts);
    bool getEmitCountSweptGeo(const Tplug& plug, TdataBlock& block, const TdynSweptGeometry& geometry,
                              Tint32Array& counts);
    // Divides `total` over elements by their sizes; the fractions left are handed out by random draws.
    void getEmitCountPerSweptGeo(int total, double totalSize, const TdoubleArray& sizes, Tint32Array& counts);
    int randomIndex(const TdoubleArray& cdf);

    // Source points in world space and their velocities; false when there are none.
    bool getEmitPositionVelocityData(int target, TdataBlock& block, T4dDblVectorArray& positions,
                                     T4dDblVectorArray& velocities, T4dDblMatrix* matrixOut = nullptr);

    // ---- random state ----
    double randgen();
    void getRandomState(int target, TdataBlock& block);
    void setRandomState(int target, TdataBlock& block);
    void resetRandomGenerator(int target);
    const unsigned short* randomState() const { return fRandState; }
    void setRandomStateWords(unsigned short x, unsigned short y, unsigned short z) {
        fRandState[0] = x;
        fRandState[1] = y;
        fRandState[2] = z;
    }

    void resetRemainderArray(const Tplug& plug, TdataBlock& block);
    void cleanOutputData(int target, TdataBlock& block);
    // True while time runs backwards: no births then.
    bool suppressEmission() const;
    static void setForceEmission(bool on) { sForceEmission = on; }
    TanimTime deltaTimeCycle(int target);
    void setDeltaTimeCycle(TanimTime t, int target);
    // The primitive of the current volume shape with the sweep and section radius pushed in.
    TdynVolumePrimitive* currentVolumePrimitive();
    // Translation by volumeOffset, then the emitter's world matrix.
    T4dDblMatrix finalVolumeMatrix(TdataBlock& block);
    // flags[k] = 1 for a point inside the volume. False when the emitter has no volume.
    bool arePointsWithinVolume(const T4dDblVectorArray& points, Tint32Array& flags);
    void setPreviousPosition(int target);
    void timeChanged(TanimTime now);
    void worldMatrixModified();
    bool canBeDeleted() const { return true; }

    // ---- emission routines ----
    static T4dDblVectorArray* getOutputDataArrays(TdataArrayAttrs& attrs, unsigned total,
                                                  T4dDblVectorArray** velocities);
    void emitFromPointOmni(const TdynEmitSources& src, const Tint32Array& counts, const TdynEmitSettings& s,
                           TdataArrayAttrs& attrs);
    // `direction` is in the emitter's own space; `inclusive` takes it to the world.
    void emitFromPointDirectional(const TdynEmitSources& src, const Tint32Array& counts,
                                  const TdynEmitSettings& s, const T4dDblVector& direction,
                                  const T4dDblMatrix& inclusive, TdataArrayAttrs& attrs);
    void emitFromTriangle(const TdynSweptGeometry& geometry, const Tint32Array& counts,
                          const TdynEmitSettings& s, bool needParentUV, TdoubleArray& uOut,
                          TdoubleArray& vOut, TdataArrayAttrs& attrs);
    void emitFromLine(const TdynSweptGeometry& geometry, const Tint32Array& counts, const TdynEmitSettings& s,
                      const T4dDblVector& direction, TdataArrayAttrs& attrs);
    // The volume's settings, read once.
    struct VolumeSettings {
        int shape = 0;
        double away = 1, along = 0, around = 0, randomDirection = 0;
        T4dDblVector direction; // world, already times directionalSpeed
        bool scaleSpeedBySize = false;
    };
    void emitFromVolume(const TdynVolumePrimitive& primitive, const T4dDblMatrix& finalMatrix,
                        const T4dDblMatrix& previousMatrix, const T4dDblVector& emitterVelocity, int count,
                        const TdynEmitSettings& s, const VolumeSettings& v, TdataArrayAttrs& attrs);

    T4dDblVector randomVelocity();
    void spreadVelocity(const T4dDblVector& v, T4dDblVector& out, double angle);
    void getSurfaceEmitVelocity(double normalSpeed, double tangentSpeed, const T4dDblVector& normal,
                                T4dDblVector& out);

    // ---- textures ----
    static bool normalizeUV(TdoubleArray& u, TdoubleArray& v);
    static void computeFilterArray(const T4dDblVectorArray& colours, TdoubleArray& out);
    void filterTextureEmission(const TdoubleArray& filter, TdataArrayAttrs& attrs);
    static void filterDataArrayAttrs(unsigned index, TdataArrayAttrs& attrs);
    // The texture node connected to textureRate or particleColor, or null.
    TtextureSampler* textureNodeForRate();
    TtextureSampler* textureNodeForColor();

    // ---- lookups ----
    static void getEmitters(const std::string& pattern, TdynEmitterPtrArray& out);
    static void getListOfEmitters(TdynEmitterPtrArray& out);
    // Emitters whose output feeds the object's newParticles.
    static void getEmittersConnectedTo(TdependNode* object, TdynEmitterPtrArray& out);
    static void getEmittersOwnedBy(const TdependNode* shape, TdynEmitterPtrArray& out);
    // Joins the emitter to a particle object at the object's first free newParticles index: output[i]
    // feeds newParticles[i]; timing, isFull, seed and inheritFactor come back at i. Returns i, or -1 with
    // `why` set.
    int connectToTarget(TdependNode* target, std::string& why);
    // Undoes connectToTarget at index i.
    void disconnectFromTarget(TdependNode* target, int index);

    // ---- attribute access ----
    static TdnVSTdynEmitter* saVs() { return sVsData(); }
    TdnVSTdynEmitter* emVs() const { return static_cast<TdnVSTdynEmitter*>(vsData()); }
    // Numbers by attribute (any class's copy of it), for commands and tests.
    double number(const Tattribute* attr, int element = -1);
    void setNumber(const Tattribute* attr, double value, int element = -1);
    int emitterType() { return static_cast<int>(number(&emVs()->emitterType)); }
    double rate() { return number(&emVs()->rate); }
    void setRate(double v) { setNumber(&emVs()->rate, v); }

private:
    // The frame shared by the four emitters, up to the counts.
    struct Frame {
        int target = -1;
        TdataHandle out;
        Tdata data;
        TdataArrayAttrs* attrs = nullptr;
        TdynEmitSettings s;
        TanimTime dt;
    };
    // Takes the target's output letter for writing.
    bool beginFrame(const Tplug& plug, TdataBlock& block, Frame& f);
    // Timing, the start, clearing and suppression; false when this step emits nothing.
    bool checkFrame(TdataBlock& block, Frame& f);
    static bool distancesUsable(const TdynEmitSettings& s);
    // The frame of the surface and curve emitters up to the counts; false when nothing is born.
    bool sweptFrame(const Tplug& plug, TdataBlock& block, Frame& f, TdynSweptGeometry*& geometry, int kind,
                    Tint32Array& counts);
    // Reads speed and the rest; false when the distances make no sense.
    bool readSettings(TdataBlock& block, Frame& f);
    // Commits the output and writes the random state back.
    void endFrame(TdataBlock& block, Frame& f);
    TdynSweptGeometry* sweptGeometry(TdataBlock& block);

    // Per-target stores of an unowned emitter.
    struct TargetStore {
        T4dDblVector lastPoint;
        T4dDblMatrix inclusive, final, previousForCaller;
        bool set = false;
    };
    TargetStore& store(int target);

    unsigned short fRandState[3] = {0, 0, 1};
    std::map<int, TargetStore> fStores;
    TanimTime fCurrentFrame, fLastFrame;
    bool fHaveFrame = false;
    bool fBirthLimitWarned = false;
    std::unique_ptr<TdynVolumePrimitive> fPrimitives[5];
    static bool sForceEmission;
};

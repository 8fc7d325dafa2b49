#pragma once
// The particle object: a shape whose state is a set of parallel per-particle
// arrays kept as attributes. A particle is an index into those arrays. The
// whole simulation step hangs on the evaluation of `count`.

#include "Commands/Scene/TdynStatic.h"
#include "Host/Base/TclientServer.h"
#include "Host/Dag/Tshape.h"
#include "Host/Data/TdataArrayAttrs.h"
#include "Host/Data/TdataArrays.h"

#include <memory>
#include <string>
#include <vector>

class TdynParticleShape;
class TdynSweptGeometry;
class TdynSweptPointSet;
using TdynParticleShapePtrArray = std::vector<TdynParticleShape*>;

class TdnVSTdynParticleShape : public TdnVSTgeometryShape {
public:
    TdnVSTdynParticleShape();
    ~TdnVSTdynParticleShape() override;
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;

    // Runtime generation.
    Tattribute *position, *rampPosition, *worldPosition, *lastPosition;
    Tattribute *velocity, *rampVelocity, *lastVelocity, *acceleration, *rampAcceleration;
    Tattribute *force, *inputForce;
    Tattribute3Double *centroid, *worldCentroid, *cachedWorldCentroid;
    Tattribute *lastWorldPosition, *worldVelocity, *worldVelocityInObjectSpace, *lastWorldVelocity,
        *lastWorldMatrix;
    // Initial state.
    Tattribute *position0, *velocity0, *acceleration0, *emitterId0;
    Tattribute *useStartupCache, *startupCachePath, *startupCacheFrame;
    // Cached generation: what force providers see.
    Tattribute *cachedPosition, *lastCachedPosition, *cachedWorldPosition, *cachedVelocity,
        *cachedWorldVelocity;
    Tattribute *count, *computingCount;
    Tattribute *mass, *mass0, *massCache;
    Tattribute *particleId, *idCache, *particleId0, *sortedId, *idIndex;
    TattributeCompound* idMapping;
    Tattribute *nextId, *nextId0;
    Tattribute *birthTime, *birthTime0, *birthTimeCache, *age, *age0, *ageCache;
    Tattribute *emission, *emitterId, *dieOnEmissionVolumeExit, *isFull, *newParticles, *collisionEvents,
        *death;
    Tattribute *lifespanMode, *lifespanRandom, *finalLifespanPP, *generalSeed;
    Tattribute3Int32* randState;
    Tattribute *expressionsAfterDynamics, *executeCreationExpression, *executeRuntimeExpression, *input,
        *output;
    Tattribute *time, *frame, *internalRuntimeExpression, *internalCreationExpression, *currentParticle;
    Tattribute *diedLastTime, *netEmittedLastTime, *startEmittedIndex;
    Tattribute *isDynamic, *dynamicsWeight, *forcesInWorld, *conserve, *emissionInWorld, *maxCount,
        *levelOfDetail;
    Tattribute *inheritFactor, *seed;
    Tattribute *fieldDataPosition, *fieldDataVelocity, *fieldDataMass, *fieldDataDeltaTime;
    TattributeCompound* fieldData;
    Tattribute *emitterDataPosition, *emitterDataVelocity, *emitterDataDeltaTime;
    TattributeCompound* emitterData;
    Tattribute *forceDynamics, *currentTime, *currentTimeSave, *evaluationTime, *currentSceneTime;
    Tattribute *lastTimeEvaluated, *lastSceneTime, *cachedTime, *timeStepSize, *sceneTimeStepSize;
    Tattribute *startFrame, *startTime;
    Tattribute *inputGeometry, *inputGeometryPoints, *inputGeometrySpace, *enforceCountFromHistory;
    Tattribute *targetGeometry, *targetGeometryWorldMatrix, *targetGeometrySpace;
    Tattribute *goalSmoothness, *goalGeometry, *goalWeight, *goalActive;
    Tattribute *cacheData, *cacheWidth, *collisions, *traceDepth, *collisionData, *collisionGeometry;
    Tattribute *collisionResilience, *collisionFriction, *collisionRecords;
    Tattribute *totalEventCount, *eventTest, *lastTotalEventCount, *eventSeed;
    Tattribute3Int32* eventRandState;
    Tattribute *eventTarget, *eventName, *eventValid, *eventCount, *eventEmit, *eventSplit, *eventDie;
    Tattribute *eventRandom, *eventSpread, *eventProc;
    Tattribute *instanceData, *instanceAttributeMapping, *instancePointData, *debugDraw, *numberOfEvents;
    Tattribute *eventNameCount, *fieldConnections, *collisionConnections, *connectionsToMe, *auxiliariesOwned;
    Tattribute *emitterConnections, *inheritColor, *shapeNameMsg, *doDynamics, *doEmission, *forceEmission,
        *doAge;
    Tattribute *agesLastDone, *timeLastComputed, *parentMatrixDirty, *newFileFormat, *depthSort;
    Tattribute *particleRenderType, *disableCloudAxis, *normalizeVelocity, *samplerPerParticleData;

    // Number of attributes this class declares (children of compounds included).
    unsigned ownAttributeCount() const { return fOwnCount; }

private:
    template <class A, class... Args> A* make(Args&&... args);
    std::vector<std::unique_ptr<Tattribute>> fOwned;
    unsigned fOwnCount = 0;
};

class TdynParticleShape : public TgeometryShape {
    TDECLARE_NODE(TdynParticleShape, TdnVSTdynParticleShape)
public:
    TdynParticleShape();
    ~TdynParticleShape() override;

    // ---- graph ----
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) override;
    bool addAttribute(std::unique_ptr<Tattribute> attr, TattrClass cls = TattrClass::kLocalDynamic) override;
    std::unique_ptr<Tattribute> removeAttribute(Tattribute* attr,
                                                TattrClass cls = TattrClass::kLocalDynamic) override;
    void postConstructor() override;
    void doPreDraw() override;
    void setDirty(TmsgDirty& msg) override;
    bool shouldBeWritten(const Tplug& plug) const override;
    // Host time events: a unit change moves startTime, a range change the cache width.
    void timeUnitChanged();
    void timeRangeChanged();

    // ---- the step ----
    void initializePrivateData();
    void initializeDynamicState(bool copy);
    bool computeCount(TdataBlock& block);
    void computeDynamics(TdataBlock& block);
    void computeForces(TdataBlock& block);
    void computeGoalForces(T4dDblVectorArray& force, TdataBlock& block);
    // Semi-implicit Euler over plain arrays. Null out arrays mean in place.
    // `nameForWarnings` names the object in the zero-mass warning (null: no warning).
    static void
    evaluateEuler(T4dDblVectorArray& position, T4dDblVectorArray& velocity, T4dDblVectorArray& acceleration,
                  const T4dDblVectorArray& force, const TdoubleArray& mass, double dt, double conserve,
                  double dynamicsWeight, bool forcesInWorld, const T4dDblMatrix& worldMatrix,
                  T4dDblVectorArray* outPosition = nullptr, T4dDblVectorArray* outVelocity = nullptr,
                  T4dDblVectorArray* outAcceleration = nullptr, const char* nameForWarnings = nullptr);
    // Pulls the step at the current time (what run-up calls).
    void forceDynamics();
    bool restoreState(TdataBlock& block);
    void copyInitialToRuntime(TdataBlock& block);
    void saveInitialState();
    bool saveInitialState(const Tattribute* attribute);
    void patchInitialStateData(TdataBlock& block);
    // An edit of position or velocity at or before the start time is where the run begins.
    void followEditAtStart(const Tattribute* attribute);
    void updateCachedAttributes(TdataBlock& block);
    // The step's bookkeeping when cached data stood in for it.
    void useCachedState(TdataBlock& block, TanimTime current, TanimTime sceneTime);

    // ---- births, deaths, identifiers ----
    void computeEmission(TdataBlock& block);
    static int calculateCountAndInterval(int count, int n, int maxCount, double levelOfDetail, bool useMax,
                                         bool useDetail, double& interval);
    int addRuntimeParticles(TdataArrayAttrs& batch, bool useMax, bool useDetail, bool alreadyInObjectSpace);
    void removeDeadParticles(const Tint32Array& dead, TdataBlock& block);
    static void rearrangeParticles(TdoubleArray& array, const Tint32Array& dead, const Tint32Array& from,
                                   unsigned newLength);
    static void rearrangeParticles(T4dDblVectorArray& array, const Tint32Array& dead, const Tint32Array& from,
                                   unsigned newLength);
    static void rearrangeParticles(Tint32Array& array, const Tint32Array& dead, const Tint32Array& from,
                                   unsigned newLength);
    void computeDeath(TdataBlock& block);
    void computeAge(TdataBlock& block);
    void computeFinalLifespanPP(TdataBlock& block);
    void computeNormalizedAge(TdataBlock& block);
    void fillWithLifespanValues(TdoubleArray& array, unsigned first, unsigned n, TdataBlock& block);
    void computeIdMapping(TdataBlock& block);
    void computeIsFull(TdataBlock& block);
    void addParticlesFromHistory(TdataBlock& block);
    void moveParticlesFromHistory(TdataBlock& block);
    void removeParticlesFromHistory(TdataBlock& block);
    void computeInputGeomPoints(TdataBlock& block);
    void computeTargetGeometry(TdataBlock& block);
    // Appends one particle to the initial state (and the runtime arrays).
    void addParticle(const T4dDblVector& position, const T4dDblVector* velocity = nullptr);
    void addParticles(const T4dDblVectorArray& positions, const T4dDblVectorArray* velocities = nullptr);

    // ---- random numbers ----
    double randgen(TdataBlock& block);
    double eventRandgen(TdataBlock& block);

    // ---- collisions and events ----
    // The particles one event asks for, kept until every row of the step was seen.
    struct TeventEmission {
        T4dDblVector position, velocity;
        double mass = 1.0;
        double age = 0.0;
        double spread = 0.0;
        int count = 0;
        TdynParticleShape* target = nullptr;
    };
    // The ten typed columns of the collision records, emptied (made if missing).
    static void clearCollisionRecords(TdataArrayAttrs& records);
    void processCollisions(TdataBlock& block);
    void clearCollisionUVAttributes(TdataBlock& block);
    void updateSweptPointSetFromState(TdataBlock& block);
    void collideWithSweptGeometry(TdataBlock& block, const std::vector<int>& elements,
                                  TdataArrayAttrs& records);
    void collideWithSweptGeometry(TdataBlock& block, const std::vector<TdynSweptGeometry*>& geometries,
                                  const TdoubleArray& resilience, const TdoubleArray& friction,
                                  const std::vector<int>& elementIndices, const TdoubleArray& mass,
                                  TdataArrayAttrs& records);
    void updateStateFromSweptPointSet(TdataBlock& block);
    void computeCollisionEvents(TdataBlock& block);
    // True when it filled `record` with particles to make.
    bool doEvent(TdataBlock& block, bool die, int split, int emit, bool random, double spread,
                 const Tstring& proc, const T4dDblVector& position, const T4dDblVector& velocity,
                 const Tstring& shape, int id, double age, double mass, bool& dies, TeventEmission& record);
    void collisionEmit(TdataBlock& block, const TeventEmission& record);
    T4dDblVector eventSpreadVelocity(TdataBlock& block, const T4dDblVector& v, double angle);
    void computeEventTest(TdataBlock& block);
    // The element of the event of that name, or the first free one when none has it.
    int getValidEventIndex(const Tstring& name);
    void appendEventNames(std::vector<Tstring>& names);
    // Elements of the events in use, in order.
    std::vector<int> validEventIndices();
    // The swept points of the last collision pass, or null before the first.
    TdynSweptPointSet* sweptPointSet() const { return fSweptPoints.get(); }
    // The particle object connected to eventTarget[element], or null.
    TdynParticleShape* eventTargetObject(int element);

    // ---- per-particle data from outside ----
    // False (with `why` set) for an unknown attribute or index out of range.
    bool getAttribute(const Tstring& name, unsigned index, double& value, Tstring* why = nullptr);
    bool getAttribute(const Tstring& name, unsigned index, T4dDblVector& value, Tstring* why = nullptr);
    bool setAttribute(const Tstring& name, unsigned index, double value, Tstring* why = nullptr);
    bool setAttribute(const Tstring& name, unsigned index, const T4dDblVector& value, Tstring* why = nullptr);
    T4dDblVectorArray* vectorArrayValue(const Tattribute* attr);
    TdoubleArray* doubleArrayValue(const Tattribute* attr);
    T4dDblVectorArray* vectorArrayReference(const Tattribute* attr);
    TdoubleArray* doubleArrayReference(const Tattribute* attr);
    // The attribute as a per-particle array attribute (runtime family), or null.
    Tattribute* perParticleAttribute(const Tstring& name) const;
    // The most particles one collision event makes at a hit (split or emit).
    static constexpr int kMostBirthsPerHit = 10'000;
    unsigned countNoCompute();
    unsigned initialCount();
    void copyParticleAttribute(const Tattribute* from, TdataBlock& blockFrom, const Tattribute* to,
                               TdataBlock& blockTo);
    void clampParticleAttribute(const Tattribute* attr, unsigned n, TdataBlock& block);
    void shiftDoubleAttributeValues(const Tattribute* attr, double amount);
    void shiftVectorAttributeValues(const Tattribute* attr, const T4dDblVector& amount);
    // mass0 and mass, birthTime0 and birthTime, brought to the initial count with their defaults.
    void allocateMassAttribute(TdataBlock& block);
    void allocateBirthTimeAttribute(TdataBlock& block);
    // Appends a scene object's points (world space) to the initial state; false if it has none.
    bool addFromDagObject(TdagObject* object);
    // Moving one particle by hand is not offered: the arrays are the interface.
    void moveParticle(unsigned, const T4dDblVector&) {}
    void allocateAndFillDouble(const Tattribute* attr, unsigned n, double value, TdataBlock& block);
    void allocateAndFillVector(const Tattribute* attr, unsigned n, const T4dDblVector& value,
                               TdataBlock& block);
    bool hasNonExprInputConnection(const Tattribute* attr) const;
    double defaultDoubleValue(const Tattribute* attr);
    T4dDblVector defaultVectorValue(const Tattribute* attr);
    double startTimeSeconds();

    // ---- attribute families ----
    static bool isInitialStateOrCacheAttribute(const Tattribute* attr);
    Tattribute* initialStateAttribute(const Tattribute* attr) const;
    Tattribute* runtimeAttribute(const Tattribute* attr) const;
    Tattribute* cacheAttribute(const Tattribute* attr) const;
    static bool isInComputeExclusionList(const Tattribute* attr);
    static bool isInEmissionExclusionList(const Tattribute* attr);
    static bool isInSamplerPerParticleDataExclusionList(const Tattribute* attr);
    bool isExcludedFromEmission(const Tattribute* attr) const;
    // Array attributes that births and deaths keep aligned with `position`.
    std::vector<Tattribute*> perParticleArrays(bool forEmission) const;

    void disableExpressions() { ++fExpressionBlocks; }
    void enableExpressions() {
        if (fExpressionBlocks > 0) --fExpressionBlocks;
    }
    void enableDynamics() { fDynamicsEnabled = true; }
    void disableDynamics() { fDynamicsEnabled = false; }
    bool dynamicsEnabled() const { return fDynamicsEnabled; }

    // Steps actually taken (sequence runs), for tests and statistics.
    std::uint64_t stepCount() const { return fStepCount; }

private:
    static void buildExclusionLists();
    void computeEvaluationTime(TdataBlock& block);
    void computeTimeStepSize(TdataBlock& block);
    void computeWorldPosition(TdataBlock& block);
    void computeLastPositionFromVelocity(TdataBlock& block);
    void computeLastWorldPosition(TdataBlock& block);
    void computeWorldVelocity(TdataBlock& block);
    void computeWorldVelocityInObjectSpace(TdataBlock& block);
    void computeCachedWorldPosition(TdataBlock& block);
    void computeLastCachedPositionFromVelocity(TdataBlock& block);
    // `out` = position - velocity * step: where each particle was a step ago.
    void stepBackAlongVelocity(TdataBlock& block, const Tattribute* position, const Tattribute* velocity,
                               const Tattribute* out);
    void computeCachedWorldVelocity(TdataBlock& block);
    void computeCentroid(TdataBlock& block, const Tattribute* source, Tattribute3Double* target);
    void computeLastWorldMatrix(TdataBlock& block);
    void computeFieldData(TdataBlock& block);
    // Masses matching the positions handed to fields.
    Tdata fieldMasses(TdataBlock& block);
    void computeEmitterData(TdataBlock& block);
    void clearAccelerations(TdataBlock& block);
    bool updateFromRamp(const Tattribute* target, const Tattribute* ramp, TdataBlock& block);
    bool getGoalPositions(T4dDblVectorArray& out, unsigned n, TdataBlock& block);
    void getGoalWeights(TdoubleArray& out, TdataBlock& block);
    bool isGoalObjectValid(int element, TdataBlock& block);
    // Appends the sampled values of one array for a batch already in object space.
    void fillNewValues(Tattribute* attr, TdataArrayAttrs& batch, TdataBlock& block, int n, int k,
                       double interval, int firstId, double evalSeconds, double stepSeconds);
    void dirtySpecialCurrentTimeDependents();
    double drawFrom(Tattribute3Int32* state, TdataBlock& block);

    class TtimeClient : public Tclient {
    public:
        TtimeClient(TdynParticleShape& shape, int kind) : fShape(shape), fKind(kind) {}
        void triggered(int message) override;

    private:
        TdynParticleShape& fShape;
        int fKind;
    };
    TtimeClient fTimeChangeClient{*this, 0}, fUnitClient{*this, 1}, fRangeClient{*this, 2};
    void shiftInitialBirthTimes(double seconds);

    bool fPrivateDataInitialized = false;
    bool fDynamicStateInitialized = false;
    int fExpressionBlocks = 0;
    bool fDynamicsEnabled = true;
    std::uint64_t fStepCount = 0;
    T4dDblMatrix fLastWorldMatrix;
    bool fHaveLastWorldMatrix = false;
    // One swept point per particle, reused from step to step, and whether each hit in this step.
    struct TsweptPointSetDeleter {
        void operator()(TdynSweptPointSet* set) const;
    };
    std::unique_ptr<TdynSweptPointSet, TsweptPointSetDeleter> fSweptPoints;
    std::vector<unsigned char> fPointHit;
    void recordBirthPoints(TdataArrayAttrs& batch, int firstId, double stepSeconds,
                           const T4dDblMatrix* toWorld);
    // Where the particles born in this step came into being (world space), by particle id from
    // fBirthFirstId: their first sweep starts there, not a whole step back.
    int fBirthFirstId = 0;
    std::vector<T4dDblVector> fBirthPoints;
};

// Per-scene settings: over-sampling and the particle disk cache.
class TdnVSTdynGlobals : public TdependNodeVS {
public:
    TdnVSTdynGlobals();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeInt32 overSamples, internalOverSamples;
    TattributeBoolean useParticleDiskCache;
    TattributeTyped cacheDirectory;
    TattributeInt32 minFrameCached, maxFrameCached;
    TattributeTyped confirmedPath, confirmSceneName;
};

class TdynGlobals : public TdependNode {
    TDECLARE_NODE(TdynGlobals, TdnVSTdynGlobals)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) override;
    // The active globals node, made if the scene has none (with `create`).
    static TdynGlobals* activeGlobalsNode(bool create = true);
    // Keeps one node active: the first one found.
    static void forceOneActive();
    int overSamples();
    Tstring cachePath();
    void timeUnitChanged();
    static int convertOverSampling(int overSamples);
};

// The scene's dynamics switchboard.
class TdnVSTdynController : public TdependNodeVS {
public:
    TdnVSTdynController();
    void appendAttributes(TattributeList& list) override;
    TattributeDouble lastEvalTime, evalTime, startTime, startFrame, currEvalTime;
    TattributeInt32 makeDirty;
    TattributeBoolean output;
    TattributeInt32 traceDepth;
    TattributeBoolean particleCache;
    TattributeDouble cacheTime;
    TattributeBoolean doRunup, particlesOn, allOn, rigidOn;
    TattributeDouble particleLOD;
    TattributeInt32 oversample, seed;
    TattributeBoolean autoCreate, firstEval, allOnWhenRun, startRunup, breakRunup;
};

class TdynController : public TdependNode {
    TDECLARE_NODE(TdynController, TdnVSTdynController)
public:
    static TdynController* controller(bool create = true);
    void initialize();
    void resetDefaultValues();
    void lockAllPlugs();
    void lockPlug(const Tattribute* attr);
    bool isLocked(const Tattribute* attr) const;
    bool legalDisconnection(const Tplug& plug, const Tplug& other, bool asSource) const override;

private:
    std::vector<const Tattribute*> fLocked;
};

// Module-wide random draws for expressions and fields, over one erand48 state.
namespace dynRandgen {
void seed(long value);
double uniform(double low, double high);
double gaussian();
T4dDblVector gaussianVector();
double smoothStep(double lower, double upper, double v);
} // namespace dynRandgen

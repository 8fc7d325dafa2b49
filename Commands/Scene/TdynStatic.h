#pragma once
// The module's own static operations on arrays, matrices, graph queries,
// sorting and the frame grid, shared by every subsystem.

#include "Host/Dag/TdagObject.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Graph/TdependGraph.h"
#include "Host/Math/T4dDblMatrix.h"
#include "Host/Time/TanimTime.h"

#include <vector>

class TdynStatic {
public:
    // ---- arrays and matrices ----

    // The array letter of a value by reference (no copy); null for an empty
    // envelope or another letter class.
    template <class L> static typename L::ArrayType* getValueByReference(const Tdata& data) {
        L* l = data.as<L>();
        return l ? &l->array() : nullptr;
    }
    static void scaleArrayByDoubleInPlace(T4dDblVectorArray& array, double s);
    static void scaleArrayByDoubleInPlace(TdoubleArray& array, double s);
    // `out` := `array` times `s`.
    static void scaleArrayByDouble(const T4dDblVectorArray& array, double s, T4dDblVectorArray& out);
    // Sets the array to `n` copies of `value`.
    static void fillVectorArray(T4dDblVectorArray& array, unsigned n, const T4dDblVector& value);
    static T4dDblMatrix matrixWithoutTranslation(const T4dDblMatrix& m);
    // Keeps the scale (row lengths) and translation, drops the rotation.
    static T4dDblMatrix matrixWithoutRotation(const T4dDblMatrix& m);
    // Keeps the rotation and translation with unit row lengths.
    static T4dDblMatrix matrixWithoutScale(const T4dDblMatrix& m);
    // In place; points (translation applies) or directions.
    static void transformVectorArrayByMatrix(T4dDblVectorArray& array, const T4dDblMatrix& m,
                                             bool asPoints = true);
    static void transformCopyOfVectorArrayByMatrix(const T4dDblVectorArray& array, const T4dDblMatrix& m,
                                                   T4dDblVectorArray& out, bool asPoints = true);
    // Velocity of a point carried from `oldMatrix` to `newMatrix` in `dt`
    // seconds: the point is taken in the new frame, brought back to object
    // space and placed by the old matrix.
    static T4dDblVector worldVelocityOfPoint(const T4dDblVector& p, const T4dDblMatrix& oldMatrix,
                                             const T4dDblMatrix& newMatrix, double dt);
    static T4dDblVectorArray* dataVectorArray(const Tdata& d) {
        return getValueByReference<TdataVectorArray>(d);
    }
    static TdoubleArray* dataDoubleArray(const Tdata& d) { return getValueByReference<TdataDoubleArray>(d); }
    // Makes the envelope a writer (copying a shared letter) and gives its array;
    // an empty envelope gets a new letter.
    static T4dDblVectorArray* writableDataVectorArray(Tdata& d);
    static TdoubleArray* writableDataDoubleArray(Tdata& d);

    // ---- graph queries ----

    // Pulls the value coming into a plug through its connection; false without one.
    static bool evaluateInputConnection(const Tplug& plug, const TdgContext& context, TdataHandle& handle);
    static Tplug inputConnection(const Tplug& plug) { return plug.source(); }
    static bool hasInputConnection(const Tplug& plug) { return !plug.source().isNull(); }
    // The element of a multi attribute of `node` that `source` feeds, or -1.
    static int multiIndexForInput(TdependNode* node, const Tattribute* multi, const Tplug& source);
    // First shape (or all shapes) under a transform; a shape gives itself.
    static TdagObject* getShape(TdagObject* object);
    static std::vector<TdagObject*> getShapes(TdagObject* object);
    static bool isAGeometry(const TdependNode* node);
    // Visible, and every parent visible.
    static bool isPathVisible(TdagObject* object);
    // The simulated shape of an object (itself or the shape under it), or null.
    static TdagObject* dynamicObject(TdagObject* object);
    static TdagObject* dynamicShapeFromObject(TdagObject* object) { return dynamicObject(object); }
    static TdagObject* findDagObject(const Tstring& name);
    static TdagObject* findDagObjectByType(const Tstring& name, const Tmetaclass& type);
    static Tstring findPathInModel(const TdependNode* node);
    static bool isADynamicObject(const TdependNode* node);
    // Node classes that count as simulated objects enter themselves here.
    static void registerDynamicType(const Tmetaclass& type);

    // ---- sort and search ----

    static void bubbleSort(Tint32Array& values);
    static void quickSort(Tint32Array& values);
    // Sorts ascending and carries `companion` along (the particle index of each id).
    static void quickSortInPlace(Tint32Array& values, Tint32Array& companion);
    static void quickSortInPlace(TdoubleArray& values, Tint32Array& companion);
    // Index of `value` in an ascending array, or -1.
    static int binarySearch(const Tint32Array& sorted, std::int32_t value);
    static int findValueIndexInSortedArray(const Tint32Array& sorted, std::int32_t value) {
        return binarySearch(sorted, value);
    }
    // With ids sorted ascending and `indexOfSorted` their particle indices:
    // the particle index of `id`, in `index`; false when the id is not there.
    static bool findMappedIndexFromValue(const Tint32Array& sortedIds, const Tint32Array& indexOfSorted,
                                         std::int32_t id, int& index);

    // ---- time ----

    // The time `t` falls to on the grid of sub-frame steps.
    static TanimTime nextFrameBoundary(TanimTime t, int oversample);

    // ---- run-up ----

    // A run-up is under way (it never nests); time changes ask for a run-up check;
    // frames are being rendered.
    static bool fIsInRunup;
    static bool fCheckForRunup;
    static bool fIsRendering;
    // Steps per frame of the active globals (1 without any).
    static int activeGlobalsOverSampling();
    // The option variables "dynPrefRunUpToCurrentTime" and "dynPrefRunupFrom".
    static bool runupToCurrentTimeIsOn();
    static bool runupFromStartTime();
    // The earliest start of the simulated objects, and the last time they were evaluated.
    static TanimTime earliestStartTime();
    static TanimTime lastEvaluatedTime(int oversample);
    // Plays the simulations up to `t` frame by frame (sub-step by sub-step).
    static bool runupSceneTo(TanimTime t, int oversample, bool interruptible);
    static bool runupSceneFromPreviousTo(TanimTime t, int oversample, bool interruptible);
    static bool runupSceneFromTo(TanimTime from, TanimTime to, int oversample, bool interruptible,
                                 bool useCache);
    static bool gotoRunupFrame(TanimTime t);
    // True when every simulated object holds the state a run-up ended with at `t`.
    static bool isSceneCached(TanimTime t);
    // Every particle object keeps its present state as the state at `t`.
    static bool cacheState(TanimTime t);
    // After a time change: replays the frames a jump skipped, when the preference asks for it.
    static void delayedTimeChangeRunup(TdependNode* particleShape);
    // Simulated nodes that run-up steps.
    static std::vector<TdependNode*> particleNodes();
};

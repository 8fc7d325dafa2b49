#pragma once
// Lattice noise as a force: each point is pushed by the noise at its place
// relative to the source, shifted by the phase and scaled by the frequency.

#include "Commands/Fields/TdynField.h"

#include <cstdint>

class TdnVSTdynTurbulence : public TdnVSTdynField {
public:
    TdnVSTdynTurbulence();
    void appendAttributes(TattributeList& list) override;
    TattributeDouble frequency;
    TattributeDouble phaseX, phaseY, phaseZ;
    TattributeInt32 noiseLevel;
    TattributeDouble noiseRatio;
    TattributeEnum interpolationType;
};

class TdynTurbulence : public TdynField {
    TDECLARE_NODE(TdynTurbulence, TdnVSTdynTurbulence)
public:
    static TdnVSTdynTurbulence* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    const char* baseObjectName() const override { return "turbulenceField#"; }

    // The lattice: a value in [-1, 1] per node and component (0 x, 1 y, 2 z), from 32-bit wrapping hashes.
    static double latticeValue(std::int32_t ix, std::int32_t iy, std::int32_t iz, int component);
    // Trilinear blend of the cell's eight nodes.
    static T4dDblVector noiseLinear(const T4dDblVector& q);
    // Parabolas through three nodes per axis: continuous across cells, its slope is not.
    static T4dDblVector noiseQuadratic(const T4dDblVector& q);
    // `octaves` doublings of the frequency at `ratio` times the amplitude each, plus the base octave.
    static T4dDblVector fractalNoise(T4dDblVector q, int octaves, double ratio, int interpolation);

    static Tattribute* saFrequency() { return &sVsData()->frequency; }
    static Tattribute* saNoiseLevel() { return &sVsData()->noiseLevel; }
    static Tattribute* saNoiseRatio() { return &sVsData()->noiseRatio; }
    static Tattribute* saInterpolationType() { return &sVsData()->interpolationType; }
};

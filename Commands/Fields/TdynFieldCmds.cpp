// One command per standard field: its node type, its own flags and the
// defaults it creates with.

#include "Commands/Fields/TdynField.h"
#include "Commands/Fields/TdynStandardFieldCmd.h"

#include "Host/Graph/TdnTime.h"

namespace {
using F = TdynFieldFlag;

const bool kMessages = [] {
    TmessageTable::set(4805, "the setup flags -windSetup, -fanSetup and -wakeSetup cannot be queried");
    return true;
}();

const F kDirX{"dx", "directionX", F::kDouble, {"directionX"}};
const F kDirY{"dy", "directionY", F::kDouble, {"directionY"}};
const F kDirZ{"dz", "directionZ", F::kDouble, {"directionZ"}};

// The three common settings every creation table gives.
TdynStandardFieldCmd::Values base(double magnitude, double attenuation, double maxDistance) {
    return {{"magnitude", magnitude}, {"attenuation", attenuation}, {"maxDistance", maxDistance}};
}
} // namespace

class TdynAirCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "airField"; }
    const char* baseName() const override { return "airField"; }
    std::vector<F> ownFlags() const override {
        return {kDirX,
                kDirY,
                kDirZ,
                {"spd", "speed", F::kDouble, {"speed"}, 0, 1},
                {"iv", "inheritVelocity", F::kDouble, {"inheritVelocity"}, 0, 1},
                {"vco", "velocityComponentOnly", F::kBool, {"componentOnly"}},
                {"sp", "spread", F::kDouble, {"spread"}},
                {"es", "enableSpread", F::kBool, {"enableSpread"}},
                {"iro", "inheritRotation", F::kBool, {"inheritRotation"}}};
    }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(4, 1, 20);
        for (auto p : std::initializer_list<std::pair<const char*, double>>{{"directionX", 1},
                                                                            {"directionY", 0},
                                                                            {"directionZ", 0},
                                                                            {"speed", 1},
                                                                            {"inheritVelocity", 1},
                                                                            {"spread", 1}})
            set(v, p.first, p.second);
        return v;
    }
    void addExtraFlags(Tsyntax& s) const override {
        s.addFlag("wns", "windSetup");
        s.addFlag("fs", "fanSetup");
        s.addFlag("wks", "wakeSetup");
    }
    // Presets come first, so an explicit flag after them wins.
    bool applyPresets(const TargDatabase& db, Values& v) override {
        if (isFlagSet(db, "wns", "windSetup")) {
            set(v, "inheritVelocity", 0);
            set(v, "inheritRotation", 1);
            set(v, "componentOnly", 0);
            set(v, "enableSpread", 0);
        }
        if (isFlagSet(db, "fs", "fanSetup")) {
            set(v, "inheritVelocity", 1);
            set(v, "inheritRotation", 1);
            set(v, "componentOnly", 0);
            set(v, "enableSpread", 1);
            set(v, "spread", 0.5);
        }
        if (isFlagSet(db, "wks", "wakeSetup")) {
            set(v, "inheritVelocity", 1);
            set(v, "inheritRotation", 0);
            set(v, "componentOnly", 1);
            set(v, "enableSpread", 0);
            set(v, "speed", 0);
        }
        return true;
    }
    bool queryExtra(const TargDatabase& db, TdynField*, bool& ok) override {
        ok = true;
        if (!isFlagSet(db, "wns", "windSetup") && !isFlagSet(db, "fs", "fanSetup") &&
            !isFlagSet(db, "wks", "wakeSetup"))
            return false;
        engine().displayWarning(TmessageTable::text(4805));
        ok = false;
        throw TfailedException(-1);
    }
};

class TdynDragCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "dragField"; }
    const char* baseName() const override { return "dragField"; }
    std::vector<F> ownFlags() const override {
        return {{"ud", "useDirection", F::kBool, {"useDirection"}}, kDirX, kDirY, kDirZ};
    }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(5, 0, -1);
        set(v, "directionX", 1);
        return v;
    }
};

class TdynGravityCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "gravityField"; }
    const char* baseName() const override { return "gravityField"; }
    std::vector<F> ownFlags() const override { return {kDirX, kDirY, kDirZ}; }
    Values creationDefaults(const TargDatabase& db) const override {
        Values v = base(9.8, 0, -1);
        // Components not given are zero; with none given at all, gravity points down.
        const bool any = isFlagSet(db, "dx", "directionX") || isFlagSet(db, "dy", "directionY") ||
                         isFlagSet(db, "dz", "directionZ");
        set(v, "directionX", 0);
        set(v, "directionY", any ? 0 : -1);
        set(v, "directionZ", 0);
        return v;
    }
};

class TdynNewtonCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "newtonField"; }
    const char* baseName() const override { return "newtonField"; }
    std::vector<F> ownFlags() const override { return {{"mnd", "minDistance", F::kDouble, {"minDistance"}}}; }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(1, 0, -1);
        set(v, "minDistance", 0.2);
        return v;
    }
};

class TdynRadialCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "radialField"; }
    const char* baseName() const override { return "radialField"; }
    std::vector<F> ownFlags() const override { return {{"typ", "type", F::kDouble, {"radialType"}}}; }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(5, 1, 20);
        set(v, "radialType", 0);
        return v;
    }
};

class TdynTurbulenceCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "turbulenceField"; }
    const char* baseName() const override { return "turbulenceField"; }
    std::vector<F> ownFlags() const override {
        return {{"fq", "frequency", F::kDouble, {"frequency"}},
                {"ph", "phase", F::kAllThree, {"phaseX", "phaseY", "phaseZ"}},
                {"px", "phaseX", F::kDouble, {"phaseX"}},
                {"py", "phaseY", F::kDouble, {"phaseY"}},
                {"pz", "phaseZ", F::kDouble, {"phaseZ"}},
                {"nsl", "noiseLevel", F::kInt, {"noiseLevel"}, 0},
                {"nsr", "noiseRatio", F::kDouble, {"noiseRatio"}}};
    }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(5, 0, -1);
        for (const char* a : {"phaseX", "phaseY", "phaseZ"})
            set(v, a, 0);
        set(v, "frequency", 1);
        return v;
    }
};

class TdynUniformCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "uniformField"; }
    const char* baseName() const override { return "uniformField"; }
    std::vector<F> ownFlags() const override { return {kDirX, kDirY, kDirZ}; }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(5, 0, -1);
        set(v, "directionX", 1);
        return v;
    }
};

class TdynVolumeAxisCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "volumeAxisField"; }
    const char* baseName() const override { return "volumeAxisField"; }
    std::vector<F> ownFlags() const override {
        return {{"afc", "awayFromCenter", F::kDouble, {"awayFromCenter"}},
                {"afx", "awayFromAxis", F::kDouble, {"awayFromAxis"}},
                {"alx", "alongAxis", F::kDouble, {"alongAxis"}},
                {"arx", "aroundAxis", F::kDouble, {"aroundAxis"}},
                {"drs", "directionalSpeed", F::kDouble, {"directionalSpeed"}},
                {"ia", "invertAttenuation", F::kBool, {"invertAttenuation"}},
                kDirX,
                kDirY,
                kDirZ,
                {"trb", "turbulence", F::kDouble, {"turbulence"}},
                {"trs", "turbulenceSpeed", F::kDouble, {"turbulenceSpeed"}},
                {"tfx", "turbulenceFrequencyX", F::kDouble, {"turbulenceFrequencyX"}},
                {"tfy", "turbulenceFrequencyY", F::kDouble, {"turbulenceFrequencyY"}},
                {"tfz", "turbulenceFrequencyZ", F::kDouble, {"turbulenceFrequencyZ"}},
                {"tox", "turbulenceOffsetX", F::kDouble, {"turbulenceOffsetX"}},
                {"toy", "turbulenceOffsetY", F::kDouble, {"turbulenceOffsetY"}},
                {"toz", "turbulenceOffsetZ", F::kDouble, {"turbulenceOffsetZ"}},
                {"dtr", "detailTurbulence", F::kDouble, {"detailTurbulence"}}};
    }
    Values creationDefaults(const TargDatabase&) const override { return base(1, 0, -1); }
    // The noise moves with the scene's time.
    void fieldMade(TdynField* f) override {
        TdependGraph& g = TdependGraph::current();
        if (Tattribute* t = f->attribute("time"); t && Tplug(f, t).source().isNull())
            g.connect(g.timeNode()->outTimePlug(), Tplug(f, t));
    }
};

class TdynVortexCmd : public TdynStandardFieldCmd {
protected:
    const char* fieldTypeName() const override { return "vortexField"; }
    const char* baseName() const override { return "vortexField"; }
    std::vector<F> ownFlags() const override {
        return {{"ax", "axisX", F::kDouble, {"axisX"}},
                {"ay", "axisY", F::kDouble, {"axisY"}},
                {"az", "axisZ", F::kDouble, {"axisZ"}}};
    }
    Values creationDefaults(const TargDatabase&) const override {
        Values v = base(1, 0, -1);
        set(v, "axisX", 0);
        set(v, "axisY", 1);
        set(v, "axisZ", 0);
        return v;
    }
};

MOTILANE_REGISTER_COMMAND("air", TdynAirCmd);
MOTILANE_REGISTER_COMMAND("drag", TdynDragCmd);
MOTILANE_REGISTER_COMMAND("gravity", TdynGravityCmd);
MOTILANE_REGISTER_COMMAND("newton", TdynNewtonCmd);
MOTILANE_REGISTER_COMMAND("radial", TdynRadialCmd);
MOTILANE_REGISTER_COMMAND("turbulence", TdynTurbulenceCmd);
MOTILANE_REGISTER_COMMAND("uniform", TdynUniformCmd);
MOTILANE_REGISTER_COMMAND("volumeAxis", TdynVolumeAxisCmd);
MOTILANE_REGISTER_COMMAND("vortex", TdynVortexCmd);

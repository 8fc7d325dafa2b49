// The field pipeline: output elements per client through the graph, chained
// inputs, the query path's failures, source points from owners, and volumes.

#include "Commands/Fields/TdynAir.h"
#include "Commands/Fields/TdynGravity.h"
#include "Commands/Fields/TdynRadial.h"
#include "Commands/Fields/TdynUniform.h"
#include "Commands/Fields/TdynVortex.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Graph/TdependGraph.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

class FieldFrameworkTest : public DynGraphTest {
protected:
    TdynUniform* uniform(const T4dDblVector& dir = {0, 1, 0}, double mag = 2) {
        auto* f = TdynUniform::cast(graph.createNode("uniformField"));
        for (int k = 0; k < 3; ++k)
            f->setNumber(TdynUniform::saDirection()->children()[k], dir[k]);
        f->setMagnitude(mag);
        return f;
    }
    // A client's element as a particle object would hand it over.
    static void feed(TdynField* f, int element, T4dDblVectorArray p, T4dDblVectorArray v, TdoubleArray m,
                     double dt = 1.0 / 24) {
        auto* vs = f->fieldVs();
        putCached(f, &vs->inputPositions, makeData<TdataVectorArray>(std::move(p)), element);
        putCached(f, &vs->inputVelocities, makeData<TdataVectorArray>(std::move(v)), element);
        putCached(f, &vs->inputMass, makeData<TdataDoubleArray>(std::move(m)), element);
        putCached(f, &vs->deltaTime, TanimTime(dt, kSeconds), element);
    }
    static const T4dDblVectorArray* output(TdynField* f, int element, Tdata& keep) {
        if (!f->getAttributeValue(&f->fieldVs()->outputForce, keep, element)) return nullptr;
        auto* l = keep.as<TdataVectorArray>();
        return l ? &l->array() : nullptr;
    }
    TmeshShape* meshWith(const std::vector<T4dDblVector>& points) {
        auto* m = TmeshShape::cast(graph.createNode("mesh"));
        TpolyMesh poly;
        for (const T4dDblVector& p : points)
            poly.addPoint(p);
        m->setMesh(poly);
        return m;
    }
};

TEST_F(FieldFrameworkTest, EachClientElementGetsItsOwnOutput) {
    TdynUniform* f = uniform();
    feed(f, 0, {{0, 0, 0}, {1, 1, 1}}, {{}, {}}, {1, 1});
    feed(f, 3, {{5, 0, 0}}, {{}}, {1});
    Tdata a, b, c;
    const T4dDblVectorArray* out0 = output(f, 0, a);
    const T4dDblVectorArray* out3 = output(f, 3, b);
    ASSERT_TRUE(out0 && out3);
    ASSERT_EQ(out0->length(), 2u);
    ASSERT_EQ(out3->length(), 1u);
    EXPECT_EQ((*out0)[1], (T4dDblVector{0, 2, 0}));
    EXPECT_EQ((*out3)[0], (T4dDblVector{0, 2, 0}));
    // No input element 1: no output for it.
    EXPECT_EQ(output(f, 1, c), nullptr);
}

TEST_F(FieldFrameworkTest, BadInputLeavesTheOldOutputAndZeroPointsGiveAnEmptyOne) {
    TdynUniform* f = uniform();
    feed(f, 0, {{0, 0, 0}}, {{}}, {1});
    Tdata a;
    ASSERT_NE(output(f, 0, a), nullptr);
    // Unequal lengths: the earlier result stands.
    feed(f, 0, {{0, 0, 0}, {1, 0, 0}}, {{}}, {1, 1});
    Tdata b;
    const T4dDblVectorArray* kept = output(f, 0, b);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->length(), 1u);
    feed(f, 0, {}, {}, {});
    Tdata c;
    const T4dDblVectorArray* empty = output(f, 0, c);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->length(), 0u);
}

TEST_F(FieldFrameworkTest, TwoChainedFieldsAddAndAShortChainCountsAsZero) {
    TdynUniform* first = uniform({1, 0, 0}, 1);
    TdynUniform* second = uniform({0, 0, 1}, 3);
    feed(first, 0, {{0, 0, 0}}, {{}}, {1});
    feed(second, 0, {{0, 0, 0}, {2, 0, 0}}, {{}, {}}, {1, 1});
    graph.connect(Tplug(first, &first->fieldVs()->outputForce, 0),
                  Tplug(second, &second->fieldVs()->inputForce, 0));
    Tdata keep;
    const T4dDblVectorArray* out = output(second, 0, keep);
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(out->length(), 2u);
    EXPECT_EQ((*out)[0], (T4dDblVector{1, 0, 3}));
    // The first field saw one point: the second point starts from zero.
    EXPECT_EQ((*out)[1], (T4dDblVector{0, 0, 3}));
}

TEST_F(FieldFrameworkTest, QueryPathRefusesBadLengthsAndReplacesAForceArrayOfTheWrongLength) {
    TdynUniform* f = uniform();
    T4dDblVectorArray out;
    EXPECT_EQ(f->getForceAtPoint({}, {}, {}, out, 0.1), -1);
    EXPECT_EQ(f->getForceAtPoint({{0, 0, 0}, {1, 0, 0}}, {{0, 0, 0}}, {}, out, 0.1), -1);
    // Right length: added to.
    out = T4dDblVectorArray{{1, 1, 1}, {2, 2, 2}};
    EXPECT_EQ(f->getForceAtPoint({{0, 0, 0}, {1, 0, 0}}, {}, {}, out, 0.1), 0);
    EXPECT_EQ(out[0], (T4dDblVector{1, 3, 1}));
    EXPECT_EQ(out[1], (T4dDblVector{2, 4, 2}));
    // Wrong length: replaced.
    out = T4dDblVectorArray{{7, 7, 7}};
    EXPECT_EQ(f->getForceAtPoint({{0, 0, 0}, {1, 0, 0}}, {}, {}, out, 0.1), 0);
    ASSERT_EQ(out.length(), 2u);
    EXPECT_EQ(out[0], (T4dDblVector{0, 2, 0}));
    EXPECT_DOUBLE_EQ(f->apiDeltaTime(), 0.1);

    TdynPointReceptor r;
    EXPECT_TRUE(TdynField::sForceFunction(&r, nullptr));
    EXPECT_TRUE(TdynField::sForceFunction(nullptr, f));
}

TEST_F(FieldFrameworkTest, OwnersActFromEveryPointOrFromTheirCentroid) {
    TmeshShape* mesh = meshWith({{0, 0, 0}, {2, 0, 0}, {4, 0, 0}});
    TdynUniform* f = uniform();
    std::string why;
    ASSERT_TRUE(f->setOwner(mesh, why)) << why;
    EXPECT_EQ(f->ownerShape(), mesh);
    EXPECT_TRUE(TdynField::isFieldOwner(mesh));
    // Per vertex: three sources, three times the push.
    f->setApplyPerVertex(true);
    T4dDblVectorArray out;
    f->getForceAtPoint({{10, 0, 0}}, {}, {}, out, 0.1);
    EXPECT_EQ(out[0], (T4dDblVector{0, 6, 0}));
    // With a reach of 7 only the sources at 4 and (squared) within 7 of x = 10 count: 4 only.
    f->setUseMaxDistance(true);
    f->setMaxDistance(7);
    out.clear();
    f->getForceAtPoint({{10, 0, 0}}, {}, {}, out, 0.1);
    EXPECT_EQ(out[0], (T4dDblVector{0, 2, 0}));

    // From the centroid (2, 0, 0): a radial field pushes along p - centroid.
    auto* radial = TdynRadial::cast(graph.createNode("radialField"));
    radial->setMagnitude(1);
    ASSERT_TRUE(radial->setOwner(mesh, why));
    out.clear();
    radial->getForceAtPoint({{2, 5, 0}}, {}, {}, out, 0.1);
    EXPECT_EQ(out[0], (T4dDblVector{0, 5, 0}));

    // An owner with no points and per-vertex on: no sources, no force.
    TmeshShape* empty = meshWith({});
    TdynUniform* g = uniform();
    ASSERT_TRUE(g->setOwner(empty, why));
    g->setApplyPerVertex(true);
    out.clear();
    g->getForceAtPoint({{0, 0, 0}}, {}, {}, out, 0.1);
    EXPECT_EQ(out[0], T4dDblVector());

    // Only shapes can own a field.
    EXPECT_FALSE(g->setOwner(g, why));
    EXPECT_NE(why.find("cannot own"), std::string::npos);
}

TEST_F(FieldFrameworkTest, VolumesGateThePointsWithExclusionAndOffset) {
    auto* f = TdynGravity::cast(graph.createNode("gravityField"));
    for (int k = 0; k < 3; ++k)
        f->setNumber(TdynGravity::saDirection()->children()[k], k == 1 ? -1 : 0);
    const T4dDblVectorArray pts{{0.5, 0, 0}, {3, 0, 0}};
    auto run = [&] {
        T4dDblVectorArray out;
        f->getForceAtPoint(pts, {}, {}, out, 0.1);
        return std::pair<double, double>{out[0].y, out[1].y};
    };
    // Shape 0 with exclusion on: no test, every point.
    f->setNumber(TdynField::saVolumeExclusion(), 1);
    EXPECT_EQ(run(), (std::pair<double, double>{-1, -1}));
    f->setVolumeShape(2);
    EXPECT_EQ(run(), (std::pair<double, double>{0, -1}));
    f->setNumber(TdynField::saVolumeExclusion(), 0);
    EXPECT_EQ(run(), (std::pair<double, double>{-1, 0}));
    // The offset moves the sphere in the field's own space, which is scaled by 2 here: centre at x = 6.
    f->setNumber(f->attribute("scaleX"), 2);
    f->setNumber(f->attribute("scaleY"), 2);
    f->setNumber(f->attribute("scaleZ"), 2);
    f->setNumber(f->attribute("volumeOffsetX"), 1.5);
    EXPECT_EQ(run(), (std::pair<double, double>{0, -1}));
    EXPECT_TRUE(f->applyVolumeField({3, 1.9, 0}));
    EXPECT_FALSE(f->applyVolumeField({3, 2.1, 0}));
    // The box covers the moved, scaled sphere.
    const TboundingBox box = f->boundingBox();
    EXPECT_NEAR(box.max.x, 5.02, 1e-9);
    EXPECT_NEAR(box.min.y, -2.02, 1e-9);
    // A torus takes the tube radius; the primitive is kept per shape.
    f->setVolumeShape(5);
    f->setNumber(TdynField::saSectionRadius(), 0.25);
    auto* torus = dynamic_cast<TdynVolumeTorus*>(f->volumePrimitive());
    ASSERT_NE(torus, nullptr);
    EXPECT_EQ(torus->sectionRadius(), 0.25);
    // The default sweep, 6.28319 rad, is a whole turn, not the 0.0003 degrees past it.
    EXPECT_EQ(torus->sweep(), 360);
    EXPECT_TRUE(f->applyVolumeField({3, 0.2, 2})); // local (0, 0.1, 1), on the ring
    f->setNumber(TdynField::saVolumeSweep(), 3.14159265358979);
    EXPECT_NEAR(dynamic_cast<TdynVolumeTorus*>(f->volumePrimitive())->sweep(), 180, 1e-9);
}

} // namespace

namespace {

// Scene files hold these names and tags: a wrong one loses data.
using FieldNodes = DynGraphTest;

TEST_F(FieldNodes, TypesNamesShortNamesAndTagsAreThoseOfTheCatalogue) {
    struct Type {
        const char *type, *tag, *base;
    };
    for (const Type& t :
         {Type{"airField", "YAIR", "airField#"}, Type{"dragField", "YDRG", "dragField#"},
          Type{"gravityField", "YGRA", "gravityField#"}, Type{"newtonField", "YNEW", "newtonField#"},
          Type{"radialField", "YRAD", "radialField#"}, Type{"turbulenceField", "YTUR", "turbulenceField#"},
          Type{"uniformField", "YUNI", "uniformField#"}, Type{"volumeAxisField", "YVXF", "volumeAxisField#"},
          Type{"vortexField", "YVOR", "vortexField#"}}) {
        auto* f = TdynField::cast(graph.createNode(t.type));
        ASSERT_NE(f, nullptr) << t.type;
        EXPECT_EQ(f->iffTag(), makeIffTag(t.tag)) << t.type;
        EXPECT_STREQ(f->baseObjectName(), t.base);
        EXPECT_TRUE(f->isA(Ttransform::sMetaclass()));
    }
    struct Row {
        const char *type, *name, *shortName, *tag;
        double def;
    };
    const Row rows[] = {
        {"uniformField", "owner", "ow", "OWNR", 0},
        {"uniformField", "fromWhere", "fw", "FRWH", 0},
        {"uniformField", "subsetId", "sid", "SSID", -1},
        {"uniformField", "positional", "psl", "PSNL", 1},
        {"uniformField", "ownerCentroid", "ocd", "OCTD", 0},
        {"uniformField", "ownerPosData", "opd", "OPDT", 0},
        {"uniformField", "magnitude", "mag", "UMAG", 1},
        {"uniformField", "attenuation", "att", "ATTN", 0},
        {"uniformField", "maxDistance", "max", "MAXD", -1},
        {"uniformField", "applyPerVertex", "apv", "APVX", 0},
        {"uniformField", "useMaxDistance", "umd", "UMDI", 0},
        {"uniformField", "inputData", "ind", "INPD", 0},
        {"uniformField", "inputPositions", "inp", "INPP", 0},
        {"uniformField", "deltaTime", "dt", "DELT", 0},
        {"uniformField", "inputForce", "inf", "INPF", 0},
        {"uniformField", "outputForce", "of", "OUTF", 0},
        {"uniformField", "volumeShape", "vol", "VLMS", 0},
        {"uniformField", "volumeExclusion", "vex", "VLEX", 0},
        {"uniformField", "volumeOffset", "vfo", "VLFO", 0},
        {"uniformField", "sectionRadius", "tsr", "VTSR", 0.5},
        {"uniformField", "volumeSweep", "vsw", "VSWP", 6.28319},
        {"uniformField", "direction", "d", "DIRN", 0},
        {"uniformField", "inheritFactor", "inh", "UINH", 0},
        {"dragField", "useDirection", "ud", "UDIR", 0},
        {"newtonField", "minDistance", "min", "MIND", 0},
        {"newtonField", "ownerMassData", "omd", "OMSD", 0},
        {"radialField", "radialType", "typ", "TYPE", 0},
        {"vortexField", "axis", "ax", "AXIS", 0},
        {"airField", "speed", "spd", "SPED", 0},
        {"airField", "inheritVelocity", "iv", "IVEL", 0},
        {"airField", "componentOnly", "co", "CMPO", 0},
        {"airField", "enableSpread", "es", "ESPD", 0},
        {"airField", "inheritRotation", "ir", "IROT", 0},
        {"turbulenceField", "frequency", "frq", "TFRQ", 1},
        {"turbulenceField", "phaseY", "phy", "TPHS", 0},
        {"turbulenceField", "noiseLevel", "nslv", "NSLE", 0},
        {"turbulenceField", "noiseRatio", "nsrt", "NSRT", 0.707},
        {"turbulenceField", "interpolationType", "intr", "INTR", 0},
        {"volumeAxisField", "awayFromCenter", "afc", "AFCE", 1},
        {"volumeAxisField", "directionX", "dx", "DIRX", 1},
        {"volumeAxisField", "turbulenceSpeed", "trs", "TRSP", 0.2},
        {"volumeAxisField", "turbulenceFrequencyZ", "tfz", "TFRZ", 1},
        {"volumeAxisField", "displaySpeed", "dss", "DSPS", 1},
        {"volumeAxisField", "time", "tim", "STIM", 0},
    };
    for (const Row& r : rows) {
        TdependNode* n = graph.createNode(r.type);
        Tattribute* a = n->attribute(r.name);
        ASSERT_NE(a, nullptr) << r.type << "." << r.name;
        EXPECT_EQ(a->shortName(), r.shortName) << r.name;
        // Children of numeric compounds take their tag from the parent's naming; only named tags are checked.
        if (std::string(r.name) != "directionX" && std::string(r.name) != "turbulenceFrequencyZ") {
            EXPECT_EQ(a->tag(), makeIffTag(r.tag)) << r.name;
        }
        if (a->isNumeric()) {
            EXPECT_DOUBLE_EQ(a->defaultNumber(), r.def) << r.name;
        }
        EXPECT_EQ(n->attribute(r.shortName), a) << r.shortName;
    }
}

} // namespace

namespace {

TEST_F(FieldFrameworkTest, TheClientsStepReachesTheLawInSecondsAndTheMatrixFollowsTheTransform) {
    auto* v = TdynVortex::cast(graph.createNode("vortexField"));
    v->setMagnitude(100); // one radian a step
    for (int k = 0; k < 3; ++k)
        v->setNumber(TdynVortex::saAxis()->children()[k], k == 1 ? 1 : 0);
    feed(v, 2, {{1, 0, 0}}, {{}}, {1}, 0.5);
    Tdata keep;
    const T4dDblVectorArray* out = output(v, 2, keep);
    ASSERT_NE(out, nullptr);
    // (cos 1 - 1, 0, -sin 1) / 0.5: the step arrived as 0.5 s.
    EXPECT_NEAR((*out)[0].x, (std::cos(1.0) - 1) / 0.5, 1e-12);
    EXPECT_NEAR((*out)[0].z, -std::sin(1.0) / 0.5, 1e-12);
    EXPECT_NEAR(v->deltaTime(2), 0.5, 1e-12);

    v->setNumber(v->attribute("translateX"), 4);
    Tdata m;
    ASSERT_TRUE(v->getAttributeValue(v->attribute("matrix"), m));
    ASSERT_NE(m.as<TdataMatrix>(), nullptr);
    EXPECT_EQ(m.as<TdataMatrix>()->matrix().getTranslation(), (T4dDblVector{4, 0, 0}));
}

TEST_F(FieldFrameworkTest, AirFromEveryOwnerPointTakesTheSumsDirectionAtTheStrongestStrength) {
    TmeshShape* mesh = meshWith({{0, 0, 0}, {0, 2, 0}});
    auto* air = TdynAir::cast(graph.createNode("airField"));
    std::string why;
    ASSERT_TRUE(air->setOwner(mesh, why)) << why;
    air->setMagnitude(0);
    air->setApplyPerVertex(true);
    air->setNumber(&TdynAir::saVs()->speed, 1);
    air->setNumber(&TdynAir::saVs()->inheritVelocity, 1);
    // Without owner velocities the law cannot run.
    T4dDblVectorArray out;
    air->getForceAtPoint({{5, 0, 0}}, {}, {}, out, 0.1);
    EXPECT_EQ(out[0], T4dDblVector());
    // The owner points move at (3,0,0) and (0,4,0): winds of length 3 and 4.
    TstandaloneValue vel(&air->auxVs()->ownerVelData);
    vel.handle().set(makeData<TdataVectorArray>(T4dDblVectorArray{{3, 0, 0}, {0, 4, 0}}));
    air->setCachedValue(Tplug(air, &air->auxVs()->ownerVelData), vel.handle(), TdgContext::fsNormal);
    out.clear();
    air->getForceAtPoint({{5, 0, 0}}, {}, {}, out, 0.1);
    // Sum (3,4,0) normalised, at the strength of the stronger, 4.
    EXPECT_NEAR(out[0].x, 0.6 * 4, 1e-12);
    EXPECT_NEAR(out[0].y, 0.8 * 4, 1e-12);
}

} // namespace

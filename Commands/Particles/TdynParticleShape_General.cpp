// Per-particle data from outside the step: typed array access, defaults,
// single-particle reads and writes, and the object's random numbers.

#include "Commands/Particles/TdynParticleShape.h"

#include "Host/Command/TcommandEngine.h"
#include "Host/Data/TdataGeometry.h"

#include <cfloat>
#include <cmath>
#include <cstdlib>

namespace {
constexpr double kNeverDies = 3.4028234663852886e+38;

bool isVectorArrayAttr(const Tattribute* a) {
    return a && a->type() == TattrType::Typed && !a->letterClasses().empty() &&
           a->letterClasses().front() == &TdataVectorArray::sClass;
}
bool isDoubleArrayAttr(const Tattribute* a) {
    return a && a->type() == TattrType::Typed && !a->letterClasses().empty() &&
           a->letterClasses().front() == &TdataDoubleArray::sClass;
}
// A scalar attribute's value on the node, if there is one of that name.
bool scalarOf(TdependNode& node, const char* name, double& value) {
    Tattribute* a = node.attribute(name);
    if (!a || !a->isNumeric() || a->isArray()) return false;
    node.getAttributeValue(a, value);
    return true;
}
} // namespace

T4dDblVectorArray* TdynParticleShape::vectorArrayValue(const Tattribute* attr) {
    return TdynStatic::dataVectorArray(normalBlock().inputValue(attr).data());
}
TdoubleArray* TdynParticleShape::doubleArrayValue(const Tattribute* attr) {
    return TdynStatic::dataDoubleArray(normalBlock().inputValue(attr).data());
}
T4dDblVectorArray* TdynParticleShape::vectorArrayReference(const Tattribute* attr) {
    return TdynStatic::dataVectorArray(normalBlock().outputValue(attr).data());
}
TdoubleArray* TdynParticleShape::doubleArrayReference(const Tattribute* attr) {
    return TdynStatic::dataDoubleArray(normalBlock().outputValue(attr).data());
}

unsigned TdynParticleShape::countNoCompute() {
    T4dDblVectorArray* p = vectorArrayReference(sVsData()->position);
    return p ? p->length() : 0;
}

unsigned TdynParticleShape::initialCount() {
    T4dDblVectorArray* p = vectorArrayReference(sVsData()->position0);
    return p ? p->length() : 0;
}

double TdynParticleShape::startTimeSeconds() {
    return normalBlock().inputValue(sVsData()->startTime).asTime().seconds();
}

double TdynParticleShape::defaultDoubleValue(const Tattribute* attr) {
    auto* vs = sVsData();
    std::string n = attr->name();
    if (n.size() > 1 && n.back() == '0')
        n.pop_back();
    else if (n.size() > 5 && n.compare(n.size() - 5, 5, "Cache") == 0)
        n.resize(n.size() - 5);
    double v = 0;
    if (n == "opacityPP") return scalarOf(*this, "opacity", v) ? v : 1.0;
    if (n == "lifespanPP") {
        if (TdoubleArray* f = doubleArrayReference(vs->finalLifespanPP); f && f->length() > 0)
            return f->last();
        return kNeverDies;
    }
    if (n == "goalPP") return 1.0;
    if (n == "collisionU" || n == "collisionV") return -1.0;
    if (n == "traceDepthPP") return normalBlock().inputValue(vs->traceDepth).asDouble();
    if (n == "mass" || n == "massPP" || n == "mas") return 1.0;
    if (n == "birthTime" || n == "birthTimeCache") return startTimeSeconds();
    if (n == "spriteScaleXPP") return scalarOf(*this, "spriteScaleX", v) ? v : 1.0;
    if (n == "spriteScaleYPP") return scalarOf(*this, "spriteScaleY", v) ? v : 1.0;
    if (n == "spriteTwistPP") return scalarOf(*this, "spriteTwist", v) ? v : 0.0;
    if (n == "radiusPP") return scalarOf(*this, "radius", v) ? v : 1.0;
    if (n == "emitterId") return -1.0;
    if (n == "finalLifespanPP") return kNeverDies;
    return 0.0;
}

T4dDblVector TdynParticleShape::defaultVectorValue(const Tattribute* attr) {
    std::string n = attr->name();
    if (n.size() > 1 && n.back() == '0') n.pop_back();
    if (n == "rgbPP") {
        T4dDblVector c;
        scalarOf(*this, "colorRed", c.x);
        scalarOf(*this, "colorGreen", c.y);
        scalarOf(*this, "colorBlue", c.z);
        return c;
    }
    return {};
}

void TdynParticleShape::copyParticleAttribute(const Tattribute* from, TdataBlock& blockFrom,
                                              const Tattribute* to, TdataBlock& blockTo) {
    Tdata d = blockFrom.outputValue(from).data();
    if (d.isNULL()) {
        // Keep every array a letter of its own type even when the source never had one.
        if (isVectorArrayAttr(to))
            d = makeData<TdataVectorArray>();
        else if (isDoubleArrayAttr(to))
            d = makeData<TdataDoubleArray>();
        else
            d = makeData<TdataInt32Array>();
    }
    blockTo.outputValue(to).set(d);
}

void TdynParticleShape::allocateAndFillDouble(const Tattribute* attr, unsigned n, double value,
                                              TdataBlock& block) {
    Tdata d = makeData<TdataDoubleArray>(TdoubleArray(n, value));
    block.outputValue(attr).set(d);
}

void TdynParticleShape::allocateAndFillVector(const Tattribute* attr, unsigned n, const T4dDblVector& value,
                                              TdataBlock& block) {
    Tdata d = makeData<TdataVectorArray>(T4dDblVectorArray(n, value));
    block.outputValue(attr).set(d);
}

void TdynParticleShape::clampParticleAttribute(const Tattribute* attr, unsigned n, TdataBlock& block) {
    TdataHandle h = block.outputValue(attr);
    Tdata d = h.data();
    if (auto* v = d.as<TdataVectorArray>()) {
        if (v->length() == n) return;
        const T4dDblVector def = defaultVectorValue(attr);
        d.makeWriter();
        T4dDblVectorArray& a = d.as<TdataVectorArray>()->array();
        unsigned old = a.length();
        a.changeLogicalSizeTo(n);
        for (unsigned i = old; i < n; ++i)
            a[i] = def;
    } else if (auto* s = d.as<TdataDoubleArray>()) {
        if (s->length() == n) return;
        const double def = defaultDoubleValue(attr);
        d.makeWriter();
        TdoubleArray& a = d.as<TdataDoubleArray>()->array();
        unsigned old = a.length();
        a.changeLogicalSizeTo(n);
        for (unsigned i = old; i < n; ++i)
            a[i] = def;
    } else if (auto* k = d.as<TdataInt32Array>()) {
        if (k->length() == n) return;
        d.makeWriter();
        d.as<TdataInt32Array>()->array().changeLogicalSizeTo(n);
    } else {
        return;
    }
    h.set(d);
}

void TdynParticleShape::shiftDoubleAttributeValues(const Tattribute* attr, double amount) {
    TdataHandle h = normalBlock().outputValue(attr);
    Tdata d = std::move(h.data());
    if (d.as<TdataDoubleArray>()) {
        d.makeWriter();
        for (double& x : d.as<TdataDoubleArray>()->array())
            x += amount;
    }
    normalBlock().outputValue(attr).set(d);
}

void TdynParticleShape::shiftVectorAttributeValues(const Tattribute* attr, const T4dDblVector& amount) {
    TdataHandle h = normalBlock().outputValue(attr);
    Tdata d = std::move(h.data());
    if (d.as<TdataVectorArray>()) {
        d.makeWriter();
        for (T4dDblVector& x : d.as<TdataVectorArray>()->array())
            x += amount;
    }
    normalBlock().outputValue(attr).set(d);
}

void TdynParticleShape::allocateMassAttribute(TdataBlock& block) {
    auto* vs = sVsData();
    const unsigned n = initialCount();
    TdoubleArray* m0 = doubleArrayReference(vs->mass0);
    if (!m0 || m0->length() != n) clampParticleAttribute(vs->mass0, n, block);
    TdoubleArray* m = doubleArrayReference(vs->mass);
    if ((!m || m->length() != n) && !hasNonExprInputConnection(vs->mass))
        clampParticleAttribute(vs->mass, n, block);
}

void TdynParticleShape::allocateBirthTimeAttribute(TdataBlock& block) {
    auto* vs = sVsData();
    const unsigned n = initialCount();
    TdoubleArray* b0 = doubleArrayReference(vs->birthTime0);
    if (!b0 || b0->length() != n) clampParticleAttribute(vs->birthTime0, n, block);
    TdoubleArray* b = doubleArrayReference(vs->birthTime);
    if (!b || b->length() != n) clampParticleAttribute(vs->birthTime, n, block);
}

bool TdynParticleShape::addFromDagObject(TdagObject* object) {
    if (!object) return false;
    T4dDblVectorArray points;
    for (TdagObject* s : TdynStatic::getShapes(object)) {
        Tdata g;
        if (auto* mesh = TmeshShape::cast(s))
            mesh->getAttributeValue(&static_cast<TdnVSTmeshShape*>(mesh->vsData())->worldMesh, g);
        else if (auto* curve = TcurveShape::cast(s))
            curve->getAttributeValue(&TcurveShape::sVsData()->worldSpace, g);
        if (auto* geo = g.as<TdataGeometry>())
            for (TgeometryIterator it = geo->iterator(); !it.isDone(); it.next())
                points.addLast(it.point());
    }
    if (points.length() == 0) return false;
    // World points into this object's space.
    TdynStatic::transformVectorArrayByMatrix(points, worldMatrix().inverse(), true);
    addParticles(points);
    return true;
}

Tattribute* TdynParticleShape::perParticleAttribute(const Tstring& name) const {
    Tattribute* a = attribute(name);
    if (!a || a->type() != TattrType::Typed || a->isArray() || a->letterClasses().empty()) return nullptr;
    const TletterClass* c = a->letterClasses().front();
    if (c != &TdataVectorArray::sClass && c != &TdataDoubleArray::sClass && c != &TdataInt32Array::sClass)
        return nullptr;
    return a;
}

namespace {
bool fail(Tstring* why, Tstring text) {
    if (why) *why = std::move(text);
    return false;
}
} // namespace

bool TdynParticleShape::getAttribute(const Tstring& name, unsigned index, double& value, Tstring* why) {
    Tattribute* a = perParticleAttribute(name);
    if (!a) return fail(why, "'" + name + "' is not a per-particle attribute of " + this->name());
    Tdata d = normalBlock().inputValue(a).data();
    if (auto* s = d.as<TdataDoubleArray>()) {
        if (index >= s->length())
            return fail(why, "particle " + std::to_string(index) + " is out of range for " + this->name() +
                                 "." + name + " (" + std::to_string(s->length()) + " elements)");
        value = s->array()[index];
        return true;
    }
    if (auto* k = d.as<TdataInt32Array>()) {
        if (index >= k->length())
            return fail(why, "particle " + std::to_string(index) + " is out of range for " + this->name() +
                                 "." + name + " (" + std::to_string(k->length()) + " elements)");
        value = k->array()[index];
        return true;
    }
    return fail(why, this->name() + "." + name + " holds vectors, not numbers");
}

bool TdynParticleShape::getAttribute(const Tstring& name, unsigned index, T4dDblVector& value, Tstring* why) {
    Tattribute* a = perParticleAttribute(name);
    if (!a) return fail(why, "'" + name + "' is not a per-particle attribute of " + this->name());
    Tdata d = normalBlock().inputValue(a).data();
    auto* v = d.as<TdataVectorArray>();
    if (!v) return fail(why, this->name() + "." + name + " holds numbers, not vectors");
    if (index >= v->length())
        return fail(why, "particle " + std::to_string(index) + " is out of range for " + this->name() + "." +
                             name + " (" + std::to_string(v->length()) + " elements)");
    value = v->array()[index];
    return true;
}

bool TdynParticleShape::setAttribute(const Tstring& name, unsigned index, double value, Tstring* why) {
    Tattribute* a = perParticleAttribute(name);
    if (!a) return fail(why, "'" + name + "' is not a per-particle attribute of " + this->name());
    TdataBlock& block = normalBlock();
    TdataHandle h = block.inputValue(a);
    Tdata d = h.data();
    if (d.as<TdataVectorArray>()) return fail(why, this->name() + "." + name + " holds vectors, not numbers");
    unsigned len = 0;
    if (auto* s = d.as<TdataDoubleArray>())
        len = s->length();
    else if (auto* k = d.as<TdataInt32Array>())
        len = k->length();
    if (index >= len)
        return fail(why, "particle " + std::to_string(index) + " is out of range for " + this->name() + "." +
                             name + " (" + std::to_string(len) + " elements)");
    d.makeWriter();
    if (auto* s = d.as<TdataDoubleArray>())
        s->array()[index] = value;
    else
        d.as<TdataInt32Array>()->array()[index] = static_cast<std::int32_t>(value);
    h.set(d);
    if (TdependGraph::hasCurrent()) TdependGraph::current().dirtyDependents(Tplug(this, a));
    return true;
}

bool TdynParticleShape::setAttribute(const Tstring& name, unsigned index, const T4dDblVector& value,
                                     Tstring* why) {
    Tattribute* a = perParticleAttribute(name);
    if (!a) return fail(why, "'" + name + "' is not a per-particle attribute of " + this->name());
    TdataBlock& block = normalBlock();
    TdataHandle h = block.inputValue(a);
    Tdata d = h.data();
    auto* v = d.as<TdataVectorArray>();
    if (!v) return fail(why, this->name() + "." + name + " holds numbers, not vectors");
    if (index >= v->length())
        return fail(why, "particle " + std::to_string(index) + " is out of range for " + this->name() + "." +
                             name + " (" + std::to_string(v->length()) + " elements)");
    d.makeWriter();
    d.as<TdataVectorArray>()->array()[index] = value;
    h.set(d);
    if (TdependGraph::hasCurrent()) TdependGraph::current().dirtyDependents(Tplug(this, a));
    followEditAtStart(a);
    return true;
}

// ---- random numbers ----

double TdynParticleShape::drawFrom(Tattribute3Int32* state, TdataBlock& block) {
    const auto& kids = state->children();
    unsigned short xsubi[3];
    for (int i = 0; i < 3; ++i)
        xsubi[i] = static_cast<unsigned short>(block.inputValue(kids[i]).asInt() & 0xffff);
    const double r = erand48(xsubi);
    for (int i = 0; i < 3; ++i) {
        TdataHandle h = block.outputValue(kids[i]);
        h.set(static_cast<std::int32_t>(xsubi[i]));
        h.setClean();
    }
    return r;
}

double TdynParticleShape::randgen(TdataBlock& block) {
    return drawFrom(sVsData()->randState, block);
}
double TdynParticleShape::eventRandgen(TdataBlock& block) {
    return drawFrom(sVsData()->eventRandState, block);
}

namespace dynRandgen {
namespace {
unsigned short gState[3] = {0x330e, 0, 0};
bool gHaveSpare = false;
double gSpare = 0;
} // namespace

void seed(long value) {
    gState[0] = 0x330e;
    gState[1] = static_cast<unsigned short>(value & 0xffff);
    gState[2] = static_cast<unsigned short>((value >> 16) & 0xffff);
    gHaveSpare = false;
}

double uniform(double low, double high) {
    return low + (high - low) * erand48(gState);
}

double gaussian() {
    if (gHaveSpare) {
        gHaveSpare = false;
        return gSpare;
    }
    double u = 0, v = 0, s = 0;
    do {
        u = 2.0 * erand48(gState) - 1.0;
        v = 2.0 * erand48(gState) - 1.0;
        s = u * u + v * v;
    } while (s >= 1.0 || s == 0.0);
    const double f = std::sqrt(-2.0 * std::log(s) / s);
    gSpare = v * f;
    gHaveSpare = true;
    return u * f;
}

T4dDblVector gaussianVector() {
    const double x = gaussian();
    const double y = gaussian();
    return {x, y, gaussian()};
}

double smoothStep(double lower, double upper, double v) {
    if (upper == lower) return 0.0;
    if (v < lower) return 0.0;
    if (v >= upper) return 1.0;
    const double x = (v - lower) / (upper - lower);
    return -2.0 * x * x * x + 3.0 * x * x;
}
} // namespace dynRandgen

// Events: what a particle object makes of its collision records after the
// response (counting hits, splitting, emitting into a target, dying, and the
// user's procedure), and the event table's bookkeeping.

#include "Commands/Particles/TdynParticleShape.h"

#include "Host/Command/TcommandEngine.h"
#include "Host/Graph/TmsgDirty.h"
#include "Host/Script/TscriptValue.h"

#include <cmath>
#include <exception>
#include <numbers>

namespace {
constexpr double kEps = 1e-10;

// Column names of the collision records; events read them by these names.
constexpr const char* kShapePointer = "shapePointer";
constexpr const char* kShapeName = "shapeName";
constexpr const char* kPosition = "position";
constexpr const char* kForce = "force";
constexpr const char* kVelocity = "velocity";
constexpr const char* kIndex = "index";
constexpr const char* kTime = "time";
constexpr const char* kNormal = "normal";
constexpr const char* kContactU = "contactU";
constexpr const char* kContactV = "contactV";

// v turned by `angle` radians about the unit `axis` (right-handed).
T4dDblVector rotateAbout(const T4dDblVector& v, T4dDblVector axis, double angle) {
    if (axis.normalizeIt() <= kEps) return v;
    const double c = std::cos(angle), s = std::sin(angle);
    return v * c + axis.cross(v) * s + axis * (axis.dot(v) * (1.0 - c));
}

bool elementBool(TdataBlock& block, const Tattribute* a, int e) {
    return block.hasElement(a, e) && block.inputValue(a, e).asBool();
}
int elementInt(TdataBlock& block, const Tattribute* a, int e) {
    return block.hasElement(a, e) ? block.inputValue(a, e).asInt() : 0;
}
double elementDouble(TdataBlock& block, const Tattribute* a, int e) {
    return block.hasElement(a, e) ? block.inputValue(a, e).asDouble() : 0.0;
}
Tstring elementString(TdataBlock& block, const Tattribute* a, int e) {
    if (!block.hasElement(a, e)) return {};
    Tdata d = block.inputValue(a, e).data();
    const auto* s = d.as<TdataString>();
    return s ? s->string() : Tstring();
}
} // namespace

void TdynParticleShape::clearCollisionRecords(TdataArrayAttrs& records) {
    // Columns are found again by name, so an existing bag keeps its letters.
    if (auto* p = records.getVoidPtrData(kShapePointer))
        p->clear();
    else
        records.addVoidPtrData(kShapePointer);
    if (auto* p = records.getStringData(kShapeName))
        p->clear();
    else
        records.addStringData(kShapeName);
    for (const char* n : {kPosition, kForce, kVelocity, kNormal})
        if (auto* p = records.getVectorData(n))
            p->clear();
        else
            records.addVectorData(n);
    if (auto* p = records.getInt32Data(kIndex))
        p->clear();
    else
        records.addInt32Data(kIndex);
    for (const char* n : {kTime, kContactU, kContactV})
        if (auto* p = records.getDoubleData(n))
            p->clear();
        else
            records.addDoubleData(n);
}

std::vector<int> TdynParticleShape::validEventIndices() {
    auto* vs = sVsData();
    TdataBlock& block = normalBlock();
    std::vector<int> out;
    for (int e : block.elementIndices(vs->eventValid))
        if (block.inputValue(vs->eventValid, e).asBool()) out.push_back(e);
    return out;
}

int TdynParticleShape::getValidEventIndex(const Tstring& name) {
    auto* vs = sVsData();
    TdataBlock& block = normalBlock();
    int highest = -1;
    for (int e : validEventIndices()) {
        if (elementString(block, vs->eventName, e) == name) return e;
        highest = std::max(highest, e);
    }
    // The first element no event uses.
    for (int e = 0; e <= highest; ++e)
        if (!elementBool(block, vs->eventValid, e)) return e;
    return highest + 1;
}

void TdynParticleShape::appendEventNames(std::vector<Tstring>& names) {
    TdataBlock& block = normalBlock();
    for (int e : validEventIndices())
        names.push_back(elementString(block, sVsData()->eventName, e));
}

TdynParticleShape* TdynParticleShape::eventTargetObject(int element) {
    const Tplug src = Tplug(this, sVsData()->eventTarget, element).source();
    return src.isNull() ? nullptr : TdynParticleShape::cast(src.node());
}

void TdynParticleShape::computeCollisionEvents(TdataBlock& block) {
    auto* vs = sVsData();
    struct Clean {
        TdataBlock& block;
        const Tattribute* attr;
        ~Clean() { block.outputValue(attr).setClean(); }
    } clean{block, vs->collisionEvents};
    // Only the step acts on the records: a stray pull must not fire the same hits twice.
    if (!block.isNormalContext() || !block.outputValue(vs->computingCount).asBool()) return;

    Tdata recordData = std::move(block.outputValue(vs->collisionRecords).data());
    struct Restore {
        TdataBlock& block;
        const Tattribute* attr;
        Tdata& data;
        ~Restore() {
            data.makeHolder();
            block.outputValue(attr).set(data);
        }
    } restore{block, vs->collisionRecords, recordData};
    if (!recordData.as<TdataArrayAttrs>()) return;
    recordData.makeWriter();
    TdataArrayAttrs& records = *recordData.as<TdataArrayAttrs>();
    TvoidPtrArray* shapePtr = records.getVoidPtrData(kShapePointer);
    TstringArray* shapeName = records.getStringData(kShapeName);
    T4dDblVectorArray* position = records.getVectorData(kPosition);
    T4dDblVectorArray* force = records.getVectorData(kForce);
    T4dDblVectorArray* velocity = records.getVectorData(kVelocity);
    Tint32Array* index = records.getInt32Data(kIndex);
    TdoubleArray* time = records.getDoubleData(kTime);
    T4dDblVectorArray* normal = records.getVectorData(kNormal);
    TdoubleArray* cu = records.getDoubleData(kContactU);
    TdoubleArray* cv = records.getDoubleData(kContactV);
    if (!shapePtr || !shapeName || !position || !force || !velocity || !index || !time || !normal || !cu ||
        !cv)
        return;
    if (index->length() == 0) return;
    Tattribute* eventAttr = attribute("event");
    if (!eventAttr) return;

    const unsigned n = countNoCompute();
    Tdata eventData = std::move(block.outputValue(eventAttr).data());
    if (!eventData.as<TdataDoubleArray>()) eventData = makeData<TdataDoubleArray>();
    eventData.makeWriter();
    TdoubleArray& hits = eventData.as<TdataDoubleArray>()->array();
    if (hits.length() != n) {
        const unsigned old = hits.length();
        hits.changeLogicalSizeTo(n);
        for (unsigned i = old; i < n; ++i)
            hits[i] = 0.0;
    }
    Tdata idData = block.outputValue(vs->particleId).data();
    Tdata ageData = block.inputValue(vs->age).data();
    Tdata massData = block.outputValue(vs->mass).data();
    const TdoubleArray* ids = TdynStatic::dataDoubleArray(idData);
    const TdoubleArray* ages = TdynStatic::dataDoubleArray(ageData);
    const TdoubleArray* masses = TdynStatic::dataDoubleArray(massData);
    std::int32_t total = block.inputValue(vs->totalEventCount).asInt();

    // The event table, read once.
    struct Event {
        int element;
        int count, emit, split;
        bool die, random;
        double spread;
        Tstring proc;
        TdynParticleShape* target;
    };
    std::vector<Event> events;
    for (int e : validEventIndices())
        events.push_back({e, elementInt(block, vs->eventCount, e), elementInt(block, vs->eventEmit, e),
                          elementInt(block, vs->eventSplit, e), elementBool(block, vs->eventDie, e),
                          elementBool(block, vs->eventRandom, e), elementDouble(block, vs->eventSpread, e),
                          elementString(block, vs->eventProc, e), eventTargetObject(e)});

    std::vector<TeventEmission> kept;
    Tint32Array dead;
    for (unsigned r = 0; r < index->length(); ++r) {
        const int p = (*index)[r];
        if (p < 0 || static_cast<unsigned>(p) >= n) continue;
        const unsigned pu = static_cast<unsigned>(p);
        ++total;
        const double c = hits[pu];
        hits[pu] = c + 1.0;
        const int id = ids && pu < ids->length() ? static_cast<int>((*ids)[pu]) : p;
        const double age = ages && pu < ages->length() ? (*ages)[pu] : 0.0;
        const double mass = masses && pu < masses->length() ? (*masses)[pu] : 1.0;
        bool died = false;
        for (const Event& ev : events) {
            // A count of k fires on exactly the k-th hit of a particle; 0 fires on every hit.
            if (ev.count != 0 && std::fabs(ev.count - (c + 1.0)) > kEps) continue;
            bool dies = false;
            TeventEmission record;
            const bool made =
                doEvent(block, ev.die, ev.split, ev.emit, ev.random, ev.spread, ev.proc, (*position)[r],
                        (*velocity)[r], (*shapeName)[r], id, age, mass, dies, record);
            if (made && ev.target) {
                record.target = ev.target;
                kept.push_back(record);
            }
            died = died || dies;
        }
        if (died) {
            dead.addLast(p);
            // Later hits of a dead particle are gone from every column.
            unsigned last = r + 1;
            while (last < index->length() && (*index)[last] == p)
                ++last;
            for (unsigned k = last; k-- > r + 1;) {
                shapePtr->remove(k);
                shapeName->remove(k);
                position->remove(k);
                force->remove(k);
                velocity->remove(k);
                index->remove(k);
                time->remove(k);
                normal->remove(k);
                cu->remove(k);
                cv->remove(k);
            }
        }
    }
    eventData.makeHolder();
    block.outputValue(eventAttr).set(eventData);
    {
        TdataHandle h = block.outputValue(vs->totalEventCount);
        h.set(total);
        h.setClean();
    }
    for (const TeventEmission& record : kept)
        collisionEmit(block, record);
    if (dead.length() > 0) {
        TdynStatic::bubbleSort(dead);
        removeDeadParticles(dead, block);
    }
}

bool TdynParticleShape::doEvent(TdataBlock& block, bool die, int split, int emit, bool random, double spread,
                                const Tstring& proc, const T4dDblVector& position,
                                const T4dDblVector& velocity, const Tstring& shape, int id, double age,
                                double mass, bool& dies, TeventEmission& record) {
    // A split always ends the particle.
    dies = die || split >= 1;
    bool made = false;
    if (emit > 0 || split > 0) {
        int n = 0;
        if (emit < 1) {
            // Split children share the parent's mass and keep its age.
            n = split;
            record.mass = mass / split;
            record.age = age;
        } else {
            n = emit;
            record.mass = mass;
            record.age = 0.0;
        }
        // However the count was set, one hit makes no more than a hit may.
        n = std::min(n, kMostBirthsPerHit);
        record.count = random ? static_cast<int>(n * eventRandgen(block) + 1.0) : n;
        record.position = position;
        record.velocity = velocity;
        record.spread = spread;
        made = true;
    }
    if (!proc.empty()) {
        // The blanks are part of the call: procedures written for it parse exactly this text.
        Tstring call = proc + "( \"" + name() + "\" , " + std::to_string(id);
        if (!shape.empty())
            call += ", \" " + shape + "\"  )";
        else
            call += ", \"\" )";
        TcommandEngine& engine = TcommandEngine::current();
        // Said where the scene stood when the step ran, and where the procedure failed inside.
        const TsourceLocation at = engine.currentLocation();
        const std::string prefix =
            at.file.empty() ? std::string() : at.file + ":" + std::to_string(at.line) + ": ";
        try {
            engine.executeScript(call);
        } catch (const TscriptError& e) {
            // The step goes on: a broken procedure must not stop the simulation.
            const bool inside = !e.where().file.empty() && e.where().file != at.file;
            engine.displayWarning(
                prefix + "event procedure '" + proc + "' of " + name() + " failed: " + e.what() +
                    (inside ? " (" + e.where().file + ":" + std::to_string(e.where().line) + ")" : ""),
                true);
        } catch (const std::exception& e) {
            engine.displayWarning(
                prefix + "event procedure '" + proc + "' of " + name() + " failed: " + e.what(), true);
        }
    }
    return made;
}

void TdynParticleShape::collisionEmit(TdataBlock& block, const TeventEmission& record) {
    TdynParticleShape* target = record.target;
    if (!target || record.count <= 0) return;
    auto* vs = sVsData();
    const unsigned count = static_cast<unsigned>(record.count);
    TdataArrayAttrs batch;
    batch.addVectorData("position") = T4dDblVectorArray(count, record.position);
    const double now = block.inputValue(vs->currentTime).asTime().seconds();
    batch.addDoubleData("birthTime") = TdoubleArray(count, now - record.age);
    batch.addDoubleData("mass") = TdoubleArray(count, record.mass);

    double f = 0.0;
    {
        TdataHandle h;
        TmsgPlugValue msg(Tplug(target, vs->inheritFactor), h, TdgContext::fsNormal);
        if (msg.send()) f = h.asDouble();
    }
    T4dDblVectorArray& v = batch.addVectorData("velocity");
    v.changeLogicalSizeTo(count);
    if (std::fabs(record.spread) > kEps) {
        const double angle = std::numbers::pi / 2 * record.spread;
        for (unsigned i = count; i-- > 0;)
            v[i] = eventSpreadVelocity(block, record.velocity, angle) * f;
    } else {
        for (unsigned i = 0; i < count; ++i)
            v[i] = record.velocity * f;
    }
    target->addRuntimeParticles(batch, true, true, false);
}

T4dDblVector TdynParticleShape::eventSpreadVelocity(TdataBlock& block, const T4dDblVector& v, double angle) {
    const double r1 = eventRandgen(block);
    const double r2 = eventRandgen(block);
    const T4dDblVector h =
        std::fabs(v.x) < kEps && std::fabs(v.z) < kEps ? T4dDblVector{0, 0, 1} : T4dDblVector{0, 1, 0};
    // Tilt off v by up to `angle`, then turn about v: uniform in angle, not in solid angle.
    T4dDblVector out = rotateAbout(v, v.cross(h), angle * r1);
    return rotateAbout(out, v, 4.0 * r2 * std::numbers::pi / 2);
}

void TdynParticleShape::computeEventTest(TdataBlock& block) {
    auto* vs = sVsData();
    const std::int32_t total = block.outputValue(vs->totalEventCount).asInt();
    const std::int32_t last = block.outputValue(vs->lastTotalEventCount).asInt();
    const bool fresh = total > last;
    if (fresh) {
        TdataHandle h = block.outputValue(vs->lastTotalEventCount);
        h.set(total);
        h.setClean();
    }
    TdataHandle h = block.outputValue(vs->eventTest);
    h.set(static_cast<std::int32_t>(fresh ? 1 : 0));
    h.setClean();
}

#include "Commands/Fields/TdynStandardFieldCmd.h"

#include "Commands/Fields/TdynField.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynStatic.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kDegreesPerRadian = 57.29577951308232;
const char* const kShapeNames[] = {"none", "cube", "sphere", "cylinder", "cone", "torus"};

const std::vector<TdynFieldFlag>& commonFlags() {
    using F = TdynFieldFlag;
    static const std::vector<TdynFieldFlag> flags = {
        {"m", "magnitude", F::kDouble, {"magnitude"}},
        {"att", "attenuation", F::kDouble, {"attenuation"}},
        {"mxd", "maxDistance", F::kDouble, {"maxDistance"}},
        {"pv", "perVertex", F::kBool, {"applyPerVertex"}},
        {"vsh", "volumeShape", F::kInt, {"volumeShape"}},
        {"vsw", "volumeSweep", F::kDouble, {"volumeSweep"}},
        {"vof", "volumeOffset", F::kTriple, {"volumeOffsetX", "volumeOffsetY", "volumeOffsetZ"}},
        {"vex", "volumeExclusion", F::kBool, {"volumeExclusion"}},
        {"tsr", "torusSectionRadius", F::kDouble, {"sectionRadius"}},
    };
    return flags;
}
} // namespace

double TdynStandardFieldCmd::inRange(const std::string& cmd, const TdynFieldFlag& f, double v) {
    // Values outside a flag's range are clamped as they are parsed; the user is told what is used.
    if (v >= f.low && v <= f.high) return v;
    const double used = std::min(std::max(v, f.low), f.high);
    const std::string range = std::isfinite(f.high)
                                  ? formatScriptNumber(f.low) + " to " + formatScriptNumber(f.high)
                                  : "at least " + formatScriptNumber(f.low);
    engine().displayWarning(cmd + ": -" + f.longName + " " + formatScriptNumber(v) + " is outside " + range +
                            "; " + formatScriptNumber(used) + " is used");
    return used;
}

void TdynStandardFieldCmd::set(Values& v, const std::string& attr, double value) {
    for (auto& [name, old] : v)
        if (name == attr) {
            old = value;
            return;
        }
    v.emplace_back(attr, value);
}

void TdynStandardFieldCmd::writeValues(TdynField* field, const Values& values) {
    for (const auto& [name, value] : values)
        if (Tattribute* a = field->attribute(name)) field->setNumber(a, value);
}

std::vector<TdynFieldFlag> TdynStandardFieldCmd::allFlags() const {
    std::vector<TdynFieldFlag> all = commonFlags();
    for (const TdynFieldFlag& f : ownFlags())
        all.push_back(f);
    return all;
}

std::unique_ptr<Tsyntax> TdynStandardFieldCmd::newSyntax() {
    auto s = std::make_unique<Tsyntax>();
    makeSyntaxEditQuery(*s);
    makeDefaultObjectListSelection(*s);
    addAuxiliaryFlags(*s);
    using T = TargType;
    for (const TdynFieldFlag& f : allFlags()) {
        switch (f.kind) {
        case TdynFieldFlag::kDouble:
        case TdynFieldFlag::kAllThree:
            s->addFlag(f.shortName, f.longName, {T::Double});
            break;
        case TdynFieldFlag::kBool:
            s->addFlag(f.shortName, f.longName, {T::Bool});
            break;
        case TdynFieldFlag::kInt:
            // The volume shape is given by name.
            s->addFlag(f.shortName, f.longName,
                       {std::string(f.longName) == "volumeShape" ? T::String : T::Int});
            break;
        case TdynFieldFlag::kTriple:
            s->addFlag(f.shortName, f.longName, {T::Double, T::Double, T::Double});
            break;
        }
    }
    addExtraFlags(*s);
    return s;
}

bool TdynStandardFieldCmd::parseValueFlags(const TargDatabase& db, Values& out) {
    const std::string cmd = db.commandName();
    if (fPositionSet) {
        set(out, "translateX", fPosition.x);
        set(out, "translateY", fPosition.y);
        set(out, "translateZ", fPosition.z);
    }
    for (const TdynFieldFlag& f : allFlags()) {
        if (!isFlagSet(db, f.shortName, f.longName)) continue;
        const std::string lname = f.longName;
        bool given = false;
        if (lname == "volumeShape") {
            std::string shape;
            getFlagArg(db, f.shortName, f.longName, shape, given);
            int index = -1;
            for (int i = 0; i < 6; ++i)
                if (shape == kShapeNames[i]) index = i;
            if (index < 0) {
                engine().displayError(cmd + ": unknown volume shape '" + shape +
                                      "' for -volumeShape; use none, cube, sphere, cylinder, cone or torus");
                return false;
            }
            set(out, "volumeShape", index);
            continue;
        }
        switch (f.kind) {
        case TdynFieldFlag::kDouble:
        case TdynFieldFlag::kAllThree: {
            double v = 0;
            getFlagArg(db, f.shortName, f.longName, v, given);
            if (!std::isfinite(v)) {
                engine().displayError(cmd + ": -" + lname + " must be a finite number");
                return false;
            }
            if (lname == "torusSectionRadius" && v < 0) {
                engine().displayError(cmd + ": -torusSectionRadius cannot be negative, got " +
                                      formatScriptNumber(v));
                return false;
            }
            v = inRange(cmd, f, v);
            if (lname == "volumeSweep") v /= kDegreesPerRadian; // typed in degrees, kept in radians
            const int n = f.kind == TdynFieldFlag::kAllThree ? 3 : 1;
            for (int k = 0; k < n; ++k)
                set(out, f.attrs[k], v);
            // A reach given on the command line is meant to be used; a negative one means none.
            if (lname == "maxDistance") set(out, "useMaxDistance", v >= 0 ? 1 : 0);
            break;
        }
        case TdynFieldFlag::kBool: {
            bool b = false;
            getFlagArg(db, f.shortName, f.longName, b, given);
            set(out, f.attrs[0], b ? 1 : 0);
            break;
        }
        case TdynFieldFlag::kInt: {
            int v = 0;
            getFlagArg(db, f.shortName, f.longName, v, given);
            set(out, f.attrs[0], inRange(cmd, f, v));
            break;
        }
        case TdynFieldFlag::kTriple: {
            T4dDblVector v;
            getFlagArg(db, f.shortName, f.longName, v, given);
            for (int k = 0; k < 3; ++k)
                set(out, f.attrs[k], v[k]);
            break;
        }
        }
    }
    return true;
}

int TdynStandardFieldCmd::parseEditOrNew(const TargDatabase& db) {
    if (!parseAuxiliaryFlags(db)) return -1;
    Values values;
    if (!isEditMode()) values = creationDefaults(db);
    if (!applyPresets(db, values)) return -1;
    if (!parseValueFlags(db, values)) return -1;
    fValues = std::move(values);
    if (!isEditMode()) return 0;

    for (unsigned i = 0; i < itemCount(); ++i)
        if (auto* f = TdynField::cast(item(i)); f && std::string(f->typeName()) == fieldTypeName())
            fTargets.push_back(f);
    if (fTargets.empty()) {
        engine().displayError(db.commandName() + ": name a " + fieldTypeName() + " node to edit");
        return -1;
    }
    if (!fName.empty()) {
        engine().displayError(db.commandName() + ": -name cannot be used in edit mode");
        return -1;
    }
    for (TdynField* f : fTargets) {
        Values old;
        for (const auto& [name, value] : fValues)
            if (Tattribute* a = f->attribute(name)) old.emplace_back(name, f->number(a));
        fOld.push_back(std::move(old));
    }
    return 0;
}

int TdynStandardFieldCmd::queryActions(const TargDatabase& db) {
    TdynField* f = nullptr;
    for (unsigned i = 0; i < itemCount() && !f; ++i)
        f = TdynField::cast(item(i));
    const std::string cmd = db.commandName();
    if (!f) {
        engine().displayError(cmd + ": name a field to query");
        return -1;
    }
    bool ok = true;
    if (queryExtra(db, f, ok)) return ok ? 0 : -1;
    auto num = [&](const char* name) {
        Tattribute* a = f->attribute(name);
        return a ? f->number(a) : 0.0;
    };
    if (isFlagSet(db, "pos", "position")) {
        engine().setResult(TscriptVector{num("translateX"), num("translateY"), num("translateZ")});
        return 0;
    }
    if (isFlagSet(db, "n", "name")) {
        engine().setResult(f->name());
        return 0;
    }
    for (const TdynFieldFlag& fl : allFlags()) {
        if (!isFlagSet(db, fl.shortName, fl.longName)) continue;
        const std::string lname = fl.longName;
        if (lname == "volumeShape") {
            const int s = static_cast<int>(num("volumeShape"));
            engine().setResult(std::string(s >= 0 && s < 6 ? kShapeNames[s] : "none"));
        } else if (lname == "volumeSweep") {
            engine().setResult(num("volumeSweep") * kDegreesPerRadian);
        } else if (fl.kind == TdynFieldFlag::kTriple) {
            engine().setResult(TscriptVector{num(fl.attrs[0]), num(fl.attrs[1]), num(fl.attrs[2])});
        } else if (fl.kind == TdynFieldFlag::kBool) {
            engine().setResult(num(fl.attrs[0]) != 0);
        } else if (fl.kind == TdynFieldFlag::kInt) {
            engine().setResult(static_cast<int>(num(fl.attrs[0])));
        } else {
            engine().setResult(num(fl.attrs[0]));
        }
        return 0;
    }
    return 0;
}

int TdynStandardFieldCmd::createField() {
    TdependGraph& g = TdependGraph::current();
    const std::string name = fName.empty() ? std::string(baseName()) + "1" : fName;
    fField = TdynField::cast(g.createNode(fieldTypeName(), name));
    if (!fField) {
        engine().displayError(std::string("could not make a node of type ") + fieldTypeName());
        return -1;
    }
    writeValues(fField, fValues);
    // Selected particle objects become clients; the first other geometry owns the field.
    for (unsigned i = 0; i < itemCount(); ++i) {
        auto* dag = TdagObject::cast(item(i));
        if (!dag) continue;
        if (auto* p = TdynParticleShape::cast(TdynStatic::dynamicObject(dag))) {
            if (std::find(fClients.begin(), fClients.end(), p) == fClients.end()) fClients.push_back(p);
        } else if (!fOwner) {
            TdagObject* shape = TdynStatic::getShape(dag);
            if (shape && TdynAuxiliary::canBeOwnedBy(shape)) fOwner = shape;
        }
    }
    return 0;
}

int TdynStandardFieldCmd::doRedoIt() {
    if (isEditMode()) {
        for (TdynField* f : fTargets)
            writeValues(f, fValues);
        return 0;
    }
    if (fDetached) {
        TdependGraph::current().reattachNode(std::move(fDetached));
    } else if (int r = createField(); r != 0) {
        return r;
    }
    fieldMade(fField);
    std::string why;
    if (fOwner && !fField->setOwner(fOwner, why)) engine().displayWarning(why);
    for (TdependNode* c : fClients)
        if (fField->connectToClient(c, why) < 0) engine().displayWarning(why);
    engine().setResult(fField->name());
    return 0;
}

int TdynStandardFieldCmd::doUndoIt() {
    if (isEditMode()) {
        for (std::size_t i = 0; i < fTargets.size(); ++i)
            writeValues(fTargets[i], fOld[i]);
        return 0;
    }
    if (fField && !fDetached) fDetached = TdependGraph::current().detachNode(fField);
    return 0;
}

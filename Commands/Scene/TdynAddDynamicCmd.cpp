// addDynamic FIELD OBJECT: makes an existing field belong to an object, so that
// it acts from the object's points (or its centre) and moves with it, as a field
// made with the object selected does. Undo puts back whatever fed the field's
// owner attributes before.

#include "Commands/Fields/TdynField.h"
#include "Commands/Scene/TdynCmd.h"

namespace {
// The owner attributes a field reads from its owner; centroid by its children,
// since compounds connect child by child.
std::vector<Tattribute*> ownerInputs(TdynField* field) {
    std::vector<Tattribute*> out{field->attrOwner(), field->attrOwnerPosData(), field->attrOwnerVelData()};
    for (Tattribute* c : field->attrOwnerCentroid()->children())
        out.push_back(c);
    if (Tattribute* masses = field->attribute("ownerMassData")) out.push_back(masses);
    return out;
}
} // namespace

class TdynAddDynamicCmd : public TdynCmd {
protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeDefaultObjectListSelection(*s);
        return s;
    }

    int parseEditOrNew(const TargDatabase&) override {
        if (itemCount() != 2) {
            engine().displayError("addDynamic: give a field and the object it should belong to (" +
                                  std::to_string(itemCount()) + " objects given)");
            return -1;
        }
        fField = TdynField::cast(item(0));
        if (!fField) {
            engine().displayError("addDynamic: '" + item(0)->name() + "' is not a field");
            return -1;
        }
        fOwner = item(1);
        if (auto* dag = TdagObject::cast(fOwner); dag && !isObjectAShape(dag))
            if (std::vector<TdagObject*> shapes = findDagObjectShapes(dag); !shapes.empty())
                fOwner = shapes.front();
        if (!TdynAuxiliary::canBeOwnedBy(fOwner)) {
            engine().displayError("addDynamic: '" + item(1)->name() + "' has no shape that can own " +
                                  fField->name());
            return -1;
        }
        if (fOwner == fField) {
            engine().displayError("addDynamic: a field cannot own itself");
            return -1;
        }
        return 0;
    }

    int doRedoIt() override {
        fBefore.clear();
        for (Tattribute* a : ownerInputs(fField))
            fBefore.push_back({a, fField->inputSource(a, -1)});
        std::string why;
        if (!fField->setOwner(fOwner, why)) {
            engine().displayError("addDynamic: " + why);
            return -1;
        }
        engine().setResult(std::vector<std::string>{fField->name(), fOwner->name()});
        return 0;
    }

    int doUndoIt() override {
        TdependGraph& g = TdependGraph::current();
        for (const Source& s : fBefore) {
            Tplug dst(fField, s.attribute);
            if (Tplug now = dst.source(); !now.isNull()) g.disconnect(now, dst);
            if (!s.source.isNull()) g.connect(s.source, dst, true);
        }
        return 0;
    }

    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

private:
    struct Source {
        Tattribute* attribute;
        Tplug source;
    };
    TdynField* fField = nullptr;
    TdependNode* fOwner = nullptr;
    std::vector<Source> fBefore;
};

MOTILANE_REGISTER_COMMAND("addDynamic", TdynAddDynamicCmd);

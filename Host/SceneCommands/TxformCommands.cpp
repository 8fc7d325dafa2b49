// move, rotate, scale, xform, parent.

#include "Host/Dag/Tshape.h"
#include "Host/Dag/Ttransform.h"
#include "Host/SceneCommands/TsceneCommand.h"

#include <memory>

namespace {

// The transform a name stands for: a transform, or a shape's parent transform.
Ttransform* transformOf(TdependGraph& g, const std::string& name, const std::string& command) {
    TdependNode* n = findNodeOrThrow(g, name);
    if (auto* t = Ttransform::cast(n)) return t;
    if (auto* dag = TdagObject::cast(n))
        if (auto* t = Ttransform::cast(dag->parentObject())) return t;
    throw TargError(command + ": '" + name + "' is not a transform");
}

T4dDblMatrix parentWorld(Ttransform* t) {
    auto* vs = Ttransform::sVsData();
    return t->normalBlock().inputValue(&vs->parentMatrix).asMatrix();
}

class TxformBase : public TsceneCommand {
protected:
    // Writes a vector attribute of a transform undoably.
    void write(Ttransform* t, Tattribute3Double& attr, const T4dDblVector& v) {
        Tplug plug(t, &attr);
        if (plug.isChildDestination()) fail(plug.name() + " is driven by a connection and cannot be changed");
        auto before = std::make_shared<TplugSnapshot>(plug);
        perform([plug, v] { writeOrThrow(plug, [&] { return writePlugVector(plug, v); }); },
                [before] { before->restore(); });
    }
    T4dDblVector read(Ttransform* t, Tattribute3Double& attr) {
        return t->normalBlock().inputValue(&attr).asVector();
    }
    std::vector<Ttransform*> transforms(const TargDatabase& db) {
        std::vector<Ttransform*> out;
        for (const std::string& n : db.objects()) out.push_back(transformOf(graph(), n, commandName()));
        return out;
    }
    // `move x y z [objects]`: the numbers come first, then the objects or, with none, the selection.
    static void valuesThenObjects(Tsyntax& s) {
        s.setObjectKind(Tsyntax::ObjectKind::None);
        s.setValueArguments(3);
    }
    std::vector<Ttransform*> trailingTransforms(const TargDatabase& db) {
        std::vector<Ttransform*> out;
        for (std::size_t i = 3; i < db.valueCount(); ++i)
            out.push_back(transformOf(graph(), db.valueString(i), commandName()));
        if (db.valueCount() == 3)
            for (TdependNode* n : model().activeList()) out.push_back(transformOf(graph(), n->name(), commandName()));
        if (out.empty()) fail("no object given or selected");
        return out;
    }
    T4dDblVector vectorValues(const TargDatabase& db) {
        if (db.valueCount() < 3) fail("expected three values x y z, got " + std::to_string(db.valueCount()));
        return {db.valueDouble(0), db.valueDouble(1), db.valueDouble(2)};
    }
};

class TmoveCmd : public TxformBase {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("r", "relative", {});
        s.addFlag("a", "absolute", {});
        s.addFlag("ls", "localSpace", {});
        valuesThenObjects(s);
    }
    int run(const TargDatabase& db) override {
        T4dDblVector v = vectorValues(db);
        auto* vs = Ttransform::sVsData();
        for (Ttransform* t : trailingTransforms(db)) {
            T4dDblMatrix pw = parentWorld(t);
            T4dDblVector current = read(t, vs->translate);
            T4dDblVector next;
            if (db.isFlagSet("relative"))
                next = current + (db.isFlagSet("localSpace") ? v : pw.inverse().transformVector(v));
            else
                next = db.isFlagSet("localSpace") ? v : pw.inverse().transformPoint(v);
            write(t, vs->translate, next);
        }
        return 0;
    }
};

class TrotateCmd : public TxformBase {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("r", "relative", {});
        s.addFlag("a", "absolute", {});
        valuesThenObjects(s);
    }
    int run(const TargDatabase& db) override {
        T4dDblVector v = vectorValues(db);
        auto* vs = Ttransform::sVsData();
        for (Ttransform* t : trailingTransforms(db))
            write(t, vs->rotate, db.isFlagSet("relative") ? read(t, vs->rotate) + v : v);
        return 0;
    }
};

class TscaleCmd : public TxformBase {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("r", "relative", {});
        s.addFlag("a", "absolute", {});
        valuesThenObjects(s);
    }
    int run(const TargDatabase& db) override {
        T4dDblVector v = vectorValues(db);
        auto* vs = Ttransform::sVsData();
        for (Ttransform* t : trailingTransforms(db)) {
            T4dDblVector s = read(t, vs->scale);
            write(t, vs->scale, db.isFlagSet("relative") ? T4dDblVector{s.x * v.x, s.y * v.y, s.z * v.z} : v);
        }
        return 0;
    }
};

class TxformCmd : public TxformBase {
    void makeSyntax(Tsyntax& s) override {
        s.enableQuery();
        s.addFlag("ws", "worldSpace", {});
        s.addFlag("os", "objectSpace", {});
        s.addFlag("r", "relative", {});
        s.addFlag("t", "translation", {TargType::Double, TargType::Double, TargType::Double});
        s.addFlag("ro", "rotation", {TargType::Double, TargType::Double, TargType::Double});
        s.addFlag("s", "scale", {TargType::Double, TargType::Double, TargType::Double});
        s.addFlag("m", "matrix", std::vector<TargType>(16, TargType::Double));
        s.addFlag("roo", "rotateOrder", {TargType::String});
        s.setObjectKind(Tsyntax::ObjectKind::Objects, 1);
        s.useSelectionAsDefault(true);
    }
    static std::vector<double> flat(const T4dDblMatrix& m) {
        std::vector<double> v;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) v.push_back(m.m[r][c]);
        return v;
    }
    int run(const TargDatabase& db) override {
        auto* vs = Ttransform::sVsData();
        const bool world = db.isFlagSet("worldSpace");
        if (db.isQuery()) {
            Ttransform* t = transformOf(graph(), db.objects()[0], commandName());
            if (db.isFlagSet("translation")) {
                T4dDblVector v = world ? t->worldMatrix().getTranslation() : read(t, vs->translate);
                engine().setResult(std::vector<double>{v.x, v.y, v.z});
            } else if (db.isFlagSet("rotation")) {
                T4dDblVector v = world ? TxformMatrix(t->worldMatrix(), t->xform(t->normalBlock()).rotateOrder()).rotation()
                                       : read(t, vs->rotate);
                engine().setResult(std::vector<double>{v.x, v.y, v.z});
            } else if (db.isFlagSet("scale")) {
                T4dDblVector v = world ? TxformMatrix(t->worldMatrix()).scale() : read(t, vs->scale);
                engine().setResult(std::vector<double>{v.x, v.y, v.z});
            } else if (db.isFlagSet("matrix")) {
                engine().setResult(flat(world ? t->worldMatrix() : t->computeLocalXform(t->normalBlock())));
            } else {
                fail("query one of -translation, -rotation, -scale, -matrix");
            }
            return 0;
        }
        for (Ttransform* t : transforms(db)) {
            const bool rel = db.isFlagSet("relative");
            if (db.isFlagSet("translation")) {
                T4dDblVector v{db.flagArgumentDouble("translation", 0, 0), db.flagArgumentDouble("translation", 0, 1),
                               db.flagArgumentDouble("translation", 0, 2)};
                T4dDblMatrix pwInv = parentWorld(t).inverse();
                if (world) v = rel ? pwInv.transformVector(v) : pwInv.transformPoint(v);
                write(t, vs->translate, rel ? read(t, vs->translate) + v : v);
            }
            if (db.isFlagSet("rotation")) {
                T4dDblVector v{db.flagArgumentDouble("rotation", 0, 0), db.flagArgumentDouble("rotation", 0, 1),
                               db.flagArgumentDouble("rotation", 0, 2)};
                write(t, vs->rotate, rel ? read(t, vs->rotate) + v : v);
            }
            if (db.isFlagSet("scale")) {
                T4dDblVector v{db.flagArgumentDouble("scale", 0, 0), db.flagArgumentDouble("scale", 0, 1),
                               db.flagArgumentDouble("scale", 0, 2)};
                T4dDblVector s = read(t, vs->scale);
                write(t, vs->scale, rel ? T4dDblVector{s.x * v.x, s.y * v.y, s.z * v.z} : v);
            }
            if (db.isFlagSet("matrix")) {
                T4dDblMatrix m;
                for (int i = 0; i < 16; ++i) m.m[i / 4][i % 4] = db.flagArgumentDouble("matrix", 0, i);
                if (world) m = m * parentWorld(t).inverse();
                TxformMatrix x;
                if (!x.decompose(m, t->xform(t->normalBlock()).rotateOrder())) fail("the matrix is singular");
                write(t, vs->translate, x.translation());
                write(t, vs->rotate, x.rotation());
                write(t, vs->scale, x.scale());
                write(t, vs->shear, x.shear());
            }
        }
        return 0;
    }
};

class TparentCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("w", "world", {});
        s.setObjectKind(Tsyntax::ObjectKind::Objects, 1);
        s.useSelectionAsDefault(true);
    }
    int run(const TargDatabase& db) override {
        std::vector<std::string> names = db.objects();
        TdagObject* parent = nullptr;
        if (!db.isFlagSet("world")) {
            if (names.size() < 2) fail("give the objects and then the new parent (or -world)");
            parent = TdagObject::cast(findNodeOrThrow(graph(), names.back()));
            if (!Ttransform::cast(parent)) fail("'" + names.back() + "' is not a transform");
            names.pop_back();
        }
        for (const std::string& n : names) {
            auto* child = TdagObject::cast(findNodeOrThrow(graph(), n));
            if (!child) fail("'" + n + "' is not in the hierarchy");
            if (Tshape::cast(child) && !parent) fail("a shape must stay under a transform: " + n);
            TdagObject* old = child->parentObject();
            for (TdagObject* p = parent; p; p = p->parentObject())
                if (p == child) fail("cannot parent " + n + " under its own descendant " + parent->name());
            perform([child, parent] { child->setParentObject(parent); },
                    [child, old] { child->setParentObject(old); });
        }
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("move", TmoveCmd);
MOTILANE_REGISTER_COMMAND("rotate", TrotateCmd);
MOTILANE_REGISTER_COMMAND("scale", TscaleCmd);
MOTILANE_REGISTER_COMMAND("xform", TxformCmd);
MOTILANE_REGISTER_COMMAND("parent", TparentCmd);

} // namespace

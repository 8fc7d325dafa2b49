// polyPlane, polyCube, polySphere, polyCylinder, polyTorus, curve, and OBJ import.

#include "Host/Dag/Tshape.h"
#include "Host/Dag/Ttransform.h"
#include "Host/Geometry/TobjReader.h"
#include "Host/Geometry/TpolyPrimitives.h"
#include "Host/SceneCommands/TsceneCommand.h"

namespace {

// Makes a transform named `name` (or `base` numbered) with a shape under it,
// named after the transform with "Shape" added. Returns both names.
std::vector<std::string> makeShape(TDGcommand& cmd, const std::string& shapeType, const std::string& name,
                                   const std::string& base, const std::function<void(TdependNode*)>& fill) {
    TdependGraph& g = TdependGraph::current();
    std::string wanted = name.empty() ? g.uniqueName(base + "1") : name;
    TdependNode* xf = createNodeUndoable(cmd, "transform", wanted);
    // The shape's geometry is stored before the node is handed to undo, so
    // redo brings back the same shape with the same mesh.
    TdependNode* shape = createNodeUndoable(cmd, shapeType, xf->name() + "Shape", xf);
    fill(shape);
    return {xf->name(), shape->name()};
}

class TpolyCmd : public TsceneCommand {
public:
    explicit TpolyCmd(std::string base) : fBase(std::move(base)) {}

protected:
    void addCommon(Tsyntax& s) {
        s.addFlag("n", "name", {TargType::String});
        s.addFlag("ax", "axis", {TargType::Double, TargType::Double, TargType::Double});
    }
    int finish(const TargDatabase& db, TpolyMesh mesh) {
        std::string name;
        db.getFlagArgument("name", 0, name);
        auto names = makeShape(*this, "mesh", name, fBase, [&](TdependNode* shape) {
            TmeshShape::cast(shape)->setMesh(std::move(mesh));
        });
        engine().setResult(names);
        return 0;
    }
    double number(const TargDatabase& db, const char* flag, double fallback, double min) {
        double v = fallback;
        db.getFlagArgument(flag, 0, v);
        if (!(v >= min)) fail(std::string("-") + flag + " must be at least " + formatScriptNumber(min));
        return v;
    }
    int count(const TargDatabase& db, const char* flag, int fallback, int min) {
        int v = fallback;
        db.getFlagArgument(flag, 0, v);
        if (v < min) fail(std::string("-") + flag + " must be at least " + std::to_string(min));
        if (v > 1000) fail(std::string("-") + flag + " must be at most 1000");
        return v;
    }

private:
    std::string fBase;
};

class TpolyPlaneCmd : public TpolyCmd {
public:
    TpolyPlaneCmd() : TpolyCmd("pPlane") {}
    void makeSyntax(Tsyntax& s) override {
        addCommon(s);
        s.addFlag("w", "width", {TargType::Double});
        s.addFlag("h", "height", {TargType::Double});
        s.addFlag("sx", "subdivisionsX", {TargType::Int});
        s.addFlag("sy", "subdivisionsY", {TargType::Int});
    }
    int run(const TargDatabase& db) override {
        return finish(db,
                      makePolyPlane(number(db, "width", 1, 1e-9), number(db, "height", 1, 1e-9),
                                    count(db, "subdivisionsX", 10, 1), count(db, "subdivisionsY", 10, 1)));
    }
};

class TpolyCubeCmd : public TpolyCmd {
public:
    TpolyCubeCmd() : TpolyCmd("pCube") {}
    void makeSyntax(Tsyntax& s) override {
        addCommon(s);
        s.addFlag("w", "width", {TargType::Double});
        s.addFlag("h", "height", {TargType::Double});
        s.addFlag("d", "depth", {TargType::Double});
        s.addFlag("sx", "subdivisionsX", {TargType::Int});
        s.addFlag("sy", "subdivisionsY", {TargType::Int});
        s.addFlag("sz", "subdivisionsZ", {TargType::Int});
    }
    int run(const TargDatabase& db) override {
        return finish(db, makePolyCube(number(db, "width", 1, 1e-9), number(db, "height", 1, 1e-9),
                                       number(db, "depth", 1, 1e-9), count(db, "subdivisionsX", 1, 1),
                                       count(db, "subdivisionsY", 1, 1), count(db, "subdivisionsZ", 1, 1)));
    }
};

class TpolySphereCmd : public TpolyCmd {
public:
    TpolySphereCmd() : TpolyCmd("pSphere") {}
    void makeSyntax(Tsyntax& s) override {
        addCommon(s);
        s.addFlag("r", "radius", {TargType::Double});
        s.addFlag("sx", "subdivisionsX", {TargType::Int});
        s.addFlag("sy", "subdivisionsY", {TargType::Int});
    }
    int run(const TargDatabase& db) override {
        return finish(db, makePolySphere(number(db, "radius", 1, 1e-9), count(db, "subdivisionsX", 20, 3),
                                         count(db, "subdivisionsY", 20, 2)));
    }
};

class TpolyCylinderCmd : public TpolyCmd {
public:
    TpolyCylinderCmd() : TpolyCmd("pCylinder") {}
    void makeSyntax(Tsyntax& s) override {
        addCommon(s);
        s.addFlag("r", "radius", {TargType::Double});
        s.addFlag("h", "height", {TargType::Double});
        s.addFlag("sx", "subdivisionsX", {TargType::Int});
        s.addFlag("sy", "subdivisionsY", {TargType::Int});
        s.addFlag("sc", "subdivisionsCaps", {TargType::Int});
    }
    int run(const TargDatabase& db) override {
        return finish(db,
                      makePolyCylinder(number(db, "radius", 1, 1e-9), number(db, "height", 2, 1e-9),
                                       count(db, "subdivisionsX", 20, 3), count(db, "subdivisionsY", 1, 1),
                                       count(db, "subdivisionsCaps", 0, 0)));
    }
};

class TpolyTorusCmd : public TpolyCmd {
public:
    TpolyTorusCmd() : TpolyCmd("pTorus") {}
    void makeSyntax(Tsyntax& s) override {
        addCommon(s);
        s.addFlag("r", "radius", {TargType::Double});
        s.addFlag("sr", "sectionRadius", {TargType::Double});
        s.addFlag("sx", "subdivisionsX", {TargType::Int});
        s.addFlag("sy", "subdivisionsY", {TargType::Int});
    }
    int run(const TargDatabase& db) override {
        return finish(db,
                      makePolyTorus(number(db, "radius", 1, 1e-9), number(db, "sectionRadius", 0.5, 1e-9),
                                    count(db, "subdivisionsX", 20, 3), count(db, "subdivisionsY", 20, 3)));
    }
};

class TcurveCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("n", "name", {TargType::String});
        s.addFlag("d", "degree", {TargType::Int});
        s.addFlag("p", "point", {TargType::Double, TargType::Double, TargType::Double});
        s.makeFlagMultiUse("point");
    }
    int run(const TargDatabase& db) override {
        int degree = 3;
        db.getFlagArgument("degree", 0, degree);
        if (degree != 1 && degree != 3) fail("-degree must be 1 or 3");
        std::vector<T4dDblVector> cvs;
        for (std::size_t u = 0; u < db.flagUseCount("point"); ++u)
            cvs.push_back({db.flagArgumentDouble("point", u, 0), db.flagArgumentDouble("point", u, 1),
                           db.flagArgumentDouble("point", u, 2)});
        if (cvs.size() < 2) fail("a curve needs at least two -point flags");
        std::string name;
        db.getFlagArgument("name", 0, name);
        auto names = makeShape(*this, "curve", name, "curve", [&](TdependNode* shape) {
            TcurveShape::cast(shape)->setCurve(Tcurve(degree, cvs));
        });
        engine().setResult(names);
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("polyPlane", TpolyPlaneCmd);
MOTILANE_REGISTER_COMMAND("polyCube", TpolyCubeCmd);
MOTILANE_REGISTER_COMMAND("polySphere", TpolySphereCmd);
MOTILANE_REGISTER_COMMAND("polyCylinder", TpolyCylinderCmd);
MOTILANE_REGISTER_COMMAND("polyTorus", TpolyTorusCmd);
MOTILANE_REGISTER_COMMAND("curve", TcurveCmd);

} // namespace

std::vector<std::string> importObj(TDGcommand& cmd, const std::string& path) {
    std::vector<TnamedMesh> meshes = readObjFile(path);
    std::vector<std::string> made;
    for (TnamedMesh& m : meshes) {
        std::string base = m.name.empty() ? "imported" : m.name;
        // Names from files may hold characters node names cannot.
        for (char& c : base)
            if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') c = '_';
        if (std::isdigit(static_cast<unsigned char>(base[0]))) base = "_" + base;
        auto names =
            makeShape(cmd, "mesh", TdependGraph::current().uniqueName(base), base,
                      [&](TdependNode* shape) { TmeshShape::cast(shape)->setMesh(std::move(m.mesh)); });
        made.insert(made.end(), names.begin(), names.end());
    }
    return made;
}

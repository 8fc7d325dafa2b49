#include "Commands/Collisions/TdynSweptGeometry.h"

#include "Host/Dag/Tshape.h"
#include "Host/Data/TdataGeometry.h"

#include <algorithm>
#include <cmath>

namespace {

// Points and curve parameters at even arc-length spacing, from a chord table fine enough that the
// spacing errs by far less than a line's length. One table per call, so a step costs
// O(samples) rather than a length integration per sample.
void sampleCurve(const Tcurve& curve, int lineCount, std::vector<T4dDblVector>& points,
                 std::vector<double>& params) {
    const int fine = std::max(64, lineCount * 8);
    std::vector<T4dDblVector> p(fine + 1);
    std::vector<double> len(fine + 1, 0.0);
    for (int i = 0; i <= fine; ++i) {
        p[i] = curve.evaluate(double(i) / fine);
        if (i > 0) len[i] = len[i - 1] + p[i].distanceTo(p[i - 1]);
    }
    const double total = len[fine];
    points.resize(lineCount + 1);
    params.resize(lineCount + 1);
    int k = 0;
    for (int i = 0; i <= lineCount; ++i) {
        double u;
        if (i == 0 || !(total > 0))
            u = double(i) / lineCount;
        else if (i == lineCount)
            u = 1;
        else {
            const double s = total * i / lineCount;
            while (k < fine - 1 && len[k + 1] < s)
                ++k;
            const double seg = len[k + 1] - len[k];
            u = (k + (seg > 0 ? (s - len[k]) / seg : 0)) / fine;
        }
        params[i] = u;
        points[i] = curve.evaluate(u);
    }
}

} // namespace

TdynSweptGeometry::~TdynSweptGeometry() {
    clear();
}

void TdynSweptGeometry::clearPolygon() {
    for (TdynSweptTriangle* t : triangles)
        TdynSweptTriangle::deleteTriangle(t);
    triangles.clear();
    fTriVertices.clear();
    fTriangleBoxes.clear();
    area = 0;
}

void TdynSweptGeometry::clearLine() {
    for (TdynSweptLine* l : lines)
        TdynSweptLine::deleteLine(l);
    lines.clear();
    length = 0;
}

void TdynSweptGeometry::clear() {
    clearPolygon();
    clearLine();
    clearSubBoundingBoxes();
    box.clear();
    kind = kEmpty;
    moving = false;
    fFaceCounts.clear();
    fFaceVertices.clear();
    fPointCount = 0;
    fControlPointCount = 0;
}

void TdynSweptGeometry::removePolygon(int index) {
    if (index < 0 || index >= triangleCount()) return;
    TdynSweptTriangle::deleteTriangle(triangles[index]);
    triangles.erase(triangles.begin() + index);
    if (static_cast<int>(fTriVertices.size()) >= 3 * (index + 1))
        fTriVertices.erase(fTriVertices.begin() + 3 * index, fTriVertices.begin() + 3 * index + 3);
    // The source layout no longer describes the triangles: the next update builds anew.
    fFaceCounts.clear();
    fFaceVertices.clear();
    fPointCount = -1;
    if (triangles.empty()) kind = lines.empty() ? kEmpty : kLines;
    computeArea();
    refreshBoundingBox();
}

void TdynSweptGeometry::removeLine(int index) {
    if (index < 0 || index >= lineCount()) return;
    TdynSweptLine::deleteLine(lines[index]);
    lines.erase(lines.begin() + index);
    fControlPointCount = -1;
    if (lines.empty() && kind == kLines) kind = kEmpty;
    computeLength();
    refreshBoundingBox();
}

void TdynSweptGeometry::saveLastState() {
    for (TdynSweptTriangle* t : triangles)
        t->saveLastState();
    for (TdynSweptLine* l : lines)
        l->saveLastState();
}

void TdynSweptGeometry::markMoving(bool flag) {
    for (TdynSweptTriangle* t : triangles)
        t->setMoving(flag);
    for (TdynSweptLine* l : lines)
        l->setMoving(flag);
    moving = flag;
}

int TdynSweptGeometry::create(Tshape* source, const T4dDblMatrix& matrix) {
    clear();
    shape = source;
    if (auto* m = TmeshShape::cast(source)) {
        if (const TpolyMesh* mesh = m->mesh()) return createFromMesh(*mesh, matrix);
    } else if (auto* c = TcurveShape::cast(source)) {
        if (const Tcurve* curve = c->curve()) return createFromCurve(*curve, matrix);
    }
    return kind;
}

int TdynSweptGeometry::create(const Tdata& geometry, const T4dDblMatrix& matrix) {
    if (auto* m = geometry.as<TdataMesh>()) return createFromMesh(m->mesh(), matrix);
    if (auto* c = geometry.as<TdataCurve>()) return createFromCurve(c->curve(), matrix);
    clear();
    return kind;
}

int TdynSweptGeometry::recreate(const Tdata& geometry, const T4dDblMatrix& matrix) {
    clear();
    return create(geometry, matrix);
}

int TdynSweptGeometry::createFromMesh(const TpolyMesh& mesh, const T4dDblMatrix& matrix) {
    Tshape* keep = shape;
    clear();
    shape = keep;
    tesselateSurface(mesh, matrix);
    if (triangles.empty()) return kind;
    kind = kTriangles;
    fFaceCounts = mesh.faceCounts;
    fFaceVertices = mesh.faceVertices;
    fPointCount = mesh.numPoints();
    computeArea();
    refreshBoundingBox();
    return kind;
}

void TdynSweptGeometry::tesselateSurface(const TpolyMesh& mesh, const T4dDblMatrix& matrix) {
    clearPolygon();
    if (mesh.isEmpty()) return;
    const TmeshTriangles tris = mesh.triangulate();
    std::vector<T4dDblVector> world(mesh.points.size());
    matrix.transformPoints(mesh.points.data(), world.data(), world.size());
    const int n = tris.count();
    triangles.reserve(n);
    fTriVertices.assign(tris.vertices.begin(), tris.vertices.end());
    for (int k = 0; k < n; ++k) {
        TdynSweptTriangle* t = TdynSweptTriangle::newTriangle();
        const T4dDblVector corners[3] = {world[tris.vertices[3 * k]], world[tris.vertices[3 * k + 1]],
                                         world[tris.vertices[3 * k + 2]]};
        t->setVertices(corners, corners);
        triangles.push_back(t);
    }
    fTriCorners.assign(tris.corners.begin(), tris.corners.end());
    copyUVPoints(mesh);
}

void TdynSweptGeometry::copyUVPoints(const TpolyMesh& mesh) {
    const bool uvs = mesh.hasUvs();
    for (int k = 0; k < triangleCount(); ++k) {
        for (int c = 0; c < 3; ++c) {
            double u = 0, v = 0;
            const std::size_t at = 3 * static_cast<std::size_t>(k) + c;
            if (uvs && at < fTriCorners.size()) {
                const int corner = fTriCorners[at];
                if (corner >= 0 && corner < static_cast<int>(mesh.uvIndices.size())) {
                    const int ui = mesh.uvIndices[corner];
                    if (ui >= 0 && ui < static_cast<int>(mesh.uvs.size())) {
                        u = mesh.uvs[ui].u;
                        v = mesh.uvs[ui].v;
                    }
                }
            }
            triangles[k]->setUV(c, u, v);
        }
    }
}

int TdynSweptGeometry::getLineCount(const Tcurve& curve) {
    if (curve.numControlPoints() < 2) return 0;
    return std::clamp(curve.numSpans() * 10, 1, 100000);
}

double TdynSweptGeometry::getLineSpacing(const Tcurve& curve) {
    const int n = getLineCount(curve);
    return n > 0 ? curve.length() / n : 0.0;
}

int TdynSweptGeometry::createFromCurve(const Tcurve& curve, const T4dDblMatrix& matrix) {
    Tshape* keep = shape;
    clear();
    shape = keep;
    const int n = getLineCount(curve);
    if (n <= 0) return kind;
    std::vector<T4dDblVector> pts;
    std::vector<double> params;
    sampleCurve(curve, n, pts, params);
    lines.reserve(n);
    for (int i = 0; i < n; ++i) {
        TdynSweptLine* l = TdynSweptLine::newLine();
        l->setVertices(matrix.transformPoint(pts[i]), matrix.transformPoint(pts[i + 1]));
        l->saveLastState();
        l->setParameters(params[i], params[i + 1]);
        lines.push_back(l);
    }
    kind = kLines;
    fControlPointCount = curve.numControlPoints();
    computeLength();
    refreshBoundingBox();
    return kind;
}

bool TdynSweptGeometry::hasChanged(const Tdata& geometry) const {
    if (auto* m = geometry.as<TdataMesh>()) {
        const TpolyMesh& mesh = m->mesh();
        if (mesh.isEmpty()) return kind != kEmpty;
        return kind != kTriangles || mesh.numPoints() != fPointCount || mesh.faceCounts != fFaceCounts ||
               mesh.faceVertices != fFaceVertices;
    }
    if (auto* c = geometry.as<TdataCurve>()) {
        const Tcurve& curve = c->curve();
        if (getLineCount(curve) == 0) return kind != kEmpty;
        return kind != kLines || curve.numControlPoints() != fControlPointCount ||
               getLineCount(curve) != lineCount();
    }
    return kind != kEmpty;
}

bool TdynSweptGeometry::rebuild(const Tdata& geometry, const T4dDblMatrix& matrix) {
    if (hasChanged(geometry)) return false;
    if (auto* m = geometry.as<TdataMesh>()) {
        const TpolyMesh& mesh = m->mesh();
        if (kind != kTriangles) return true;
        std::vector<T4dDblVector> world(mesh.points.size());
        matrix.transformPoints(mesh.points.data(), world.data(), world.size());
        const int n = triangleCount();
        for (int k = 0; k < n; ++k)
            triangles[k]->setVertices(world[fTriVertices[3 * k]], world[fTriVertices[3 * k + 1]],
                                      world[fTriVertices[3 * k + 2]]);
        computeArea();
        return true;
    }
    if (auto* c = geometry.as<TdataCurve>()) {
        if (kind != kLines) return true;
        std::vector<T4dDblVector> pts;
        std::vector<double> params;
        sampleCurve(c->curve(), lineCount(), pts, params);
        for (int i = 0; i < lineCount(); ++i) {
            lines[i]->setVertices(matrix.transformPoint(pts[i]), matrix.transformPoint(pts[i + 1]));
            lines[i]->setParameters(params[i], params[i + 1]);
        }
        computeLength();
        return true;
    }
    return true;
}

void TdynSweptGeometry::applyMatrix(const T4dDblMatrix& m) {
    for (TdynSweptTriangle* t : triangles)
        t->setVertices(m.transformPoint(t->vertex(0, 1)), m.transformPoint(t->vertex(1, 1)),
                       m.transformPoint(t->vertex(2, 1)));
    for (TdynSweptLine* l : lines)
        l->setVertices(m.transformPoint(l->vertex(0, 1)), m.transformPoint(l->vertex(1, 1)));
    if (kind == kTriangles) computeArea();
    if (kind == kLines) computeLength();
}

double TdynSweptGeometry::computeArea() {
    double sum = 0;
    for (const TdynSweptTriangle* t : triangles)
        sum += t->area();
    area = sum;
    return area;
}

double TdynSweptGeometry::computeLength() {
    double sum = 0;
    for (const TdynSweptLine* l : lines)
        sum += l->length(1);
    length = sum;
    return length;
}

void TdynSweptGeometry::clearSubBoundingBoxes() {
    subBoxes.clear();
}

void TdynSweptGeometry::refreshBoundingBox() {
    box.clear();
    if (kind == kLines) {
        clearSubBoundingBoxes();
        for (const TdynSweptLine* l : lines)
            box.include(l->boundingBox());
        return;
    }
    const int n = triangleCount();
    const int runs = (n + kTrianglesPerBox - 1) / kTrianglesPerBox;
    if (static_cast<int>(subBoxes.size()) > runs) subBoxes.resize(runs);
    while (static_cast<int>(subBoxes.size()) < runs)
        subBoxes.push_back(std::make_unique<TdynBoundingBox>());
    fTriangleBoxes.resize(n);
    for (int r = 0; r < runs; ++r) {
        TdynBoundingBox& sub = *subBoxes[r];
        sub.clear();
        const int end = std::min(n, (r + 1) * kTrianglesPerBox);
        for (int k = r * kTrianglesPerBox; k < end; ++k) {
            fTriangleBoxes[k] = triangles[k]->boundingBox();
            sub.include(fTriangleBoxes[k]);
        }
        box.include(sub);
    }
}

bool TdynSweptGeometry::intersectsWithPoint(TdynSweptPoint& point, double dt, double startTime,
                                            double resilience, double friction, Tshape* shapeHit) {
    fVisited = 0;
    if (kind != kTriangles) return false;
    const TdynBoundingBox& pbox = point.boundingBox();
    if (!pbox.intersects(box)) return false;
    bool hit = false;
    const int n = triangleCount();
    const int runs = subBoundingBoxCount();
    for (int r = 0, first = 0; r < runs; ++r, first += kTrianglesPerBox) {
        if (!pbox.intersects(*subBoxes[r])) continue;
        const int end = std::min(n, first + kTrianglesPerBox);
        fVisited += end - first;
        for (int k = first; k < end; ++k) {
            if (!pbox.intersects(fTriangleBoxes[k])) continue;
            const TdynSweptTriangle& tri = *triangles[k];
            if (!tri.intersectsPoint(point, startTime)) continue;
            const double t = point.candidateTime();
            TdynSweptHit h;
            h.time = t;
            h.position = point.positionAt(t);
            h.surfaceVelocity = tri.pointVelocity(h.position, t, dt);
            const T4dDblVector travel = point.position1() - point.position0();
            const T4dDblVector pointVelocity = std::fabs(dt) > 1e-10 ? travel / dt : travel;
            h.normal = tri.normalToPoint(t, pointVelocity, h.surfaceVelocity);
            double w[3];
            tri.linearCombinationFromPoint(tri.pointOnPlaneFromPointInSpace(h.position, t), t, w);
            tri.randomPointTexCoords(w, h.u, h.v);
            h.resilience = resilience;
            h.friction = friction;
            h.shape = shapeHit;
            point.recordHit(h);
            hit = true;
        }
    }
    return hit;
}

#include "Fluids/Core/Tfluid.h"

#include <cmath>

#include "Fluids/Core/TnsGridSolver.h"
#include "Fluids/Core/TspringGridSolver.h"

void Tfluid::registerSolvers() {
    TsolverRegistry::addSolverCreator(TnsGridSolver::classSolverName(), &TnsGridSolver::creatorFunc);
    TsolverRegistry::addSolverCreator(TspringGridSolver::classSolverName(), &TspringGridSolver::creatorFunc);
}

Tfluid::Tfluid() {
    setInterpolator(TlinearGridInterpolator::creatorFunc());
    setRenderInterpolator(TlinearGridInterpolator::creatorFunc());
}

Tfluid::Tfluid(const Tfluid& o) : TvoxelGrid(o) {
    *this = o;
}

Tfluid& Tfluid::operator=(const Tfluid& o) {
    if (this == &o) return *this;
    // Shared, reference-counted members first, so that a self-owned one survives.
    if (o.solver_) o.solver_->ref();
    if (o.interp_) o.interp_->ref();
    if (o.renderInterp_) o.renderInterp_->ref();
    if (solver_) solver_->unref();
    if (interp_) interp_->unref();
    if (renderInterp_) renderInterp_->unref();
    TvoxelGrid::operator=(o);
    occ_ = o.occ_;
    velocity_ = o.velocity_;
    force_ = o.force_;
    density_ = o.density_;
    temperature_ = o.temperature_;
    heat_ = o.heat_;
    turbTable_ = o.turbTable_;
    internalTurbRes_ = o.internalTurbRes_;
    color_ = o.color_;
    reaction_ = o.reaction_;
    coords_ = o.coords_;
    matter_ = o.matter_;
    colorMethod_ = o.colorMethod_;
    densityMethod_ = o.densityMethod_;
    temperatureMethod_ = o.temperatureMethod_;
    reactionMethod_ = o.reactionMethod_;
    coordinateMethod_ = o.coordinateMethod_;
    turbulence_ = o.turbulence_;
    solver_ = o.solver_;
    interp_ = o.interp_;
    renderInterp_ = o.renderInterp_;
    inclusiveMatrix_ = o.inclusiveMatrix_;
    inclusiveMatrixInverse_ = o.inclusiveMatrixInverse_;
    for (int a = 0; a < 3; ++a) {
        subVolumeCenter_[a] = o.subVolumeCenter_[a];
        subVolumeSize_[a] = o.subVolumeSize_[a];
    }
    densityDirty_ = o.densityDirty_;
    is2d_ = o.is2d_;
    conserveMass_ = o.conserveMass_;
    velocityAdvect_ = o.velocityAdvect_;
    velocityProject_ = o.velocityProject_;
    densityScale_ = o.densityScale_;
    temperatureScale_ = o.temperatureScale_;
    reactionScale_ = o.reactionScale_;
    colorScale_ = o.colorScale_;
    reactionSpeed_ = o.reactionSpeed_;
    minReactionTemp_ = o.minReactionTemp_;
    maxReactionTemp_ = o.maxReactionTemp_;
    reactionHeat_ = o.reactionHeat_;
    turbulenceSpeed_ = o.turbulenceSpeed_;
    temperatureTurbulence_ = o.temperatureTurbulence_;
    useInternalTurbulence_ = o.useInternalTurbulence_;
    solverVarient_ = o.solverVarient_;
    solveForColorGrid_ = o.solveForColorGrid_;
    solveForVelocityGrid_ = o.solveForVelocityGrid_;
    solveForDensityGrid_ = o.solveForDensityGrid_;
    solveForTemperatureGrid_ = o.solveForTemperatureGrid_;
    solveForReactionGrid_ = o.solveForReactionGrid_;
    solveForCoordinateGrid_ = o.solveForCoordinateGrid_;
    zeroCentered_ = o.zeroCentered_;
    gravity_ = o.gravity_;
    buoyancy_ = o.buoyancy_;
    densityBuoyancy_ = o.densityBuoyancy_;
    damp_ = o.damp_;
    internalTime_ = o.internalTime_;
    densityDiffusion_ = o.densityDiffusion_;
    densityDissipation_ = o.densityDissipation_;
    temperatureDiffusion_ = o.temperatureDiffusion_;
    temperatureDissipation_ = o.temperatureDissipation_;
    colorDiffusion_ = o.colorDiffusion_;
    colorDissipation_ = o.colorDissipation_;
    coordinateSpeed_ = o.coordinateSpeed_;
    drawSubVolume_ = o.drawSubVolume_;
    lockAxisDir_ = o.lockAxisDir_;
    axisDir_ = o.axisDir_;
    return *this;
}

Tfluid::~Tfluid() {
    if (solver_) solver_->unref();
    if (interp_) interp_->unref();
    if (renderInterp_) renderInterp_->unref();
}

// ---- Sizes ----

void Tfluid::shapeLike(TvoxelGrid& g) {
    g.setCenter(center[0], center[1], center[2]);
    g.setBounds(bounds[0], bounds[1], bounds[2]);
    g.setSize(nx, ny, nz, width, height, depth);
    g.setBounds(bounds[0], bounds[1], bounds[2]);
}

void Tfluid::sizeVelocity() {
    velocity_.setCenter(center[0], center[1], center[2]);
    if (usesVelocityGrid()) {
        shapeLike(velocity_);
        shapeLike(force_);
    } else {
        velocity_.setBoxOnly(nx, ny, nz, width, height, depth);
        force_.reset();
    }
}

void Tfluid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    setSize(x, y, z, w, h, d);
}

void Tfluid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    const size_t before = n;
    TvoxelGrid::setSize(x, y, z, w, h, d);
    if (density_.allocated()) shapeLike(density_);
    if (matter_.allocated()) shapeLike(matter_);
    if (temperature_.allocated()) shapeLike(temperature_);
    if (heat_.allocated()) shapeLike(heat_);
    if (reaction_.allocated()) shapeLike(reaction_);
    if (color_.allocated()) shapeLike(color_);
    if (coords_.allocated()) shapeLike(coords_);
    sizeVelocity();
    if (!occ_.empty() && before != n) createOccupation();
    if (turbTable_.created()) turbTable_.resample(unsigned(n), internalTurbRes_);
}

void Tfluid::resize(double w, double h, double d) {
    setSize(nx, ny, nz, w, h, d);
}

void Tfluid::resample(unsigned x, unsigned y, unsigned z) {
    if (density_.allocated()) density_.resample(this, x, y, z);
    if (matter_.allocated()) matter_.resample(this, x, y, z);
    if (temperature_.allocated()) temperature_.resample(this, x, y, z);
    if (heat_.allocated()) heat_.resample(this, x, y, z);
    if (reaction_.allocated()) reaction_.resample(this, x, y, z);
    if (color_.allocated()) color_.resample(this, x, y, z);
    if (velocity_.allocated()) velocity_.resample(this, x, y, z);
    if (force_.allocated()) force_.resample(this, x, y, z);
    TvoxelGrid::setSize(x, y, z, width, height, depth);
    if (coords_.allocated()) shapeLike(coords_);
    if (!velocity_.allocated()) velocity_.setBoxOnly(x, y, z, width, height, depth);
    if (!occ_.empty()) createOccupation();
    if (turbTable_.created()) turbTable_.resample(unsigned(n), internalTurbRes_);
}

void Tfluid::extend(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f) {
    for (TfloatVoxelGrid* g :
         {static_cast<TfloatVoxelGrid*>(&density_), static_cast<TfloatVoxelGrid*>(&matter_),
          static_cast<TfloatVoxelGrid*>(&temperature_), static_cast<TfloatVoxelGrid*>(&heat_),
          static_cast<TfloatVoxelGrid*>(&reaction_)})
        if (g->allocated()) g->extend(a, b, c, d, e, f);
    if (color_.allocated()) color_.extend(a, b, c, d, e, f);
    if (force_.allocated()) force_.extend(a, b, c, d, e, f);
    if (velocity_.allocated()) velocity_.extend(a, b, c, d, e, f);
    TvoxelGrid::extend(a, b, c, d, e, f);
    if (coords_.allocated()) shapeLike(coords_);
    if (!velocity_.allocated()) velocity_.setBoxOnly(nx, ny, nz, width, height, depth);
    if (!occ_.empty()) createOccupation();
    if (turbTable_.created()) turbTable_.resample(unsigned(n), internalTurbRes_);
}

void Tfluid::setBounds(int x, int y, int z) {
    TvoxelGrid::setBounds(x, y, z);
    for (TvoxelGrid* g : {static_cast<TvoxelGrid*>(&density_), static_cast<TvoxelGrid*>(&matter_),
                          static_cast<TvoxelGrid*>(&temperature_), static_cast<TvoxelGrid*>(&heat_),
                          static_cast<TvoxelGrid*>(&reaction_), static_cast<TvoxelGrid*>(&color_),
                          static_cast<TvoxelGrid*>(&coords_), static_cast<TvoxelGrid*>(&velocity_),
                          static_cast<TvoxelGrid*>(&force_)})
        g->setBounds(x, y, z);
}

void Tfluid::reset() {
    for (TvoxelGrid* g : {static_cast<TvoxelGrid*>(&density_), static_cast<TvoxelGrid*>(&matter_),
                          static_cast<TvoxelGrid*>(&temperature_), static_cast<TvoxelGrid*>(&heat_),
                          static_cast<TvoxelGrid*>(&reaction_), static_cast<TvoxelGrid*>(&color_),
                          static_cast<TvoxelGrid*>(&coords_), static_cast<TvoxelGrid*>(&velocity_),
                          static_cast<TvoxelGrid*>(&force_)})
        g->reset();
    turbTable_.reset();
    deleteOccupation();
    TvoxelGrid::reset();
}

bool Tfluid::resOf(const TvoxelGrid& g, unsigned& x, unsigned& y, unsigned& z) {
    const auto* f = dynamic_cast<const TfloatVoxelGrid*>(&g);
    if (f && !f->allocated()) return false;
    x = g.nx;
    y = g.ny;
    z = g.nz;
    return g.n > 0;
}

bool Tfluid::dimOf(const TvoxelGrid& g, double& w, double& h, double& d) {
    const auto* f = dynamic_cast<const TfloatVoxelGrid*>(&g);
    if (f && !f->allocated()) return false;
    w = g.width;
    h = g.height;
    d = g.depth;
    return true;
}

void Tfluid::getFluidRes(unsigned& x, unsigned& y, unsigned& z) const {
    x = nx;
    y = ny;
    z = nz;
}

void Tfluid::getFluidDim(double& w, double& h, double& d) const {
    w = width;
    h = height;
    d = depth;
}

bool Tfluid::getVelocityRes(unsigned& x, unsigned& y, unsigned& z) const {
    if (!velocity_.allocated()) return false;
    x = velocity_.nx;
    y = velocity_.ny;
    z = velocity_.nz;
    return true;
}

bool Tfluid::getVelocityDim(double& w, double& h, double& d) const {
    if (!velocity_.allocated()) return false;
    w = velocity_.width;
    h = velocity_.height;
    d = velocity_.depth;
    return true;
}

void Tfluid::createOccupation() {
    std::vector<unsigned char>().swap(occ_);
    occ_.assign(n, 0);
}

// ---- Methods ----

void Tfluid::setDensityMethod(int m) {
    densityMethod_ = m;
    if (fluidUsesGrid(m)) {
        if (!density_.allocated()) shapeLike(density_);
        if (!matter_.allocated()) shapeLike(matter_);
    } else {
        density_.reset();
        matter_.reset();
    }
}

void Tfluid::setTemperatureMethod(int m) {
    temperatureMethod_ = m;
    if (fluidUsesGrid(m)) {
        if (!temperature_.allocated()) shapeLike(temperature_);
        if (!heat_.allocated()) shapeLike(heat_);
    } else {
        temperature_.reset();
        heat_.reset();
    }
}

void Tfluid::setReactionMethod(int m) {
    reactionMethod_ = m;
    if (fluidUsesGrid(m)) {
        if (!reaction_.allocated()) shapeLike(reaction_);
    } else {
        reaction_.reset();
    }
}

void Tfluid::setColorMethod(int m) {
    colorMethod_ = m;
    if (fluidUsesGrid(m)) {
        if (!color_.allocated()) shapeLike(color_);
    } else {
        color_.reset();
    }
}

void Tfluid::setCoordinateMethod(int m) {
    coordinateMethod_ = m;
    if (m == 1 || m == 2) {
        if (!coords_.allocated()) shapeLike(coords_);
    } else {
        coords_.reset();
    }
}

void Tfluid::setVelocityMethod(int m) {
    const bool had = velocity_.allocated();
    velocity_.method = m;
    if (fluidUsesGrid(m) && had) {
        velocity_.setCenter(center[0], center[1], center[2]);
        velocity_.TvoxelGrid::setSize(nx, ny, nz, width, height, depth);
        return;
    }
    sizeVelocity();
    if (turbTable_.created() && !velocity_.allocated()) turbTable_.reset();
}

void Tfluid::setViscosity(float v) {
    if (v < 1e-5f) v = 1e-5f;
    velocity_.reynolds = (1 - v) / v;
}

void Tfluid::setVelocityScale(float x, float y, float z) {
    velocity_.velocityScale[0] = x;
    velocity_.velocityScale[1] = y;
    velocity_.velocityScale[2] = z;
}

void Tfluid::setInternalTurbRes(unsigned res) {
    internalTurbRes_ = res;
    if (turbTable_.created()) turbTable_.resample(unsigned(velocity_.n), res);
}

void Tfluid::setUseInternalTurbulence(bool on) {
    useInternalTurbulence_ = on;
    if (on && !turbTable_.created()) turbTable_.create(unsigned(velocity_.n), internalTurbRes_);
}

void Tfluid::setSubVolume(const int c[3], const int s[3]) {
    for (int a = 0; a < 3; ++a) {
        subVolumeCenter_[a] = c[a];
        subVolumeSize_[a] = s[a];
    }
}

// ---- Solver and interpolators ----

bool Tfluid::setSolver(const std::string& name) {
    if (!TsolverRegistry::hasSolver(name)) return false;
    if (solver_ && solver_->solverName() && name == solver_->solverName()) return true;
    TgridSolver* s = TsolverRegistry::newSolver(name);
    if (!s) return false;
    s->ref();
    s->setInterpolator(interp_);
    if (solver_) solver_->unref();
    solver_ = s;
    return true;
}

void Tfluid::removeSolver() {
    if (solver_) solver_->unref();
    solver_ = nullptr;
}

void Tfluid::refTo(TgridInterpolator*& slot, TgridInterpolator* i) {
    if (i == slot) return;
    if (i) i->ref();
    if (slot) slot->unref();
    slot = i;
}

void Tfluid::setInterpolator(TgridInterpolator* i) {
    refTo(interp_, i);
    if (solver_) solver_->setInterpolator(i);
}

void Tfluid::setRenderInterpolator(TgridInterpolator* i) {
    refTo(renderInterp_, i);
}

// ---- Values at a cell ----

bool Tfluid::getColorValue(size_t c, float& r, float& g, float& b) const {
    if (!color_.allocated() || c >= color_.redGrid().n) return false;
    r = color_.redGrid().value(c);
    g = color_.greenGrid().value(c);
    b = color_.blueGrid().value(c);
    return true;
}

bool Tfluid::getForceValue(size_t c, T4dFltVector& f) const {
    if (!force_.allocated() || c >= force_.n) return false;
    f = T4dFltVector(force_.valueU(c), force_.valueV(c), force_.valueW(c));
    return true;
}

void Tfluid::setColorValue(size_t c, float r, float g, float b) {
    color_.blendValue(c, r, g, b, kBlendReplace);
}

void Tfluid::addColorValue(size_t c, float r, float g, float b) {
    color_.blendValue(c, r, g, b, kBlendAdd);
}

void Tfluid::setForceValue(size_t c, const T4dFltVector& f) {
    force_.setValueU(c, f.x);
    force_.setValueV(c, f.y);
    force_.setValueW(c, f.z);
}

bool Tfluid::setScalarValue(const std::string& ch, size_t c, float v) {
    TfloatVoxelGrid* g = ch == "density"       ? static_cast<TfloatVoxelGrid*>(&density_)
                         : ch == "temperature" ? static_cast<TfloatVoxelGrid*>(&temperature_)
                         : ch == "fuel"        ? static_cast<TfloatVoxelGrid*>(&reaction_)
                         : ch == "heat"        ? static_cast<TfloatVoxelGrid*>(&heat_)
                         : ch == "matter"      ? static_cast<TfloatVoxelGrid*>(&matter_)
                                               : nullptr;
    if (!g) return false;
    g->setValue(c, v);
    return true;
}

bool Tfluid::addScalarValue(const std::string& ch, size_t c, float v) {
    TfloatVoxelGrid* g = ch == "density"       ? static_cast<TfloatVoxelGrid*>(&density_)
                         : ch == "temperature" ? static_cast<TfloatVoxelGrid*>(&temperature_)
                         : ch == "fuel"        ? static_cast<TfloatVoxelGrid*>(&reaction_)
                         : ch == "heat"        ? static_cast<TfloatVoxelGrid*>(&heat_)
                         : ch == "matter"      ? static_cast<TfloatVoxelGrid*>(&matter_)
                                               : nullptr;
    if (!g) return false;
    g->addValue(c, v);
    return true;
}

bool Tfluid::setVectorValue(const std::string& ch, unsigned i, unsigned j, unsigned k,
                            const T4dFltVector& v) {
    if (ch == "velocity") {
        velocity_.setValue(v, i, j, k);
        return true;
    }
    if (i >= nx || j >= ny || k >= nz) return ch == "force" || ch == "color";
    if (ch == "force") {
        setForceValue(index(i, j, k), v);
        return true;
    }
    if (ch == "color") {
        setColorValue(index(i, j, k), v.x, v.y, v.z);
        return true;
    }
    return false;
}

bool Tfluid::addVectorValue(const std::string& ch, unsigned i, unsigned j, unsigned k,
                            const T4dFltVector& v) {
    if (ch == "velocity") {
        velocity_.addValue(v, i, j, k);
        return true;
    }
    if (i >= nx || j >= ny || k >= nz) return ch == "force" || ch == "color";
    if (ch == "force") {
        addForceValue(index(i, j, k), v);
        return true;
    }
    if (ch == "color") {
        addColorValue(index(i, j, k), v.x, v.y, v.z);
        return true;
    }
    return false;
}

// ---- Values at a point ----

float Tfluid::scalarAtPoint(const TbuffFloatFluidGrid& g, int method, float scale, const T3dFltPoint& p,
                            const unsigned* cell) const {
    if (method == kMethodConstant) return scale;
    if (method >= kMethodXGradient && method <= kMethodCenterGradient) {
        const double gx = width != 0 ? p.x / width : 0.0, gy = height != 0 ? p.y / height : 0.0,
                     gz = depth != 0 ? p.z / depth : 0.0;
        return float(fluidGradient(gx, gy, gz, method) * scale);
    }
    if (!fluidUsesGrid(method) || !g.allocated()) return 0.0f;
    const double offset = (zeroCentered_ && &g == &density_) ? 0.5 : 0.0;
    // Read straight from the array: the source terms call this once per cell.
    if (cell) return *cell < g.n ? float(double(g.array()[*cell]) * scale + offset) : float(offset);
    if (!renderInterp_) return 0.0f;
    const float v = is2d_ ? renderInterp_->interpScalar(g, nullptr, T2dFltPoint(p.x, p.y), g.array())
                          : renderInterp_->interpScalar(g, nullptr, p, g.array());
    return float(double(v) * scale + offset);
}

float Tfluid::getDensityAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    return scalarAtPoint(density_, densityMethod_, densityScale_, p, cell);
}

float Tfluid::getTemperatureAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    return scalarAtPoint(temperature_, temperatureMethod_, temperatureScale_, p, cell);
}

float Tfluid::getReactionAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    return scalarAtPoint(reaction_, reactionMethod_, reactionScale_, p, cell);
}

float Tfluid::getPressureAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    const TbuffFloatFluidGrid& g = velocity_.pressureGrid();
    if (!g.allocated()) return 0.0f;
    if (cell) return g.value(*cell);
    if (!renderInterp_) return 0.0f;
    return is2d_ ? renderInterp_->interpScalar(g, nullptr, T2dFltPoint(p.x, p.y), g.array())
                 : renderInterp_->interpScalar(g, nullptr, p, g.array());
}

T4dFltVector Tfluid::getVelocityAtPoint(const T3dFltPoint& p) const {
    T4dFltVector v;
    if (usesVelocityGrid()) {
        if (!velocity_.allocated() || !renderInterp_) return v;
        if (is2d_)
            v = renderInterp_->interpVector(*this, nullptr, T2dFltPoint(p.x, p.y), T2dFltVector(0, 0),
                                            velocity_.gridU(), velocity_.gridV(), velocity_.gridW(), nullptr,
                                            nullptr, nullptr);
        else
            v = renderInterp_->interpVector(*this, nullptr, p, T3dFltVector(0, 0, 0), velocity_.gridU(),
                                            velocity_.gridV(), velocity_.gridW(), nullptr, nullptr, nullptr);
        for (int a = 0; a < 3; ++a)
            v[a] *= velocity_.velocityScale[a];
        return v;
    }
    if (velocity_.method == kMethodOff) return v;
    velocity_.velocityAtPoint(p, v.x, v.y, v.z);
    return v;
}

float Tfluid::getSpeedAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    T4dFltVector v;
    if (cell && usesVelocityGrid() && velocity_.allocated() && nx && ny) {
        const unsigned c = *cell, i = c % nx, j = (c / nx) % ny, k = c / (nx * ny);
        velocity_.getValue(v, *this, i, j, k);
        for (int a = 0; a < 3; ++a)
            v[a] *= velocity_.velocityScale[a];
    } else {
        v = getVelocityAtPoint(p);
    }
    return float(std::sqrt(double(v.x) * v.x + double(v.y) * v.y + double(v.z) * v.z));
}

T4dFltVector Tfluid::getColorAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    if (colorMethod_ == kMethodConstant) return {colorScale_, colorScale_, colorScale_};
    if (!usesColorGrid() || !color_.allocated()) return {};
    const TbuffFloatFluidGrid* g[3] = {&color_.redGrid(), &color_.greenGrid(), &color_.blueGrid()};
    T4dFltVector out;
    for (int a = 0; a < 3; ++a) {
        float v;
        if (cell)
            v = g[a]->value(*cell);
        else if (!renderInterp_)
            v = 0.0f;
        else if (is2d_)
            v = renderInterp_->interpScalar(*g[a], nullptr, T2dFltPoint(p.x, p.y), g[a]->array());
        else
            v = renderInterp_->interpScalar(*g[a], nullptr, p, g[a]->array());
        out[a] = v * colorScale_;
    }
    return out;
}

T3dFltPoint Tfluid::getTextureCoordAtPoint(const T3dFltPoint& p, const unsigned* cell) const {
    if (!coords_.allocated() || !renderInterp_) {
        // Fixed coordinates: the position in the box, 0 to 1 per axis.
        return {float(width != 0 ? p.x / width + 0.5 : 0.5), float(height != 0 ? p.y / height + 0.5 : 0.5),
                float(depth != 0 ? p.z / depth + 0.5 : 0.5)};
    }
    auto& c = const_cast<TtexCoordGrid&>(coords_);
    if (cell) return {c.gridU().value(*cell), c.gridV().value(*cell), c.gridW().value(*cell)};
    return renderInterp_->interpPoint(c.gridU(), nullptr, p, c.gridU().array(), c.gridV().array(),
                                      c.gridW().array());
}

// ---- Lifecycle ----

void Tfluid::clear() {
    density_.clear();
    matter_.clear();
    temperature_.clear();
    heat_.clear();
    reaction_.clear();
    color_.clear();
    force_.clear();
    velocity_.clear();
    coords_.initCoordinates();
}

#include "Fluids/Core/TfluidScenes.h"

TplumeScene::TplumeScene(unsigned res) : fluid(std::make_unique<Tfluid>()) {
    Tfluid::registerSolvers();
    Tfluid& f = *fluid;
    f.setSize(res, res, res, kBoxSize, kBoxSize, kBoxSize);
    f.setBounds(kBoundBoth, kBoundBoth, kBoundBoth);
    f.setDensityMethod(kMethodGrid);
    f.setTemperatureMethod(kMethodGrid);
    f.setVelocityMethod(kMethodGrid);
    f.setSolver("Navier-Stokes");
    f.setViscosity(0.0f);
    f.setVelocitySwirl(2.0f);
    f.setBuoyancy(3.0f);
    f.setTemperatureDissipation(0.3f);
    f.setDensityDissipation(0.02f);
    f.setConserveMass(true);
    emit();
}

void TplumeScene::emit() {
    Tfluid& f = *fluid;
    float* heat = f.heatGrid().array();
    float* matter = f.matterGrid().array();
    const double r2 = sourceRadius * sourceRadius;
    for (unsigned k = 0; k < f.nz; ++k)
        for (unsigned j = 0; j < f.ny; ++j)
            for (unsigned i = 0; i < f.nx; ++i) {
                const T3dFltPoint p = f.toGridCenter(i, j, k);
                const double dx = p.x, dy = p.y - sourceHeight, dz = p.z;
                if (dx * dx + dy * dy + dz * dz > r2) continue;
                const size_t c = f.index(i, j, k);
                heat[c] = float(heatRate);
                matter[c] = float(densityRate);
            }
}

void TplumeScene::step() {
    Tfluid& f = *fluid;
    f.clearForces();
    f.update(kFrameSeconds);
    f.clearMatter();
    f.clearHeat();
    emit();
}

#include "Commands/Collisions/TdataSweptGeometry.h"

const TletterClass TdataSweptGeometry::sClass{"sweptGeometry", nullptr};

namespace {
void hold(TdynSweptGeometry* g) {
    if (g) g->setCount(g->count() + 1);
}
void release(TdynSweptGeometry* g) {
    if (!g) return;
    g->setCount(g->count() - 1);
    if (g->count() <= 0) delete g;
}
} // namespace

TdataSweptGeometry::TdataSweptGeometry() : fGeometry(new TdynSweptGeometry) {
    hold(fGeometry);
}

TdataSweptGeometry::TdataSweptGeometry(TdynSweptGeometry* g) : fGeometry(g) {
    hold(fGeometry);
}

TdataSweptGeometry::TdataSweptGeometry(const TdataSweptGeometry& o) : Tletter(o), fGeometry(o.fGeometry) {
    hold(fGeometry);
}

TdataSweptGeometry::~TdataSweptGeometry() {
    release(fGeometry);
}

void TdataSweptGeometry::setSweptGeometry(TdynSweptGeometry* g) {
    if (g == fGeometry) return;
    hold(g);
    release(fGeometry);
    fGeometry = g;
}

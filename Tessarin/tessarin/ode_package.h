#pragma once
#include "Tessarin/kelsupport/mvector.h"

namespace tessarin {

class BodySystem;

// The integrator: midpoint (0), classic Runge-Kutta (1) or adaptive Cash-Karp
// (2). A path is one step from y; interpolate() samples inside it.
class OdePackage {
public:
    int method = 2;
    double h_taken = 0;    // the last step
    double h_next = 0;     // the controller's proposal; 0 means none yet
    int rejected = 0;      // steps the controller threw away, total
    double last_error = 0; // scaled error of the last accepted adaptive step
    double h_trying = 0;   // the step being taken while its stages are evaluated

    // Takes one step from sys.y; false on an unknown method.
    bool establish_path(BodySystem& sys, double h);
    // State at t within the last path, into out.
    void interpolate(double t, mvector& out) const;
    const mvector& path() const { return k_path_; }
    const mvector& start_rate() const { return k0_; }

private:
    void size_to(int n);

    mvector y0_, k0_, k_path_, k_[6], tmp_, err_;
};

} // namespace tessarin

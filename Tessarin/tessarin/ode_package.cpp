#include "Tessarin/tessarin/ode_package.h"

#include <algorithm>
#include <cmath>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"

namespace tessarin {

namespace {
// Cash-Karp tableau.
const double a2 = 0.2, a3 = 0.3, a4 = 0.6, a5 = 1.0, a6 = 0.875;
const double b21 = 0.2;
const double b31 = 3.0 / 40.0, b32 = 9.0 / 40.0;
const double b41 = 0.3, b42 = -0.9, b43 = 1.2;
const double b51 = -11.0 / 54.0, b52 = 2.5, b53 = -70.0 / 27.0, b54 = 35.0 / 27.0;
const double b61 = 1631.0 / 55296.0, b62 = 175.0 / 512.0, b63 = 575.0 / 13824.0, b64 = 44275.0 / 110592.0,
             b65 = 253.0 / 4096.0;
const double c1 = 37.0 / 378.0, c3 = 250.0 / 621.0, c4 = 125.0 / 594.0, c6 = 512.0 / 1771.0;
const double dc1 = c1 - 2825.0 / 27648.0, dc3 = c3 - 18575.0 / 48384.0, dc4 = c4 - 13525.0 / 55296.0,
             dc5 = -277.0 / 14336.0, dc6 = c6 - 0.25;
} // namespace

void OdePackage::size_to(int n) {
    y0_.resize(n);
    k0_.resize(n);
    k_path_.resize(n);
    for (auto& k : k_)
        k.resize(n);
    tmp_.resize(n);
    err_.resize(n);
}

bool OdePackage::establish_path(BodySystem& sys, double h) {
    if (method < 0 || method > 2) {
        user_error("OdePackage::establish_path: unknown method");
        return false;
    }
    if (h < 1e-5) h = 1.1e-5;
    const int n = sys.y.size();
    size_to(n);
    y0_ = sys.y;
    const double t0 = sys.time;
    double* y0 = y0_.data();
    double* tmp = tmp_.data();

    sys.at_step_start = true;
    sys.derivative(t0, sys.y, k0_);
    sys.at_step_start = false;
    const double* k0 = k0_.data();

    h_trying = h;
    auto stage = [&](double t, const std::initializer_list<std::pair<const double*, double>>& terms,
                     double hh, mvector& out) {
        for (int i = 0; i < n; ++i) {
            double s = 0;
            for (auto& [k, w] : terms)
                s += w * k[i];
            tmp[i] = y0[i] + hh * s;
        }
        sys.derivative(t, tmp_, out);
    };

    if (method == 0) {
        stage(t0 + h / 2, {{k0, 0.5}}, h, k_[1]);
        k_path_ = k_[1];
    } else if (method == 1) {
        stage(t0 + h / 2, {{k0, 0.5}}, h, k_[1]);
        stage(t0 + h / 2, {{k_[1].data(), 0.5}}, h, k_[2]);
        stage(t0 + h, {{k_[2].data(), 1.0}}, h, k_[3]);
        const double *k1 = k_[1].data(), *k2 = k_[2].data(), *k3 = k_[3].data();
        for (int i = 0; i < n; ++i)
            k_path_[i] = (k0[i] + 2 * k1[i] + 2 * k2[i] + k3[i]) / 6;
    } else {
        if (h_next > 0) h = std::min(h, h_next);
        for (;;) {
            h_trying = h;
            stage(t0 + a2 * h, {{k0, b21}}, h, k_[1]);
            const double* k1 = k_[1].data();
            stage(t0 + a3 * h, {{k0, b31}, {k1, b32}}, h, k_[2]);
            const double* k2 = k_[2].data();
            stage(t0 + a4 * h, {{k0, b41}, {k1, b42}, {k2, b43}}, h, k_[3]);
            const double* k3 = k_[3].data();
            stage(t0 + a5 * h, {{k0, b51}, {k1, b52}, {k2, b53}, {k3, b54}}, h, k_[4]);
            const double* k4 = k_[4].data();
            stage(t0 + a6 * h, {{k0, b61}, {k1, b62}, {k2, b63}, {k3, b64}, {k4, b65}}, h, k_[5]);
            const double* k5 = k_[5].data();
            for (int i = 0; i < n; ++i) {
                k_path_[i] = c1 * k0[i] + c3 * k2[i] + c4 * k3[i] + c6 * k5[i];
                err_[i] = h * (dc1 * k0[i] + dc3 * k2[i] + dc4 * k3[i] + dc5 * k4[i] + dc6 * k5[i]);
            }
            const double e = sys.error_measure(err_);
            if (e < 1) {
                last_error = e;
                h_next = e <= 0.000189 ? h * 5 : 0.9 * h * std::pow(e, -0.2);
                break;
            }
            ++rejected;
            h = std::max(0.9 * h * std::pow(e, -0.25), 0.1 * h);
            if (h < 1e-5) {
                // Accept at the floor; the stages were taken at the larger step, so
                // take them once more at the floor without asking.
                h = 1e-5;
                h_trying = h;
                for (int i = 0; i < n; ++i)
                    tmp[i] = y0[i] + h * b21 * k0[i];
                sys.derivative(t0 + a2 * h, tmp_, k_[1]);
                stage(t0 + a3 * h, {{k0, b31}, {k_[1].data(), b32}}, h, k_[2]);
                stage(t0 + a4 * h, {{k0, b41}, {k_[1].data(), b42}, {k_[2].data(), b43}}, h, k_[3]);
                stage(t0 + a5 * h, {{k0, b51}, {k_[1].data(), b52}, {k_[2].data(), b53}, {k_[3].data(), b54}},
                      h, k_[4]);
                stage(t0 + a6 * h,
                      {{k0, b61},
                       {k_[1].data(), b62},
                       {k_[2].data(), b63},
                       {k_[3].data(), b64},
                       {k_[4].data(), b65}},
                      h, k_[5]);
                for (int i = 0; i < n; ++i)
                    k_path_[i] = c1 * k0[i] + c3 * k_[2][i] + c4 * k_[3][i] + c6 * k_[5][i];
                h_next = 2e-5;
                break;
            }
        }
    }
    h_taken = h;
    sys.time = t0 + h;
    if (!sys.probe_only)
        for (int i = 0; i < n; ++i)
            sys.y[i] = y0[i] + h * k_path_[i];
    sys.set_bodies(sys.probe_only ? y0_ : sys.y, false);
    return true;
}

void OdePackage::interpolate(double t, mvector& out) const {
    const double h = h_taken;
    if (t < 0 || t > h) warning("OdePackage:interpolate: t = %g, upper bound is %g", t, h);
    const double s = h > 0 ? t / h : 0;
    const int n = y0_.size();
    if (out.size() != n) out.resize(n);
    for (int i = 0; i < n; ++i)
        out[i] = y0_[i] + t * (1 - s) * k0_[i] + t * s * k_path_[i];
}

} // namespace tessarin

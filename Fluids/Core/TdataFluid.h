#pragma once
// Data letter that owns a fluid. Fluid state never goes into scene files, only
// through caches, so the file forms do nothing.
#include <iosfwd>
#include <memory>
#include <vector>

#include "Fluids/Core/Tfluid.h"
#include "Host/Data/TdataGeometry.h"

class TdataFluid : public TdataGeometry {
    TLETTER_CLASS(TdataFluid)
public:
    static constexpr int kApiType = 0x464c5544; // 'FLUD'

    TdataFluid() : fluid_(std::make_unique<Tfluid>()) {}
    explicit TdataFluid(const Tfluid& f) : fluid_(std::make_unique<Tfluid>(f)) {}
    TdataFluid(const TdataFluid& o) : TdataGeometry(o), fluid_(std::make_unique<Tfluid>(*o.fluid_)) {}
    TdataFluid& assign(const TdataFluid& o) {
        if (this != &o) *fluid_ = *o.fluid_;
        return *this;
    }

    Tfluid& fluid() { return *fluid_; }
    const Tfluid& constFluid() const { return *fluid_; }
    // A new letter with a clone of the fluid.
    TdataFluid* copy() const { return new TdataFluid(*this); }
    // A fresh, empty fluid.
    void reset() { fluid_ = std::make_unique<Tfluid>(); }
    int apiType() const { return kApiType; }
    const char* apiTypeString() const { return "fluid"; }

    // A fluid offers no points to geometry iterators.
    TgeometryIterator iterator() const override {
        static const std::vector<T4dDblVector> none;
        return TgeometryIterator(none);
    }

    bool readBinary(std::istream&) { return true; }
    bool writeBinary(std::ostream&) const { return true; }
    bool readASCII(std::istream&) { return true; }
    bool writeASCII(std::ostream&) const { return true; }

private:
    std::unique_ptr<Tfluid> fluid_;
};

#pragma once
// Particle data files (".pdc"): a 28-byte header and named records, all
// big-endian whatever the machine. The same files serve as disk cache and as
// exchange files.

#include "Commands/Caches/TdynExportDriver.h"

#include <cstdint>

class TdynPDCDriver : public TdynExportDriver {
public:
    const char* extension() const override { return ".pdc"; }
    const char* description() const override { return "particle data cache"; }
    int writeFrame(std::ostream& file, const TdynExportFrame& frame) override;

    static constexpr std::int32_t kFormatVersion = 1;
    static constexpr std::int32_t kByteOrderTag = 1;
    static constexpr int kHeaderBytes = 28;
};

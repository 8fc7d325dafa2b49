#pragma once
// Readers of particle data files, and where those files live: the workspace's
// "particles" directory, one file per object and time, the time's tick count
// in the name.

#include "Host/Data/TdataArrayAttrs.h"
#include "Host/Math/T4dDblVector.h"
#include "Host/Time/TanimTime.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

class TdynParticleImporter {
public:
    explicit TdynParticleImporter(const Tstring& path);
    virtual ~TdynParticleImporter();
    TdynParticleImporter(const TdynParticleImporter&) = delete;
    TdynParticleImporter& operator=(const TdynParticleImporter&) = delete;

    bool isOpen() const { return fFile != nullptr; }
    // 0, or -1 with error() set.
    virtual int readHeader() = 0;
    virtual int readAttributes() = 0;
    virtual const char* fileType() const = 0;

    std::int32_t particleCount() const { return fCount; }
    TdataArrayAttrs& arrays() { return *fArrays.as<TdataArrayAttrs>(); }
    const Tdata& arraysData() const { return fArrays; }
    const std::vector<std::pair<Tstring, std::int32_t>>& intScalars() const { return fInts; }
    const std::vector<std::pair<Tstring, double>>& doubleScalars() const { return fDoubles; }
    const std::vector<std::pair<Tstring, T4dDblVector>>& vectorScalars() const { return fVectors; }
    // What went wrong and where (path and byte offset).
    const Tstring& error() const { return fError; }
    const Tstring& path() const { return fPath; }

    // The particles directory of the current workspace, with a closing "/".
    static Tstring composePath();
    // directory + subdirectory (with "/") + object "." ticks ".pdc". An empty
    // directory means composePath().
    static Tstring fileName(const Tstring& directory, const Tstring& subdirectory, const Tstring& objectName,
                            TanimTime time);

protected:
    // Reads `length` bytes of a name, at most 63 at a time, so a name of any length fits.
    bool readString(Tstring& result, std::int32_t length);
    bool readBytes(void* into, std::size_t n);
    long long position() const { return fOffset; }
    long long remaining() const { return fSize - fOffset; }
    int failAt(const Tstring& what);
    int failAt(const Tstring& what, long long offset);
    void clearContents();

    std::FILE* fFile = nullptr;
    Tstring fPath, fError;
    long long fSize = 0, fOffset = 0;
    std::int32_t fCount = 0, fRecordCount = 0;
    Tdata fArrays;
    std::vector<std::pair<Tstring, std::int32_t>> fInts;
    std::vector<std::pair<Tstring, double>> fDoubles;
    std::vector<std::pair<Tstring, T4dDblVector>> fVectors;
};

class TdynParticleImporterPDC : public TdynParticleImporter {
public:
    using TdynParticleImporter::TdynParticleImporter;
    int readHeader() override;
    int readAttributes() override;
    const char* fileType() const override { return "PDC"; }

private:
    bool fHeaderRead = false;
};

#include "Commands/Caches/TdynParticleImporter.h"

#include "Commands/Caches/TdynBigEndian.h"

#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TworkspaceRoot.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>

TdynParticleImporter::TdynParticleImporter(const Tstring& path)
    : fPath(path), fArrays(makeData<TdataArrayAttrs>()) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (!ec && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        fError = path + ": not a regular file";
        return;
    }
    fFile = std::fopen(path.c_str(), "rb");
    if (!fFile) {
        fError = "cannot open " + path + ": " + std::strerror(errno);
        return;
    }
    if (std::fseek(fFile, 0, SEEK_END) == 0) fSize = std::ftell(fFile);
    std::fseek(fFile, 0, SEEK_SET);
    if (fSize < 0) { // a directory opens on some systems but has no length
        std::fclose(fFile);
        fFile = nullptr;
        fError = "cannot read " + path;
    }
}

TdynParticleImporter::~TdynParticleImporter() {
    if (fFile) std::fclose(fFile);
}

int TdynParticleImporter::failAt(const Tstring& what) {
    return failAt(what, fOffset);
}

int TdynParticleImporter::failAt(const Tstring& what, long long offset) {
    fError = fPath + ": " + what + " (at byte " + std::to_string(offset) + ")";
    return -1;
}

bool TdynParticleImporter::readBytes(void* into, std::size_t n) {
    if (!fFile) return false;
    if (n == 0) return true;
    if (static_cast<long long>(n) > remaining()) return false;
    const std::size_t got = std::fread(into, 1, n, fFile);
    fOffset += static_cast<long long>(got);
    return got == n;
}

bool TdynParticleImporter::readString(Tstring& result, std::int32_t length) {
    // Checked against the bytes left before any memory is taken; read in one go.
    if (length < 0 || static_cast<long long>(length) > remaining()) return false;
    result.resize(static_cast<std::size_t>(length));
    return readBytes(result.data(), result.size());
}

void TdynParticleImporter::clearContents() {
    arrays().clear();
    fInts.clear();
    fDoubles.clear();
    fVectors.clear();
}

Tstring TdynParticleImporter::composePath() {
    return TworkspaceRoot::directoryFor("particles") + "/";
}

Tstring TdynParticleImporter::fileName(const Tstring& directory, const Tstring& subdirectory,
                                       const Tstring& objectName, TanimTime time) {
    Tstring name = directory.empty() ? composePath() : directory;
    if (name.back() != '/') name += '/';
    if (!subdirectory.empty()) {
        name = subdirectory.front() == '/' ? subdirectory : name + subdirectory;
        if (name.back() != '/') name += '/';
    }
    return name + objectName + "." + std::to_string(time.ticks()) + ".pdc";
}

// ---- the .pdc reader ----

namespace {
std::uint32_t be32(const unsigned char* p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) | p[3];
}
std::uint64_t be64(const unsigned char* p) {
    std::uint64_t u = 0;
    for (int k = 0; k < 8; ++k)
        u = (u << 8) | p[k];
    return u;
}
// Turns n big-endian values into native ones where they lie.
void swapDoubles(double* values, std::size_t n) {
    TdynBigEndian::swapWords64(values, n);
}
void swapInts(std::int32_t* values, std::size_t n) {
    TdynBigEndian::swapWords32(values, n);
}
static_assert(sizeof(T4dDblVector) == 24, "vectors are read as three packed doubles");
} // namespace

int TdynParticleImporterPDC::readHeader() {
    fHeaderRead = false;
    if (!fFile) return -1;
    unsigned char h[28];
    if (!readBytes(h, sizeof h)) return failAt("the file is shorter than a particle data header");
    auto up = [](unsigned char c) { return c >= 'a' && c <= 'z' ? static_cast<unsigned char>(c - 32) : c; };
    if (up(h[0]) != 'P' || up(h[1]) != 'D' || up(h[2]) != 'C' || h[3] != ' ')
        return failAt("not a particle data file (the magic is not \"PDC \")", 0);
    // Version, byte order tag and the extras are read but not checked.
    fCount = static_cast<std::int32_t>(be32(h + 20));
    fRecordCount = static_cast<std::int32_t>(be32(h + 24));
    if (fCount < 0) return failAt("negative particle count " + std::to_string(fCount));
    if (fRecordCount < 0) return failAt("negative record count " + std::to_string(fRecordCount));
    fHeaderRead = true;
    return 0;
}

int TdynParticleImporterPDC::readAttributes() {
    if (!fHeaderRead && readHeader() != 0) return -1;
    clearContents();
    if (!fFile) return -1;
    TdataArrayAttrs& out = arrays();
    const std::size_t n = static_cast<std::size_t>(fCount);
    const TcommandEngine& engine = TcommandEngine::current();
    for (std::int32_t r = 0; r < fRecordCount; ++r) {
        // A long read stops on Ctrl-C like the rest of the program.
        if (r % 4096 == 0 && engine.interruptRequested()) return failAt("interrupted");
        const Tstring where = "record " + std::to_string(r + 1) + " of " + std::to_string(fRecordCount);
        unsigned char w[8];
        if (!readBytes(w, 4)) return failAt(where + ": the file ends before the name length");
        const std::int32_t length = static_cast<std::int32_t>(be32(w));
        if (length < 0) return failAt(where + ": negative name length " + std::to_string(length));
        Tstring name;
        if (length > remaining())
            return failAt(where + ": a name of " + std::to_string(length) +
                          " bytes runs past the end of the file (" + std::to_string(remaining()) +
                          " bytes left)");
        if (length > 0 && !readString(name, length)) return failAt(where + ": the file ends inside the name");
        if (!readBytes(w, 4)) return failAt(where + " ('" + name + "'): the file ends before the type code");
        const std::int32_t type = static_cast<std::int32_t>(be32(w));
        const Tstring what = where + " ('" + name + "')";
        auto arrayFits = [&](std::size_t bytesEach) {
            return n * bytesEach <= static_cast<std::size_t>(remaining());
        };
        switch (type) {
        case 0: {
            if (!readBytes(w, 4)) return failAt(what + ": the file ends inside the value");
            fInts.emplace_back(name, static_cast<std::int32_t>(be32(w)));
            break;
        }
        case 2: {
            if (!readBytes(w, 8)) return failAt(what + ": the file ends inside the value");
            fDoubles.emplace_back(name, std::bit_cast<double>(be64(w)));
            break;
        }
        case 4: {
            unsigned char v[24];
            if (!readBytes(v, 24)) return failAt(what + ": the file ends inside the value");
            fVectors.emplace_back(name, T4dDblVector(std::bit_cast<double>(be64(v)),
                                                     std::bit_cast<double>(be64(v + 8)),
                                                     std::bit_cast<double>(be64(v + 16))));
            break;
        }
        case 1: {
            if (!arrayFits(4))
                return failAt(what + ": " + std::to_string(n) + " values run past the end of the file");
            Tint32Array& a = out.addInt32Data(name);
            a.changeLogicalSizeTo(static_cast<unsigned>(n));
            if (!readBytes(a.data(), n * 4)) return failAt(what + ": the file ends inside the values");
            swapInts(a.data(), n);
            break;
        }
        case 3: {
            if (!arrayFits(8))
                return failAt(what + ": " + std::to_string(n) + " values run past the end of the file");
            TdoubleArray& a = out.addDoubleData(name);
            a.changeLogicalSizeTo(static_cast<unsigned>(n));
            if (!readBytes(a.data(), n * 8)) return failAt(what + ": the file ends inside the values");
            swapDoubles(a.data(), n);
            break;
        }
        case 5: {
            if (!arrayFits(24))
                return failAt(what + ": " + std::to_string(n) + " vectors run past the end of the file");
            T4dDblVectorArray& a = out.addVectorData(name);
            a.changeLogicalSizeTo(static_cast<unsigned>(n));
            if (!readBytes(a.data(), n * 24)) return failAt(what + ": the file ends inside the values");
            swapDoubles(reinterpret_cast<double*>(a.data()), n * 3);
            break;
        }
        default:
            break; // an unknown type has no values we know of: the next bytes are the next record
        }
    }
    return 0;
}

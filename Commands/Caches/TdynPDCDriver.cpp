#include "Commands/Caches/TdynPDCDriver.h"

#include "Commands/Caches/TdynBigEndian.h"

#include "Host/Command/TcommandEngine.h"

#include <bit>
#include <cstring>
#include <ostream>

namespace {

static_assert(sizeof(T4dDblVector) == 3 * sizeof(double), "vectors are written as three packed doubles");

// Big-endian bytes into a block that goes out in large writes; the shifts are
// what keeps the output the same on every machine.
class TbigEndianSink {
public:
    explicit TbigEndianSink(std::ostream& out) : fOut(out) {}
    void i32(std::int32_t v) {
        reserve(4);
        put32(static_cast<std::uint32_t>(v));
    }
    void f64(double v) {
        reserve(8);
        put64(std::bit_cast<std::uint64_t>(v));
    }
    void bytes(const char* p, std::size_t n) {
        while (n > 0) {
            reserve(1);
            const std::size_t k = std::min(n, kSize - fUsed);
            std::memcpy(fBuffer + fUsed, p, k);
            fUsed += k;
            p += k;
            n -= k;
        }
    }
    // n doubles; missing ones (past `have`) are zeros. Whole blocks at a time.
    void doubles(const double* v, unsigned have, unsigned n) {
        std::size_t m = std::min(have, n);
        while (m > 0) {
            reserve(8);
            const std::size_t k = std::min(m, (kSize - fUsed) / 8);
            TdynBigEndian::storeDoubles(reinterpret_cast<unsigned char*>(fBuffer + fUsed), v, k);
            fUsed += k * 8;
            v += k;
            m -= k;
        }
        zeros(std::size_t(n - std::min(have, n)) * 8);
    }
    void ints(const std::int32_t* v, unsigned have, unsigned n) { // as doubles
        const unsigned m = std::min(have, n);
        for (unsigned i = 0; i < m; ++i) {
            reserve(8);
            put64(std::bit_cast<std::uint64_t>(static_cast<double>(v[i])));
        }
        zeros(std::size_t(n - m) * 8);
    }
    void zeros(std::size_t n) {
        while (n > 0) {
            reserve(1);
            const std::size_t k = std::min(n, kSize - fUsed);
            std::memset(fBuffer + fUsed, 0, k);
            fUsed += k;
            n -= k;
        }
    }
    bool flush() {
        if (fUsed) fOut.write(fBuffer, static_cast<std::streamsize>(fUsed));
        fUsed = 0;
        return static_cast<bool>(fOut);
    }
    bool good() const { return static_cast<bool>(fOut); }

private:
    void reserve(std::size_t n) {
        if (fUsed + n > kSize) flush();
    }
    void put32(std::uint32_t u) {
        unsigned char* p = reinterpret_cast<unsigned char*>(fBuffer + fUsed);
        p[0] = static_cast<unsigned char>(u >> 24);
        p[1] = static_cast<unsigned char>(u >> 16);
        p[2] = static_cast<unsigned char>(u >> 8);
        p[3] = static_cast<unsigned char>(u);
        fUsed += 4;
    }
    void put64(std::uint64_t u) {
        unsigned char* p = reinterpret_cast<unsigned char*>(fBuffer + fUsed);
        for (int k = 0; k < 8; ++k)
            p[k] = static_cast<unsigned char>(u >> (56 - 8 * k));
        fUsed += 8;
    }

    static constexpr std::size_t kSize = 1 << 16;
    std::ostream& fOut;
    char fBuffer[kSize];
    std::size_t fUsed = 0;
};

} // namespace

int TdynPDCDriver::writeFrame(std::ostream& file, const TdynExportFrame& frame) {
    if (!file) return fail("the file is not open for writing");
    const unsigned n = static_cast<unsigned>(frame.count < 0 ? 0 : frame.count);
    auto sink = std::make_unique<TbigEndianSink>(file); // 64 KB: off the stack
    sink->bytes("PDC ", 4);
    sink->i32(kFormatVersion);
    sink->i32(kByteOrderTag);
    sink->i32(0);
    sink->i32(0);
    sink->i32(static_cast<std::int32_t>(n));
    sink->i32(static_cast<std::int32_t>(frame.columns.size()));
    for (const TdynExportColumn& c : frame.columns) {
        sink->i32(static_cast<std::int32_t>(c.name.size()));
        sink->bytes(c.name.data(), c.name.size());
        switch (c.kind) {
        case TdynExportColumn::kIntScalar:
            sink->i32(0);
            sink->i32(static_cast<std::int32_t>(c.scalar[0]));
            break;
        case TdynExportColumn::kDoubleScalar:
            sink->i32(2);
            sink->f64(c.scalar[0]);
            break;
        case TdynExportColumn::kVectorScalar:
            sink->i32(4);
            for (double v : c.scalar)
                sink->f64(v);
            break;
        case TdynExportColumn::kDoubleArray:
            sink->i32(3);
            sink->doubles(c.doubles, c.length, n);
            break;
        case TdynExportColumn::kIntArray: // integer arrays are kept as doubles
            sink->i32(3);
            sink->ints(c.ints, c.length, n);
            break;
        case TdynExportColumn::kVectorArray:
            sink->i32(5);
            sink->doubles(reinterpret_cast<const double*>(c.vectors), c.length * 3, n * 3);
            break;
        }
        if (!sink->good()) return fail(TmessageTable::text(4716) + "at record '" + c.name + "'");
    }
    if (!sink->flush()) return fail(TmessageTable::text(4716) + "at the end of the file");
    return 0;
}

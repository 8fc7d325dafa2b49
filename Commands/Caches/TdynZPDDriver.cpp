#include "Commands/Caches/TdynExportDriver.h"
#include "Host/Command/TcommandEngine.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <ostream>

double TdynZPDDriver::clockSeconds() const {
    if (fClockSet) return fClock;
    if (const char* epoch = std::getenv("SOURCE_DATE_EPOCH"); epoch && *epoch)
        return std::strtod(epoch, nullptr);
    return static_cast<double>(std::time(nullptr));
}

namespace {

// Native byte order: this format is a plain dump. Undefined bytes are zeros so
// that the same state gives the same file.
template <class T> void put(std::string& out, T v) {
    char b[sizeof(T)];
    std::memcpy(b, &v, sizeof(T));
    out.append(b, sizeof(T));
}
template <class T> void putAt(char* base, std::size_t offset, T v) {
    std::memcpy(base + offset, &v, sizeof(T));
}

constexpr std::int32_t kMagic = 670;

} // namespace

int TdynZPDDriver::writeFrame(std::ostream& file, const TdynExportFrame& frame) {
    if (!file) return fail("the file is not open for writing");
    const std::int32_t n = frame.count < 0 ? 0 : frame.count;

    // Which columns make records: a real array of another length than the count is left out.
    std::vector<const TdynExportColumn*> records;
    for (const TdynExportColumn& c : frame.columns) {
        if (c.kind == TdynExportColumn::kDoubleArray && c.length != static_cast<unsigned>(n)) continue;
        records.push_back(&c);
    }

    char header[60] = {};
    putAt<std::int32_t>(header, 0, kMagic);
    putAt<std::int16_t>(header, 4, 1);
    putAt<float>(header, 8, 1.0f);
    putAt<float>(header, 12, static_cast<float>(clockSeconds()));
    putAt<std::int32_t>(header, 16, n);
    putAt<std::int32_t>(header, 20, static_cast<std::int32_t>(records.size()));
    file.write(header, sizeof header);

    std::string out;
    for (const TdynExportColumn* c : records) {
        std::int32_t kind = 2, elementSize = 4, length = n;
        switch (c->kind) {
        case TdynExportColumn::kVectorArray:
            kind = 1;
            elementSize = 12;
            length = static_cast<std::int32_t>(c->length);
            break;
        case TdynExportColumn::kVectorScalar:
            kind = 1;
            elementSize = 12;
            break;
        case TdynExportColumn::kIntArray:
            kind = 3;
            length = static_cast<std::int32_t>(c->length);
            break;
        case TdynExportColumn::kIntScalar:
            kind = 3;
            break;
        default:
            break; // reals, arrays of the count's length and repeated scalars
        }
        out.clear();
        char tag[6] = {0, 0, 0, 0, 0, static_cast<char>(kind)};
        putAt<std::int16_t>(tag, 2, 1);
        out.append(tag, 6);
        char desc[36] = {};
        putAt<std::int32_t>(desc, 4, kind);
        putAt<std::int32_t>(desc, 8, length);
        putAt<std::int32_t>(desc, 16, length - 1);
        out.append(desc, 36);
        out.append(c->name);
        out.push_back('\0');
        char head[20] = {};
        putAt<std::int32_t>(head, 0, kind);
        putAt<std::int32_t>(head, 4, elementSize);
        putAt<std::int32_t>(head, 8, length);
        putAt<std::int32_t>(head, 12, 1);
        out.append(head, 20);
        out.reserve(out.size() + std::size_t(length) * static_cast<std::size_t>(elementSize));
        for (std::int32_t i = 0; i < length; ++i) {
            switch (c->kind) {
            case TdynExportColumn::kVectorArray:
                for (int k = 0; k < 3; ++k)
                    put<float>(out, TdynASCIIDriver::limitToFloat(c->vectors[i][k]));
                break;
            case TdynExportColumn::kVectorScalar:
                for (double s : c->scalar)
                    put<float>(out, TdynASCIIDriver::limitToFloat(s));
                break;
            case TdynExportColumn::kDoubleArray:
                put<float>(out, TdynASCIIDriver::limitToFloat(c->doubles[i]));
                break;
            case TdynExportColumn::kDoubleScalar:
                put<float>(out, TdynASCIIDriver::limitToFloat(c->scalar[0]));
                break;
            case TdynExportColumn::kIntArray:
                put<std::int32_t>(out, c->ints[i]);
                break;
            case TdynExportColumn::kIntScalar:
                put<std::int32_t>(out, static_cast<std::int32_t>(c->scalar[0]));
                break;
            }
        }
        file.write(out.data(), static_cast<std::streamsize>(out.size()));
        if (!file) return fail(TmessageTable::text(4716) + "at '" + c->name + "'");
    }
    if (!file) return fail(TmessageTable::text(4716) + "at the end of the file");
    return 0;
}

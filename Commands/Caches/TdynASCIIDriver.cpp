#include "Commands/Caches/TdynExportDriver.h"
#include "Host/Command/TcommandEngine.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <ostream>

float TdynASCIIDriver::limitToFloat(double v) {
    constexpr double kMax = std::numeric_limits<float>::max();
    if (std::isnan(v)) return std::numeric_limits<float>::quiet_NaN();
    if (v > kMax) return std::numeric_limits<float>::max();
    if (v < -kMax) return -std::numeric_limits<float>::max();
    return static_cast<float>(v);
}

void TdynASCIIDriver::appendFloat(std::string& out, double value) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, limitToFloat(value));
    out.append(buf, r.ptr);
}

namespace {
void appendInt(std::string& out, long long v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
}
} // namespace

int TdynASCIIDriver::writeFrame(std::ostream& file, const TdynExportFrame& frame) {
    if (!file) return fail("the file is not open for writing");
    const unsigned n = static_cast<unsigned>(frame.count < 0 ? 0 : frame.count);
    std::string text = "ATTRIBUTES\n";
    for (const TdynExportColumn& c : frame.columns) {
        // The identifiers keep the short names other readers expect, blank and all.
        if (c.name == "particleId")
            text += " id ";
        else if (c.name == "particleId0")
            text += " id0 ";
        else
            text += " " + c.name;
    }
    text += "\nTYPES\n";
    for (const TdynExportColumn& c : frame.columns) {
        switch (c.kind) {
        case TdynExportColumn::kVectorArray:
        case TdynExportColumn::kVectorScalar:
            text += " V";
            break;
        case TdynExportColumn::kIntArray:
        case TdynExportColumn::kIntScalar:
            text += " I";
            break;
        default:
            text += " R";
            break;
        }
    }
    text += "\nNUMBER_OF_PARTICLES: ";
    appendInt(text, n);
    text += "\nBEGIN DATA\n";
    for (unsigned i = 0; i < n; ++i) {
        for (const TdynExportColumn& c : frame.columns) {
            switch (c.kind) {
            case TdynExportColumn::kVectorArray: {
                const T4dDblVector v = i < c.length ? c.vectors[i] : T4dDblVector();
                for (int k = 0; k < 3; ++k) {
                    appendFloat(text, v[k]);
                    text += ' ';
                }
                break;
            }
            case TdynExportColumn::kVectorScalar:
                for (double s : c.scalar) {
                    appendFloat(text, s);
                    text += ' ';
                }
                break;
            case TdynExportColumn::kDoubleArray:
                appendFloat(text, i < c.length ? c.doubles[i] : 0.0);
                text += ' ';
                break;
            case TdynExportColumn::kDoubleScalar:
                appendFloat(text, c.scalar[0]);
                text += ' ';
                break;
            case TdynExportColumn::kIntArray:
                appendInt(text, i < c.length ? c.ints[i] : 0);
                text += ' ';
                break;
            case TdynExportColumn::kIntScalar:
                appendInt(text, static_cast<long long>(c.scalar[0]));
                text += ' ';
                break;
            }
        }
        text += '\n';
        if (text.size() > (1u << 16)) { // write in blocks, not the whole file at once
            file.write(text.data(), static_cast<std::streamsize>(text.size()));
            text.clear();
            if (!file) return fail(TmessageTable::text(4716) + "at particle " + std::to_string(i));
        }
    }
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file) return fail(TmessageTable::text(4716) + "at the end of the file");
    return 0;
}

#include "Host/Files/TiffFile.h"

#include <bit>
#include <cstring>
#include <limits>

std::string iffTagText(TiffTag tag) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = static_cast<unsigned char>((tag >> shift) & 0xff);
        if (c >= 32 && c < 127) {
            out += static_cast<char>(c);
        } else {
            static const char* hex = "0123456789abcdef";
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

// ---- writing ----

void TiffWriter::putU32(std::uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8)
        fBytes.push_back(static_cast<char>((v >> shift) & 0xff));
}

void TiffWriter::putI64(std::int64_t v) {
    const auto u = static_cast<std::uint64_t>(v);
    putU32(static_cast<std::uint32_t>(u >> 32));
    putU32(static_cast<std::uint32_t>(u));
}

void TiffWriter::putF64(double v) {
    putI64(std::bit_cast<std::int64_t>(v));
}

void TiffWriter::putF64s(const double* values, std::size_t count) {
    const std::size_t at = fBytes.size();
    fBytes.resize(at + 8 * count);
    char* out = fBytes.data() + at;
    for (std::size_t i = 0; i < count; ++i) {
        const auto u = std::bit_cast<std::uint64_t>(values[i]);
        for (int k = 0; k < 8; ++k)
            out[8 * i + static_cast<std::size_t>(k)] = static_cast<char>(u >> (56 - 8 * k));
    }
}

void TiffWriter::putString(std::string_view s) {
    putU32(static_cast<std::uint32_t>(s.size()));
    fBytes.append(s);
}

void TiffWriter::openChunk(TiffTag tag) {
    putU32(tag);
    fOpen.push_back(fBytes.size());
    putU32(0);
}

void TiffWriter::closeChunk() {
    const std::size_t at = fOpen.back();
    fOpen.pop_back();
    const std::size_t size = fBytes.size() - at - 4;
    if (size > std::numeric_limits<std::uint32_t>::max())
        throw TiffError("a chunk of " + std::to_string(size) + " bytes is more than a tagged file can hold");
    for (int k = 0; k < 4; ++k)
        fBytes[at + k] = static_cast<char>((size >> (24 - 8 * k)) & 0xff);
}

void TiffWriter::beginGroup(TiffTag type) {
    openChunk(kIffGroupTag);
    putU32(type);
}

void TiffWriter::endGroup() {
    closeChunk();
}

void TiffWriter::beginChunk(TiffTag tag) {
    openChunk(tag);
}

void TiffWriter::endChunk() {
    closeChunk();
}

// ---- reading ----

namespace {
std::uint32_t readU32(const char* p) {
    std::uint32_t v = 0;
    for (int k = 0; k < 4; ++k)
        v = (v << 8) | static_cast<unsigned char>(p[k]);
    return v;
}
} // namespace

TiffReader::TiffReader(std::string_view bytes, std::string file, std::size_t base)
    : fBytes(bytes), fFile(std::move(file)), fBase(base) {}

void TiffReader::fail(std::size_t offset, const std::string& what) const {
    throw TiffError(fFile + ": at byte " + std::to_string(offset) + ": " + what);
}

bool TiffReader::next(Chunk& chunk) {
    if (fPos == fBytes.size()) return false;
    const std::size_t at = fBase + fPos;
    if (fBytes.size() - fPos < 8) fail(at, "the file ends inside a chunk header");
    chunk.tag = readU32(fBytes.data() + fPos);
    const std::uint32_t size = readU32(fBytes.data() + fPos + 4);
    if (size > fBytes.size() - fPos - 8)
        fail(at, "chunk '" + iffTagText(chunk.tag) + "' says " + std::to_string(size) + " bytes, but " +
                     std::to_string(fBytes.size() - fPos - 8) + " are left");
    chunk.offset = at;
    chunk.data = fBytes.substr(fPos + 8, size);
    chunk.groupType = 0;
    if (chunk.tag == kIffGroupTag) {
        if (size < 4) fail(at, "a group without a type");
        chunk.groupType = readU32(chunk.data.data());
        chunk.data = chunk.data.substr(4);
    }
    fPos += 8 + size;
    return true;
}

TiffReader TiffReader::inside(const Chunk& group) const {
    return TiffReader(group.data, fFile, group.offset + 12);
}

TiffFields::TiffFields(const TiffReader& reader, const TiffReader::Chunk& chunk)
    : fReader(&reader), fChunk(chunk) {}

void TiffFields::fail(const std::string& what) const {
    fReader->fail(fChunk.offset + 8 + fPos, "in chunk '" + iffTagText(fChunk.tag) + "': " + what);
}

const char* TiffFields::take(std::size_t n) {
    if (fChunk.data.size() - fPos < n) fail("the chunk ends early");
    const char* p = fChunk.data.data() + fPos;
    fPos += n;
    return p;
}

std::uint8_t TiffFields::u8() {
    return static_cast<std::uint8_t>(*take(1));
}

std::uint32_t TiffFields::u32() {
    return readU32(take(4));
}

std::int64_t TiffFields::i64() {
    const char* p = take(8);
    const std::uint64_t u = (static_cast<std::uint64_t>(readU32(p)) << 32) | readU32(p + 4);
    return static_cast<std::int64_t>(u);
}

double TiffFields::f64() {
    return std::bit_cast<double>(i64());
}

std::string TiffFields::string() {
    const std::size_t n = count(1);
    const char* p = take(n);
    return std::string(p, n);
}

std::size_t TiffFields::count(std::size_t itemBytes) {
    const std::uint32_t n = u32();
    const std::size_t left = fChunk.data.size() - fPos;
    if (itemBytes > 0 && n > left / itemBytes)
        fail("a count of " + std::to_string(n) + " needs " + std::to_string(std::uint64_t(n) * itemBytes) +
             " bytes, but " + std::to_string(left) + " are left");
    return n;
}

void TiffFields::finish() const {
    if (!atEnd()) fail(std::to_string(fChunk.data.size() - fPos) + " bytes more than its fields");
}

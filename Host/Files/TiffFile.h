#pragma once
// Tagged chunk files. A chunk is a four-character tag, a 32-bit big-endian
// size and that many bytes; a group is a "FORM" chunk whose bytes begin with a
// four-character type and go on with chunks of its own. Numbers are
// big-endian. Scene files are written in it, and caches can be.

#include "Host/Graph/Tattribute.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

constexpr TiffTag kIffGroupTag = makeIffTag("FORM");

// The tag as text: its four characters, unprintable ones as \xNN.
std::string iffTagText(TiffTag tag);

// What does not fit in a tagged file; the message names the file and the offset.
class TiffError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class TiffWriter {
public:
    void beginGroup(TiffTag type);
    void endGroup();
    void beginChunk(TiffTag tag);
    void endChunk();

    void putU8(std::uint8_t v) { fBytes.push_back(static_cast<char>(v)); }
    void putU32(std::uint32_t v);
    void putI32(std::int32_t v) { putU32(static_cast<std::uint32_t>(v)); }
    void putI64(std::int64_t v);
    void putF64(double v);
    void putString(std::string_view s);
    // Many numbers at once (arrays): one allocation, not one a byte.
    void putF64s(const double* values, std::size_t count);

    const std::string& bytes() const { return fBytes; }

private:
    void openChunk(TiffTag tag);
    void closeChunk();
    std::string fBytes;
    std::vector<std::size_t> fOpen; // where each open chunk's size goes
};

// Reads the chunks of one level in order.
class TiffReader {
public:
    struct Chunk {
        TiffTag tag = 0;
        TiffTag groupType = 0;  // for a group
        std::size_t offset = 0; // of the chunk's tag in the file
        std::string_view data;  // the bytes after the size (a group's: after its type)
    };
    // `base` is where `bytes` start in the file, for messages.
    TiffReader(std::string_view bytes, std::string file, std::size_t base = 0);
    // The next chunk, false at the end; a size that does not fit throws.
    bool next(Chunk& chunk);
    // The chunks inside a group.
    TiffReader inside(const Chunk& group) const;
    [[noreturn]] void fail(std::size_t offset, const std::string& what) const;
    const std::string& file() const { return fFile; }

private:
    std::string_view fBytes;
    std::string fFile;
    std::size_t fBase;
    std::size_t fPos = 0;
};

// Reads the fields of one chunk, each checked against the bytes left.
class TiffFields {
public:
    TiffFields(const TiffReader& reader, const TiffReader::Chunk& chunk);
    std::uint8_t u8();
    std::uint32_t u32();
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    std::int64_t i64();
    double f64();
    std::string string();
    // A count of items of `itemBytes` each that must fit in what is left.
    std::size_t count(std::size_t itemBytes);
    bool atEnd() const { return fPos == fChunk.data.size(); }
    // Fails unless every byte was read.
    void finish() const;
    [[noreturn]] void fail(const std::string& what) const;

private:
    const char* take(std::size_t n);
    const TiffReader* fReader;
    TiffReader::Chunk fChunk;
    std::size_t fPos = 0;
};

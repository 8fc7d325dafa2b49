#pragma once
// Export drivers: one output format each behind one interface. A driver turns
// an object's state at the current time into the bytes of one file.

#include "Commands/Caches/TdynExportFrame.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

class TdynParticleShape;
class Tattribute;

class TdynExportDriver {
public:
    virtual ~TdynExportDriver();
    // Whether an attribute can go into this format's files.
    virtual bool canExport(const Tattribute* attribute) const;
    // The names to write: `requested` when given (those that can be exported, in
    // order), else every exportable per-particle array of the object.
    virtual void gatherAttributeNames(TdynParticleShape& object, const std::vector<Tstring>& requested,
                                      std::vector<Tstring>& names,
                                      std::vector<Tstring>* refused = nullptr) const;
    virtual void setFirstFrame(double frame) { fFirstFrame = frame; }
    virtual void setLastFrame(double frame) { fLastFrame = frame; }
    // Called once before the first file.
    virtual void prepare() {}
    // Reads the object at the current time and writes one file. 0, or -1 with error() set.
    virtual int writeAttributes(std::ostream& file, TdynParticleShape& object,
                                const std::vector<Tstring>& names);
    virtual const char* extension() const = 0;
    // The frame of the graph's current time.
    virtual double currentFrame() const;
    virtual const char* description() const = 0;

    // One whole file at `path`: written under a temporary name and renamed into
    // place, so a failure leaves no half-written file. 0, or -1 with error() set.
    int writeFile(const Tstring& path, TdynParticleShape& object, const std::vector<Tstring>& names);

    // The format itself, over a plain frame. 0, or -1 with error() set.
    virtual int writeFrame(std::ostream& file, const TdynExportFrame& frame) = 0;

    const Tstring& error() const { return fError; }
    double firstFrame() const { return fFirstFrame; }
    double lastFrame() const { return fLastFrame; }

    // The driver for a `-format` word ("binary", "pdb", "ascii", "pda", "cache",
    // "pdc"), or null for an unknown word.
    static std::unique_ptr<TdynExportDriver> forFormat(const Tstring& word);

protected:
    int fail(Tstring text) {
        fError = std::move(text);
        return -1;
    }
    Tstring fError;
    double fFirstFrame = 0, fLastFrame = 0;
};

// Plain text: a header naming the attributes and their kinds, then one line per particle.
class TdynASCIIDriver : public TdynExportDriver {
public:
    const char* extension() const override { return ".pda"; }
    const char* description() const override { return "particle data, text"; }
    int writeFrame(std::ostream& file, const TdynExportFrame& frame) override;
    // A double as the text format prints it: narrowed to a float (limited to the
    // float range), shortest form that reads back to the same float.
    static void appendFloat(std::string& out, double value);
    static float limitToFloat(double value);
};

// Native binary: a 60-byte header and one record per array, in the machine's byte order.
class TdynZPDDriver : public TdynExportDriver {
public:
    const char* extension() const override { return ".pdb"; }
    const char* description() const override { return "particle data, binary"; }
    int writeFrame(std::ostream& file, const TdynExportFrame& frame) override;
    // Seconds written in the header; the system clock unless set (SOURCE_DATE_EPOCH
    // in the environment also fixes it, so that builds of data repeat).
    void setClock(double seconds) {
        fClock = seconds;
        fClockSet = true;
    }

private:
    double clockSeconds() const;
    double fClock = 0;
    bool fClockSet = false;
};

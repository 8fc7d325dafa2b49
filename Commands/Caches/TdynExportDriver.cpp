#include "Commands/Caches/TdynExportDriver.h"

#include "Commands/Caches/TdynPDCDriver.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Files/TatomicFile.h"
#include "Host/Graph/TdependGraph.h"

#include <algorithm>
#include <ctime>
#include <ostream>

TdynExportDriver::~TdynExportDriver() = default;

bool TdynExportDriver::canExport(const Tattribute* a) const {
    if (!a || a->name() == "uvSetTweakLocation") return false;
    if (a->type() == TattrType::Typed) {
        if (a->hasFlag(Tattribute::kInternal) || a->isArray() || a->letterClasses().size() != 1) return false;
        const TletterClass* c = a->letterClasses().front();
        return c == &TdataDoubleArray::sClass || c == &TdataVectorArray::sClass;
    }
    switch (a->type()) {
    case TattrType::Double:
    case TattrType::Float:
    case TattrType::Int16:
    case TattrType::Int32:
    case TattrType::Byte:
    case TattrType::Boolean:
    case TattrType::Enum:
        break;
    default:
        return false;
    }
    if (a->isElementOfArray()) return false; // one value per object, not per element
    return a->hasFlag(Tattribute::kStorable) && !a->hasFlag(Tattribute::kInternal) &&
           a->name() != "levelOfDetail";
}

void TdynExportDriver::gatherAttributeNames(TdynParticleShape& object, const std::vector<Tstring>& requested,
                                            std::vector<Tstring>& names,
                                            std::vector<Tstring>* refused) const {
    names.clear();
    if (!requested.empty()) {
        for (const Tstring& r : requested) {
            const Tattribute* a = object.attribute(r);
            if (a && canExport(a)) {
                if (std::find(names.begin(), names.end(), a->name()) == names.end())
                    names.push_back(a->name());
            } else if (refused) {
                refused->push_back(r);
            }
        }
        return;
    }
    std::vector<Tattribute*> arrays = object.perParticleArrays(false);
    std::reverse(arrays.begin(), arrays.end()); // the object's own order
    for (const Tattribute* a : arrays)
        if (canExport(a)) names.push_back(a->name());
}

int TdynExportDriver::writeAttributes(std::ostream& file, TdynParticleShape& object,
                                      const std::vector<Tstring>& names) {
    TdynExportFrame frame;
    Tstring why;
    if (!frame.gather(object, names, why)) return fail(TmessageTable::text(4715) + why);
    return writeFrame(file, frame);
}

int TdynExportDriver::writeFile(const Tstring& path, TdynParticleShape& object,
                                const std::vector<Tstring>& names) {
    TatomicFile out(path);
    if (!out.isOpen()) return fail("cannot write " + path + ": " + out.openError());
    if (writeAttributes(out.stream(), object, names) != 0) return fail(path + ": " + fError);
    if (std::string why; !out.commit(why)) return fail(TmessageTable::text(4716) + why);
    return 0;
}

double TdynExportDriver::currentFrame() const {
    return TdependGraph::hasCurrent() ? TdependGraph::sTime().frames() : 0.0;
}

std::unique_ptr<TdynExportDriver> TdynExportDriver::forFormat(const Tstring& word) {
    if (word == "binary" || word == "pdb") return std::make_unique<TdynZPDDriver>();
    if (word == "ascii" || word == "pda") return std::make_unique<TdynASCIIDriver>();
    if (word == "cache" || word == "pdc") return std::make_unique<TdynPDCDriver>();
    return nullptr;
}

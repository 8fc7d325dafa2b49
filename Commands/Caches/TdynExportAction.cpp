#include "Commands/Caches/TdynExportAction.h"

#include "Commands/Caches/TdynExportDriver.h"
#include "Commands/Caches/TdynParticleImporter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynObjectLookup.h"
#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Files/TatomicFile.h" // makeDirectories
#include "Host/Graph/TdependGraph.h"

#include <cmath>
#include <sstream>

MOTILANE_REGISTER_COMMAND("dynExport", TdynExportAction);

namespace {

const bool kMessages = [] {
    TmessageTable::set(4709, "the frame range can't be used: ");
    TmessageTable::set(4712, "give the directory to export into with -path");
    TmessageTable::set(4715, "cannot read the attribute to export: ");
    TmessageTable::set(4716, "writing the exported data failed: ");
    return true;
}();

std::string number(double v) {
    std::ostringstream o;
    o << v;
    return o.str();
}

} // namespace

Tstring TdynExportAction::exportFileName(const Tstring& directory, const Tstring& objectName, TanimTime time,
                                         const char* extension) {
    Tstring name = TdynParticleImporter::fileName(directory, "", objectName, time);
    return name.substr(0, name.size() - 4) + extension; // the naming rule, with this format's extension
}

int TdynExportAction::doIt(const TargList& args) {
    (void)kMessages;
    TcommandEngine& engine = TcommandEngine::current();
    engine.clearResult();
    Tsyntax s;
    s.addFlag("p", "path", {TargType::String});
    s.addFlag("mnf", "minFrame", {TargType::Double});
    s.addFlag("mxf", "maxFrame", {TargType::Double});
    s.addFlag("os", "overSampling", {TargType::Int});
    s.addFlag("atr", "attribute", {TargType::String});
    s.makeFlagMultiUse("atr");
    s.addFlag("f", "format", {TargType::String});
    s.addFlag("all", "allObjects");
    s.addFlag("oup", "onlyUpdateParticles");
    s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
    TargDatabase db(s, args);
    auto has = [&](const char* f) { return db.isFlagSet(f); };
    auto error = [&](const std::string& text) {
        engine.displayError("dynExport: " + text);
        return -1;
    };

    if (!has("p") || db.flagArgumentString("p").empty()) return error(TmessageTable::text(4712));
    const Tstring path = db.flagArgumentString("p");
    const Tstring format = has("f") ? db.flagArgumentString("f") : Tstring("binary");
    std::unique_ptr<TdynExportDriver> driver = TdynExportDriver::forFormat(format);
    if (!driver)
        return error("unknown format '" + format + "': use binary (pdb), ascii (pda) or cache (pdc)");

    TdependGraph& graph = TdependGraph::current();
    const TanimTime startTime = graph.time();
    const double now = startTime.frames();
    const double first = has("mnf") ? db.flagArgumentDouble("mnf") : now;
    const double last = has("mxf") ? db.flagArgumentDouble("mxf") : std::max(first, has("mnf") ? first : now);
    if (!std::isfinite(first) || !std::isfinite(last) || first > last)
        return error(TmessageTable::text(4709) + "-minFrame " + number(first) + " is after -maxFrame " +
                     number(last));
    const int samples = has("os") ? db.flagArgumentInt("os") : 1;
    if (samples < 1) return error("-overSampling must be 1 or more, not " + std::to_string(samples));

    std::vector<TdynParticleShape*> objects;
    if (has("all")) {
        for (TdependNode* n : graph.nodes())
            if (auto* p = TdynParticleShape::cast(n)) objects.push_back(p);
    }
    for (const std::string& o : db.objects()) {
        TdynParticleShape* p = particleShapeNamed(o);
        if (!p) return error("'" + o + "' is not a particle object");
        if (std::find(objects.begin(), objects.end(), p) == objects.end()) objects.push_back(p);
    }
    if (objects.empty()) return error("name the particle objects to export, or use -allObjects");

    std::vector<Tstring> requested;
    for (std::size_t u = 0; u < db.flagUseCount("atr"); ++u)
        requested.push_back(db.flagArgumentString("atr", u));
    std::vector<std::vector<Tstring>> names(objects.size());
    for (std::size_t i = 0; i < objects.size(); ++i) {
        std::vector<Tstring> refused;
        driver->gatherAttributeNames(*objects[i], requested, names[i], &refused);
        for (const Tstring& r : refused)
            engine.displayWarning("dynExport: " + objects[i]->name() + " has no attribute '" + r +
                                  "' that can be exported; it is left out");
    }

    Tstring directory = TdynParticleImporter::composePath();
    directory = path.front() == '/' ? path : directory + path;
    if (directory.back() != '/') directory += '/';
    if (std::string why; !makeDirectories(directory, why)) return error(why);

    driver->setFirstFrame(first);
    driver->setLastFrame(last);
    driver->prepare();
    const bool onlyParticles = has("oup");
    // The times to write: each frame and its over-samples, none past the last frame.
    std::vector<TanimTime> times;
    const long long frames = static_cast<long long>(std::floor(last - first + 1e-9)) + 1;
    for (long long f = 0; f < frames; ++f)
        for (int k = 0; k < samples; ++k) {
            const TanimTime t(first + static_cast<double>(f) + static_cast<double>(k) / samples,
                              kCurrentFrameUnit);
            if (t.frames() <= last + 1e-9) times.push_back(t);
        }
    std::vector<std::string> written;
    int status = 0;
    const long long total = static_cast<long long>(times.size());
    for (long long done = 0; done < total && status == 0; ++done) {
        const TanimTime t = times[static_cast<std::size_t>(done)];
        if (engine.interruptRequested()) {
            status = error("interrupted at frame " + number(t.frames()) + "; the files written are whole");
            break;
        }
        // Only the particle objects, or the whole scene as a redraw would.
        graph.setTime(t, !onlyParticles);
        for (std::size_t i = 0; i < objects.size() && status == 0; ++i) {
            const Tstring file = exportFileName(directory, objects[i]->name(), t, driver->extension());
            if (driver->writeFile(file, *objects[i], names[i]) != 0) {
                status = error(driver->error());
                break;
            }
            written.push_back(file);
        }
        engine.progress("dynExport", done + 1, total);
    }
    graph.setTime(startTime, true);
    if (status != 0) return status;
    engine.setResult(written);
    return 0;
}

#include "Commands/Caches/TdynExportAction.h"

#include "Commands/Caches/TdynExportDriver.h"
#include "Commands/Caches/TdynParticleImporter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynObjectLookup.h"
#include "Commands/Scene/TdynStatic.h"
#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Files/TatomicFile.h" // makeDirectories
#include "Host/Graph/TdependGraph.h"
#include "Host/Time/TanimInfo.h"

#include <cmath>
#include <filesystem>
#include <numeric>
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

// One export writes at most this many files.
constexpr long long kMostFiles = 1'000'000;

void setOverSamples(TdynGlobals& g, int n) {
    auto* vs = TdynGlobals::sVsData();
    TstandaloneValue value(&vs->overSamples);
    value.handle().set(static_cast<std::int32_t>(n));
    g.setCachedValue(Tplug(&g, &vs->overSamples), value.handle(), TdgContext::fsNormal);
}

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
    if (!TanimTime::fits(first, kCurrentFrameUnit) || !TanimTime::fits(last, kCurrentFrameUnit))
        return error("-minFrame " + number(first) + " or -maxFrame " + number(last) +
                     " is beyond the times the clock holds");
    if (!std::isfinite(first) || !std::isfinite(last) || first > last)
        return error(TmessageTable::text(4709) + "-minFrame " + number(first) + " is after -maxFrame " +
                     number(last));
    const int samples = has("os") ? db.flagArgumentInt("os") : 1;
    if (samples < 1) return error("-overSampling must be 1 or more, not " + std::to_string(samples));
    // Samples fall on ticks, and the simulation steps on every one of them and on its own steps as
    // playing does: both must fill a frame exactly.
    const std::int64_t frameTicks = TanimTime(1.0, kCurrentFrameUnit).ticks();
    const int played = TdynStatic::activeGlobalsOverSampling();
    if (frameTicks % samples != 0)
        return error("-overSampling " + std::to_string(samples) + " does not divide a frame (" +
                     std::to_string(frameTicks) +
                     " ticks), so its samples would not fall on the frame's steps");
    const std::int64_t steps = std::lcm<std::int64_t>(samples, played);
    if (frameTicks % steps != 0)
        return error("-overSampling " + std::to_string(samples) + " and the scene's " +
                     std::to_string(played) + " steps a frame need " + std::to_string(steps) +
                     " steps a frame, which do not divide a frame (" + std::to_string(frameTicks) +
                     " ticks); export with a number of samples that does");

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
    // An export stopped hard (killed) leaves its file in hand as OBJECT.TIME.EXT.partial; the next export
    // of the same objects into the same place clears them.
    {
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(directory, ec)) {
            const std::string leaf = entry.path().filename().string();
            const std::string tail = std::string(driver->extension()) + ".partial";
            if (leaf.size() <= tail.size() || leaf.compare(leaf.size() - tail.size(), tail.size(), tail) != 0)
                continue;
            for (TdynParticleShape* o : objects)
                if (leaf.rfind(o->name() + ".", 0) == 0) {
                    std::filesystem::remove(entry.path(), ec);
                    break;
                }
        }
    }

    // The times to write: each frame and its samples, none past the last frame; counted, not listed.
    const TanimTime firstTime(first, kCurrentFrameUnit), lastTime(last, kCurrentFrameUnit);
    const std::int64_t sampleTicks = frameTicks / samples;
    const long long total = (lastTime.ticks() - firstTime.ticks()) / sampleTicks + 1;
    const long long files = static_cast<long long>(objects.size()) * total;
    if (files > kMostFiles)
        return error("the range and samples make " + std::to_string(files) + " files, more than the " +
                     std::to_string(kMostFiles) +
                     " one export writes; export a shorter range or fewer samples");

    driver->setFirstFrame(first);
    driver->setLastFrame(last);
    driver->prepare();
    const bool onlyParticles = has("oup");
    std::vector<std::string> written;
    int status = 0;
    // Steps as fine as the samples need, for the length of the export.
    TdynGlobals* globals = TdynGlobals::activeGlobalsNode(false);
    const int saved = globals ? globals->overSamples() : 1;
    if (globals && steps != played) setOverSamples(*globals, static_cast<int>(steps));
    // The state at the first frame is what playing the scene gives: played frame by frame from where time
    // stands, or from the start of the playback range when the range lies behind it.
    TanimTime from = startTime;
    if (firstTime < startTime) {
        from = std::min(TanimInfo::currAnimInfo().startTime(), firstTime);
        graph.setTime(from, !onlyParticles);
    }
    for (TanimTime t = from + TanimTime::fromTicks(frameTicks); t < firstTime && status == 0;
         t = t + TanimTime::fromTicks(frameTicks)) {
        if (engine.interruptRequested())
            status = error("interrupted at frame " + number(t.frames()) + " before the export began");
        else
            graph.setTime(t, !onlyParticles);
    }
    for (long long done = 0; done < total && status == 0; ++done) {
        const TanimTime t = firstTime + TanimTime::fromTicks(sampleTicks * done);
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
    if (status != 0) engine.progress("dynExport", -1, total);
    if (globals && steps != played) setOverSamples(*globals, saved);
    graph.setTime(startTime, true);
    if (status != 0) return status;
    engine.setResult(written);
    return 0;
}

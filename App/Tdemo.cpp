#include "Tdemo.h"
#include "TdemoScript.h"
#include "Tprogress.h"

#include "Commands/Caches/TdynExportAction.h"
#include "Commands/Caches/TdynPDCDriver.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Dag/Ttransform.h"
#include "Host/Files/TatomicFile.h"
#include "Host/Script/TscriptValue.h"
#include "Host/Session/Tsession.h"
#include "Host/Time/TanimInfo.h"

#include <cmath>
#include <filesystem>
#include <iostream>
#include <vector>

int runDemo(const TdemoOptions& options) {
    Tsession session;
    if (!session.runText(kDemoScript, "demo.mls", false)) return 1;

    std::string error;
    if (!makeDirectories(options.outDir, error)) {
        std::cerr << "// Error: " << error << " //\n";
        return 1;
    }
    const double start = TanimInfo::currAnimInfo().startTime().valueInThisUnit(kCurrentFrameUnit);
    const double end = options.frames > 0
                           ? start + options.frames - 1
                           : TanimInfo::currAnimInfo().endTime().valueInThisUnit(kCurrentFrameUnit);
    auto* ball = Ttransform::cast(session.graph().findNode("ball"));
    if (!ball) {
        std::cerr << "// Error: the demo scene has no 'ball' //\n";
        return 1;
    }

    auto* spray = TdynParticleShape::cast(session.graph().findNode("sprayShape"));
    if (!spray) {
        std::cerr << "// Error: the demo scene has no particle object 'spray' //\n";
        return 1;
    }

    // Particles the emitters make: the fountain, the flakes the sheet sheds, and the shards the fountain's
    // drops split into.
    std::vector<TdynParticleShape*> emitted;
    for (const char* name : {"fountainShape", "flakesShape", "shardsShape"}) {
        auto* p = TdynParticleShape::cast(session.graph().findNode(name));
        if (!p) {
            std::cerr << "// Error: the demo scene has no particle object '" << name << "' //\n";
            return 1;
        }
        emitted.push_back(p);
    }

    const std::string path = (std::filesystem::path(options.outDir) / "ball_positions.txt").string();
    TatomicFile file(path);
    file.stream() << "# frame x y z (world position of ball)\n";
    const std::string particlePath =
        (std::filesystem::path(options.outDir) / "particle_positions.txt").string();
    TatomicFile particles(particlePath);
    particles.stream() << "# frame id x y z (position of each particle of spray)\n";
    // Every object's state per frame as particle data files, as dynExport writes them.
    const std::string pdcDir = (std::filesystem::path(options.outDir) / "particles").string() + "/";
    if (!makeDirectories(pdcDir, error)) {
        std::cerr << "// Error: " << error << " //\n";
        return 1;
    }
    const std::string emittedPath =
        (std::filesystem::path(options.outDir) / "emitted_positions.txt").string();
    TatomicFile emittedText(emittedPath);
    emittedText.stream()
        << "# frame object id x y z (position of each particle of fountain, flakes and shards)\n";
    TdynPDCDriver pdc;
    const std::vector<Tstring> pdcNames{"position", "velocity", "particleId", "age"};
    Tprogress progress("demo", static_cast<int>(end - start + 1), options.quiet);
    for (double f = start; f <= end; f += 1.0) {
        if (Tsession::interruptFlag()) {
            std::cerr << "// Error: interrupted; " << path << " was not written //\n";
            return 1;
        }
        session.graph().setTime(TanimTime(f, kCurrentFrameUnit), true);
        T4dDblVector p = ball->worldMatrix().getTranslation();
        file.stream() << formatScriptNumber(f) << ' ' << formatScriptNumber(p.x) << ' '
                      << formatScriptNumber(p.y) << ' ' << formatScriptNumber(p.z) << '\n';
        const T4dDblVectorArray* pos = spray->vectorArrayValue(TdynParticleShape::sVsData()->position);
        const TdoubleArray* ids = spray->doubleArrayValue(TdynParticleShape::sVsData()->particleId);
        for (unsigned i = 0; pos && i < pos->length(); ++i) {
            const T4dDblVector& q = (*pos)[i];
            particles.stream() << formatScriptNumber(f) << ' '
                               << formatScriptNumber(ids && i < ids->length() ? (*ids)[i] : double(i)) << ' '
                               << formatScriptNumber(q.x) << ' ' << formatScriptNumber(q.y) << ' '
                               << formatScriptNumber(q.z) << '\n';
        }
        const std::string pdcPath = TdynExportAction::exportFileName(
            pdcDir, spray->name(), TanimTime(f, kCurrentFrameUnit), pdc.extension());
        if (pdc.writeFile(pdcPath, *spray, pdcNames) != 0) {
            std::cerr << "// Error: " << pdc.error() << " //\n";
            return 1;
        }
        for (TdynParticleShape* obj : emitted) {
            const T4dDblVectorArray* q = obj->vectorArrayValue(TdynParticleShape::sVsData()->position);
            const TdoubleArray* pid = obj->doubleArrayValue(TdynParticleShape::sVsData()->particleId);
            for (unsigned i = 0; q && i < q->length(); ++i)
                emittedText.stream() << formatScriptNumber(f) << ' ' << obj->name() << ' '
                                     << formatScriptNumber(pid && i < pid->length() ? (*pid)[i] : double(i))
                                     << ' ' << formatScriptNumber((*q)[i].x) << ' '
                                     << formatScriptNumber((*q)[i].y) << ' ' << formatScriptNumber((*q)[i].z)
                                     << '\n';
            const std::string pdcFile = TdynExportAction::exportFileName(
                pdcDir, obj->name(), TanimTime(f, kCurrentFrameUnit), pdc.extension());
            if (pdc.writeFile(pdcFile, *obj, pdcNames) != 0) {
                std::cerr << "// Error: " << pdc.error() << " //\n";
                return 1;
            }
        }
        progress.step();
    }
    progress.done();
    if (!file.commit(error) || !particles.commit(error) || !emittedText.commit(error)) {
        std::cerr << "// Error: " << error << " //\n";
        return 1;
    }
    std::cout
        << "Demo written to " << std::filesystem::absolute(options.outDir).string() << ":\n  "
        << std::filesystem::absolute(path).string() << " (world position of the ball, frames "
        << formatScriptNumber(start) << " to " << formatScriptNumber(end) << ")\n  "
        << std::filesystem::absolute(particlePath).string() << " (positions of the particles of spray)\n  "
        << std::filesystem::absolute(emittedPath).string()
        << " (positions of the particles of the fountain, the flakes the sheet sheds, and the shards the"
           " fountain splits into on its second bounce)\n  "
        << std::filesystem::absolute(pdcDir).string()
        << " (particle data of every object, one .pdc file a frame each)\n";
    return 0;
}

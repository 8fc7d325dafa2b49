#include "Host/Session/Tsession.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Graph/TdnTime.h"
#include "Host/SceneCommands/TplugPath.h"
#include "Host/Time/TanimInfo.h"

#include <fstream>
#include <sstream>
#include <vector>

std::atomic<bool>& Tsession::interruptFlag() {
    static std::atomic<bool> flag{false};
    return flag;
}

namespace {
std::vector<std::function<void()>>& sceneOpenedCallbacks() {
    static std::vector<std::function<void()>> callbacks;
    return callbacks;
}
} // namespace

void Tsession::addSceneOpenedCallback(std::function<void()> callback) {
    sceneOpenedCallbacks().push_back(std::move(callback));
}

void Tsession::notifySceneOpened() {
    for (const auto& c : sceneOpenedCallbacks())
        c();
}

Tsession::Tsession() {
    fPreviousGraph = TdependGraph::hasCurrent() ? &TdependGraph::current() : nullptr;
    fGraph = std::make_unique<TdependGraph>();
    TdependGraph::setCurrent(fGraph.get());
    TmodelList::reset();
    fEngine = std::make_unique<TcommandEngine>();
    TcommandEngine::setCurrent(fEngine.get());
    fInterpreter = std::make_unique<TscriptInterpreter>(*fEngine);
    fInterpreter->setInterruptFlag(&interruptFlag());
    fEngine->setInterruptFlag(&interruptFlag());
    fEngine->setInterpreter(*fInterpreter);
    fEngine->setSelectionProvider([] {
        std::vector<std::string> names;
        for (TdependNode* n : TmodelList::activeModel()->activeList())
            names.push_back(n->name());
        return names;
    });
    fEngine->setObjectExistsCheck([this](const std::string& name) {
        try {
            parsePlug(*fGraph, name, false);
            return true;
        } catch (const std::exception&) {
            return false;
        }
    });
    // A new scene starts in film frames over the default range, at its start, with its time node:
    // nothing of an earlier scene's timing carries over.
    TtimeUnit::setCurrent(kFilm);
    TanimInfo::currAnimInfo().setRange(TanimTime(1.0, kFilm), TanimTime(120.0, kFilm));
    fGraph->timeNode();
    fGraph->setTime(TanimInfo::currAnimInfo().startTime(), false);
    notifySceneOpened();
}

Tsession::~Tsession() {
    TmodelList::reset();
    TcommandEngine::setCurrent(nullptr);
    fInterpreter.reset();
    fEngine.reset();
    fGraph.reset();
    TdependGraph::setCurrent(fPreviousGraph);
}

bool Tsession::runFile(const std::string& path, bool echo) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fEngine->error(TsourceLocation{path, 0}, "cannot read the script file");
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    return runText(text.str(), path, echo);
}

bool Tsession::runText(const std::string& text, const std::string& name, bool echo) {
    return fInterpreter->run(text, name, echo);
}

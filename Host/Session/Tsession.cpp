#include "Host/Session/Tsession.h"
#include "Host/Command/TworkspaceRoot.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Graph/TdnTime.h"
#include "Host/SceneCommands/TplugPath.h"
#include "Host/Time/TanimInfo.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
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

namespace {
Tsession* gCurrent = nullptr;
} // namespace

Tsession* Tsession::current() {
    return gCurrent;
}

Tsession::Tsession() {
    fPreviousSession = gCurrent;
    gCurrent = this;
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
    // The current graph, not this session's: a scene being opened is current before it is ours.
    fEngine->setObjectExistsCheck([](const std::string& name) {
        try {
            parsePlug(TdependGraph::current(), name, false);
            return true;
        } catch (const std::exception&) {
            return false;
        }
    });
    startSceneSettings();
    notifySceneOpened();
}

void Tsession::startSceneSettings() {
    // A new scene starts in film frames over the default range, at its start, with its time node:
    // nothing of an earlier scene's timing carries over.
    if (TtimeUnit::current() != kFilm) TtimeUnit::setCurrent(kFilm);
    TanimInfo::currAnimInfo().setRange(TanimTime(1.0, kFilm), TanimTime(120.0, kFilm));
    TdependGraph& g = TdependGraph::current();
    g.timeNode();
    g.setTime(TanimInfo::currAnimInfo().startTime(), false);
}

void Tsession::replaceScene(const std::function<void()>& build) {
    // What a failed build gives back.
    const TtimeUnitSystem unit = TtimeUnit::current();
    const TanimTime start = TanimInfo::currAnimInfo().startTime();
    const TanimTime end = TanimInfo::currAnimInfo().endTime();
    const std::vector<TdependNode*> selection = TmodelList::activeModel()->activeList();
    std::vector<std::pair<std::string, std::string>> rules;
    for (const std::string& rule : TworkspaceRoot::fileRuleNames())
        rules.emplace_back(rule, TworkspaceRoot::fileRule(rule));

    auto fresh = std::make_unique<TdependGraph>();
    TdependGraph::setCurrent(fresh.get());
    TmodelList::reset();
    try {
        startSceneSettings();
        fEngine->setUndoSuspended(true);
        build();
        fEngine->setUndoSuspended(false);
    } catch (...) {
        fEngine->setUndoSuspended(false);
        // The half-built scene goes while it is still current, as a session's does.
        TmodelList::reset();
        fresh.reset();
        TdependGraph::setCurrent(fGraph.get());
        if (TtimeUnit::current() != unit) TtimeUnit::setCurrent(unit);
        TanimInfo::currAnimInfo().setRange(start, end);
        TmodelList::activeModel()->setActiveList(selection);
        for (const auto& [rule, directory] : rules)
            TworkspaceRoot::setFileRule(rule, directory);
        throw;
    }
    // Undo steps name nodes of the old scene.
    fEngine->undoManager().flush();
    std::unique_ptr<TdependGraph> old = std::move(fGraph);
    fGraph = std::move(fresh);
    old.reset();
    notifySceneOpened();
    markUnmodified();
}

Tsession::~Tsession() {
    gCurrent = fPreviousSession;
    TmodelList::reset();
    TcommandEngine::setCurrent(nullptr);
    fInterpreter.reset();
    fEngine.reset();
    fGraph.reset();
    TdependGraph::setCurrent(fPreviousGraph);
}

bool Tsession::runFile(const std::string& path, bool echo) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (!ec && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        fEngine->displayError("cannot read the script file " + path + ": not a regular file");
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fEngine->displayError("cannot read the script file " + path + ": " + std::strerror(errno));
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    return runText(text.str(), path, echo);
}

bool Tsession::runText(const std::string& text, const std::string& name, bool echo) {
    return fInterpreter->run(text, name, echo);
}

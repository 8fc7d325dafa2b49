#include "Host/Command/TundoManager.h"

#include <algorithm>

namespace {

struct ReplayGuard {
    bool& flag;
    explicit ReplayGuard(bool& f) : flag(f) { flag = true; }
    ~ReplayGuard() { flag = false; }
};

} // namespace

TundoChunk::TundoChunk(std::string name, std::vector<std::unique_ptr<TcommandObject>> commands)
    : fName(std::move(name)), fCommands(std::move(commands)) {
    setOkayForUndo(true, 0);
}

int TundoChunk::undoIt() {
    for (auto it = fCommands.rbegin(); it != fCommands.rend(); ++it) {
        if (int status = (*it)->undoIt()) return status;
        (*it)->setUndone(true);
    }
    setUndone(true);
    return 0;
}

int TundoChunk::redoIt() {
    for (auto& command : fCommands) {
        if (int status = command->redoIt()) return status;
        command->setUndone(false);
    }
    setUndone(false);
    return 0;
}

void TundoManager::open(const std::string& name) {
    if (fDepth == 0) {
        fOpen = Chunk{};
        fExplicitName = false;
        fLevels.clear();
    }
    fLevels.push_back(Level{fOpen.commands.size(), name});
    ++fDepth;
}

void TundoManager::openChunk(const std::string& name) {
    open(name);
    if (!name.empty() && !fExplicitName) {
        fOpen.name = name;
        fExplicitName = true;
    }
}

void TundoManager::beginCommandGroup(const TargList& call) {
    open({});
    fGroupCall = &call;
}

void TundoManager::endCommandGroup() {
    fGroupCall = nullptr;
    closeChunk();
}

bool TundoManager::closeChunk() {
    if (fDepth == 0) return false;
    fLevels.pop_back();
    if (--fDepth == 0) {
        if (!fOpen.commands.empty()) commit(std::move(fOpen));
        fOpen = Chunk{};
        fGroupCall = nullptr;
    }
    return true;
}

TcommandObject* TundoManager::closeAndReturnChunk() {
    if (fDepth == 0) return nullptr;
    const Level level = fLevels.back();
    const std::size_t start = std::min(level.start, fOpen.commands.size());
    std::vector<std::unique_ptr<TcommandObject>> inner;
    for (std::size_t i = start; i < fOpen.commands.size(); ++i)
        inner.push_back(std::move(fOpen.commands[i]));
    fOpen.commands.resize(start);
    TcommandObject* result = nullptr;
    if (!inner.empty()) {
        std::string name = level.name.empty() ? inner.front()->commandString() : level.name;
        auto chunk = std::make_unique<TundoChunk>(std::move(name), std::move(inner));
        chunk->setStored(true);
        result = chunk.get();
        fOpen.commands.push_back(std::move(chunk));
    }
    closeChunk();
    return result;
}

bool TundoManager::storeCommand(std::unique_ptr<TcommandObject> command) {
    if (!command || command->isStored()) {
        // Already in the queue: this pointer must not delete it.
        (void)command.release();
        return false;
    }
    // Commands an undo or redo runs in turn are part of what is replayed.
    if (!fOn || fReplaying) return false;
    command->setStored(true);
    if (fDepth > 0) {
        if (fOpen.commands.empty() && !fExplicitName)
            fOpen.name = fGroupCall ? fGroupCall->toString() : command->commandString();
        fOpen.commands.push_back(std::move(command));
        fRedo.clear();
        return true;
    }
    Chunk chunk;
    chunk.name = command->commandString();
    chunk.commands.push_back(std::move(command));
    fRedo.clear();
    commit(std::move(chunk));
    return true;
}

bool TundoManager::storeCommand(TcommandObject* command) {
    if (!command || command->isStored()) return false;
    return storeCommand(std::unique_ptr<TcommandObject>(command));
}

void TundoManager::commit(Chunk chunk) {
    if (chunk.name.empty() && !chunk.commands.empty()) chunk.name = chunk.commands.front()->commandString();
    // Not the redo queue: what a closing chunk holds may be redone steps.
    fUndo.push_back(std::move(chunk));
    trim();
}

void TundoManager::trim() {
    while (fUndo.size() > limit())
        fUndo.pop_front();
}

bool TundoManager::undo() {
    if (fReplaying) return false;
    Chunk chunk;
    if (!fOpen.commands.empty()) {
        chunk.commands.push_back(std::move(fOpen.commands.back()));
        fOpen.commands.pop_back();
        chunk.name = chunk.commands.front()->commandString();
        for (Level& level : fLevels)
            level.start = std::min(level.start, fOpen.commands.size());
    } else if (!fUndo.empty()) {
        chunk = std::move(fUndo.back());
        fUndo.pop_back();
    } else {
        return false;
    }
    ReplayGuard guard(fReplaying);
    for (auto it = chunk.commands.rbegin(); it != chunk.commands.rend(); ++it) {
        try {
            int status = (*it)->undoIt();
            if (status != 0) throw TfailedException(status);
        } catch (...) {
            fRedo.clear();
            throw;
        }
        (*it)->setUndone(true);
    }
    fRedo.push_back(std::move(chunk));
    return true;
}

bool TundoManager::redo() {
    if (fRedo.empty() || fReplaying) return false;
    ReplayGuard guard(fReplaying);
    Chunk chunk = std::move(fRedo.back());
    fRedo.pop_back();
    for (auto& command : chunk.commands) {
        try {
            int status = command->redoIt();
            if (status != 0) throw TfailedException(status);
        } catch (...) {
            fRedo.clear();
            throw;
        }
        command->setUndone(false);
    }
    if (fDepth > 0) {
        if (fOpen.commands.empty() && !fExplicitName) fOpen.name = chunk.name;
        for (auto& command : chunk.commands)
            fOpen.commands.push_back(std::move(command));
    } else {
        fUndo.push_back(std::move(chunk));
        trim();
    }
    return true;
}

std::string TundoManager::undoName() const {
    if (!fOpen.commands.empty()) return fOpen.commands.back()->commandString();
    return fUndo.empty() ? std::string() : fUndo.back().name;
}

std::string TundoManager::redoName() const {
    return fRedo.empty() ? std::string() : fRedo.back().name;
}

void TundoManager::setState(bool on) {
    if (!on) flush();
    fOn = on;
}

void TundoManager::setInfinite(bool on) {
    fInfinite = on;
    trim();
}

void TundoManager::setLength(std::size_t chunks) {
    fLength = chunks;
    trim();
}

void TundoManager::flush() {
    fUndo.clear();
    fRedo.clear();
    fOpen.commands.clear();
    for (Level& level : fLevels)
        level.start = 0;
}

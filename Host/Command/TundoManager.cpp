#include "Host/Command/TundoManager.h"

void TundoManager::openChunk(const std::string& name) {
    if (fDepth == 0) {
        fOpen = Chunk{};
        fExplicitName = false;
    }
    if (!name.empty() && !fExplicitName) {
        fOpen.name = name;
        fExplicitName = true;
    }
    ++fDepth;
}

void TundoManager::beginCommandGroup(const TargList& call) {
    if (fDepth == 0) {
        fOpen = Chunk{};
        fExplicitName = false;
    }
    fGroupCall = &call;
    ++fDepth;
}

void TundoManager::endCommandGroup() {
    fGroupCall = nullptr;
    closeChunk();
}

bool TundoManager::closeChunk() {
    if (fDepth == 0) return false;
    if (--fDepth == 0 && !fOpen.commands.empty()) commit(std::move(fOpen));
    if (fDepth == 0) {
        fOpen = Chunk{};
        fGroupCall = nullptr;
    }
    return true;
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
    commit(std::move(chunk));
    return true;
}

bool TundoManager::storeCommand(TcommandObject* command) {
    if (!command || command->isStored()) return false;
    return storeCommand(std::unique_ptr<TcommandObject>(command));
}

void TundoManager::commit(Chunk chunk) {
    if (chunk.name.empty() && !chunk.commands.empty()) chunk.name = chunk.commands.front()->commandString();
    fUndo.push_back(std::move(chunk));
    fRedo.clear();
    trim();
}

void TundoManager::trim() {
    while (fUndo.size() > limit())
        fUndo.pop_front();
}

namespace {
struct ReplayGuard {
    bool& flag;
    explicit ReplayGuard(bool& f) : flag(f) { flag = true; }
    ~ReplayGuard() { flag = false; }
};
} // namespace

bool TundoManager::undo() {
    if (fUndo.empty() || fReplaying) return false;
    ReplayGuard guard(fReplaying);
    Chunk chunk = std::move(fUndo.back());
    fUndo.pop_back();
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
    fUndo.push_back(std::move(chunk));
    trim();
    return true;
}

std::string TundoManager::undoName() const {
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
}

#pragma once
// The undo queue: chunks of commands, undone newest first.

#include "Host/Command/TargList.h"
#include "Host/Command/TcommandObject.h"

#include <cstddef>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <vector>

class TundoManager {
public:
    static constexpr std::size_t kInfinite = std::numeric_limits<std::size_t>::max();

    TundoManager() = default;
    TundoManager(const TundoManager&) = delete;
    TundoManager& operator=(const TundoManager&) = delete;

    // Everything stored until the matching closeChunk becomes one undo step.
    // Nestable; the first name given wins. Without one the chunk is named
    // after the top-level command that stored into it first.
    void openChunk(const std::string& name = {});
    void openChunk(const TargList& args) { openChunk(args.toString()); }
    // The engine's own group around one top-level call. The call's text is
    // only made when something is stored, so `call` must live until the
    // matching endCommandGroup.
    void beginCommandGroup(const TargList& call);
    void endCommandGroup();
    // False when no chunk was open.
    bool closeChunk();
    std::size_t openDepth() const { return fDepth; }

    // Takes the command into the queue (into the open chunk, or as a chunk of
    // its own). Returns false, and drops the command, when undo is off.
    // A new command drops whatever could have been redone.
    bool storeCommand(std::unique_ptr<TcommandObject> command);
    // For a command that stores itself (an interactive tool's finalize): the
    // queue takes ownership, so it must have been made with new.
    bool storeCommand(TcommandObject* command);

    // True while undo or redo runs commands; what those commands run in turn
    // is not stored again.
    bool isReplaying() const { return fReplaying; }

    // Each gives false when there was nothing to do. A command that fails to
    // undo or redo throws; its chunk is dropped with the whole redo queue,
    // since what follows it can no longer be trusted.
    bool undo();
    bool redo();

    bool canUndo() const { return !fUndo.empty(); }
    bool canRedo() const { return !fRedo.empty(); }
    // Names of the chunks undo and redo would act on; empty when none.
    std::string undoName() const;
    std::string redoName() const;
    std::size_t undoCount() const { return fUndo.size(); }
    std::size_t redoCount() const { return fRedo.size(); }
    // Commands waiting in the open chunk.
    std::size_t pendingCount() const { return fOpen.commands.size(); }

    // Turning undo off flushes the queues: they would no longer match the scene.
    void setState(bool on);
    bool state() const { return fOn; }
    // With infinity on (the default) every chunk is kept; otherwise the
    // newest `length` ones.
    void setInfinite(bool on);
    bool infinite() const { return fInfinite; }
    void setLength(std::size_t chunks);
    std::size_t length() const { return fLength; }
    std::size_t limit() const { return fInfinite ? kInfinite : fLength; }

    void flush();

private:
    struct Chunk {
        std::string name;
        std::vector<std::unique_ptr<TcommandObject>> commands;
    };

    void commit(Chunk chunk);
    void trim();

    std::deque<Chunk> fUndo;  // oldest first
    std::vector<Chunk> fRedo; // next to redo last
    Chunk fOpen;
    std::size_t fDepth = 0;
    bool fExplicitName = false;
    bool fReplaying = false;
    const TargList* fGroupCall = nullptr;
    bool fOn = true;
    bool fInfinite = true;
    std::size_t fLength = 50;
};

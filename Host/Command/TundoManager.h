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

// Commands that go back and forth together, as one command.
class TundoChunk : public TcommandObject {
public:
    TundoChunk(std::string name, std::vector<std::unique_ptr<TcommandObject>> commands);
    int doIt(const TargList&) override { return 0; }
    int undoIt() override; // newest first
    int redoIt() override; // in the order they first ran
    std::string commandString() const override { return fName; }
    std::size_t size() const { return fCommands.size(); }

private:
    std::string fName;
    std::vector<std::unique_ptr<TcommandObject>> fCommands;
};

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
    // False when no chunk was open.
    bool closeChunk();
    // Closes the innermost chunk and gives what was stored since it opened as
    // one command, which then stands in the queue (or in the enclosing chunk)
    // as a single entry: a following undo takes back exactly that. The queue
    // keeps ownership. Null when nothing was stored.
    TcommandObject* closeAndReturnChunk();
    std::size_t openDepth() const { return fDepth; }

    // The engine's own group around one top-level call. The call's text is
    // only made when something is stored, so `call` must live until the
    // matching endCommandGroup.
    void beginCommandGroup(const TargList& call);
    void endCommandGroup();

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

    // Undo takes back the newest entry: while a chunk is open and holds
    // commands, its last command; otherwise the last closed chunk. Redo runs
    // the last undone step again (into the open chunk, if one is open).
    // Each gives false when there was nothing to do. A command that fails to
    // undo or redo throws; its step is dropped with the whole redo queue,
    // since what follows it can no longer be trusted.
    bool undo();
    bool redo();

    bool canUndo() const { return !fOpen.commands.empty() || !fUndo.empty(); }
    bool canRedo() const { return !fRedo.empty(); }
    // Names of the steps undo and redo would act on; empty when none.
    std::string undoName() const;
    std::string redoName() const;
    // Closed chunks only.
    std::size_t undoCount() const { return fUndo.size(); }
    std::size_t redoCount() const { return fRedo.size(); }
    // Commands waiting in the open chunk.
    std::size_t pendingCount() const { return fOpen.commands.size(); }

    // Turning undo off flushes the queues: they would no longer match the scene.
    void setState(bool on);
    bool state() const { return fOn; }
    // With infinity on every chunk is kept; otherwise (the default) the
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
    // Where a chunk opened inside the outermost one starts, and its name.
    struct Level {
        std::size_t start = 0;
        std::string name;
    };

    void open(const std::string& name);
    void commit(Chunk chunk);
    void trim();

    std::deque<Chunk> fUndo;  // oldest first
    std::vector<Chunk> fRedo; // next to redo last
    Chunk fOpen;
    std::vector<Level> fLevels; // one per open chunk, outermost first
    std::size_t fDepth = 0;
    bool fExplicitName = false;
    bool fReplaying = false;
    const TargList* fGroupCall = nullptr;
    bool fOn = true;
    // A long script keeps its memory bounded: the newest 1000 steps, unless told otherwise.
    bool fInfinite = false;
    std::size_t fLength = 1000;
};

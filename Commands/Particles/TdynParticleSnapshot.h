#pragma once
// What commands that edit particles in place (setParticleAttr, emit, addPP,
// saveInitialState) need to be undone: the arrays, identifiers and added
// attributes of every particle object, held by reference so that only what
// the command changes is ever copied.

#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Command/TargList.h"
#include "Host/Command/TcommandObject.h"

#include <map>
#include <memory>
#include <vector>

// Attributes taken off a node by an undo, kept for the redo that puts them back.
using TdynAttributePool = std::map<Tattribute*, std::unique_ptr<Tattribute>>;

class TdynParticleSnapshot {
public:
    explicit TdynParticleSnapshot(std::shared_ptr<TdynAttributePool> pool);
    // Brings every particle object back to this snapshot: added attributes it lacked go (into the pool),
    // ones it had come back (from the pool), and every array and identifier is put back.
    void restore() const;

private:
    struct Object {
        TdynParticleShape* shape;
        std::vector<Tattribute*> added;
        std::vector<std::pair<Tattribute*, Tdata>> arrays;
        double nextId, nextId0;
    };
    std::vector<Object> fObjects;
    std::shared_ptr<TdynAttributePool> fPool;
};

// Runs an in-place particle action as an undoable command: the state before
// and after is kept, and undo and redo move between them.
template <class Action> class TdynUndoableParticleAction : public TDGcommand {
public:
    int doIt(const TargList& args) override {
        auto pool = std::make_shared<TdynAttributePool>();
        auto before = std::make_shared<TdynParticleSnapshot>(pool);
        Action action("");
        const int status = action.doIt(args);
        if (status != 0) return status;
        auto after = std::make_shared<TdynParticleSnapshot>(pool);
        // The action did the work: the after state is put back only by a redo.
        auto done = std::make_shared<bool>(false);
        this->addOperation(
            [after, done] {
                if (*done) after->restore();
                *done = true;
            },
            [before] { before->restore(); });
        this->doOperations();
        return 0;
    }
};

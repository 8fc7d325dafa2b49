#pragma once
// The frame of commands that work on simulated objects (particle objects, rigid
// bodies, solvers, constraints): a name may stand for the object's shape or for
// the transform above it.

#include "Commands/Scene/TdynCmd.h"

class TdynObjectCmd : public TdynCmd {
protected:
    // The simulated node a listed name stands for: the node itself when it is
    // one, or the first simulated shape under a transform; null otherwise.
    static TdependNode* simulatedObject(TdependNode* node);
    // The simulated nodes of the object list, each once, in list order.
    std::vector<TdependNode*> simulatedObjects() const;
};

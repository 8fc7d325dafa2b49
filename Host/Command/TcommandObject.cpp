#include "Host/Command/TcommandObject.h"

#include "Host/Command/TcommandEngine.h"

void TtoolCommandObject::displayCommand() const {
    TcommandEngine::current().echoCommand(commandString());
}

void TDGcommand::addOperation(std::function<void()> apply, std::function<void()> revert) {
    fOperations.push_back(Operation{std::move(apply), std::move(revert)});
}

void TDGcommand::doOperations() {
    // Counted as done one by one, so that a failure part-way can still be
    // taken back as far as it got.
    while (fDone < fOperations.size()) {
        if (fOperations[fDone].apply) fOperations[fDone].apply();
        ++fDone;
    }
}

int TDGcommand::redoIt() {
    fDone = 0;
    doOperations();
    setUndone(false);
    return 0;
}

int TDGcommand::undoIt() {
    while (fDone > 0) {
        --fDone;
        if (fOperations[fDone].revert) fOperations[fDone].revert();
    }
    setUndone(true);
    return 0;
}

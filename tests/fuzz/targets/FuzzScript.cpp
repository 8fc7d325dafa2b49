#include "FuzzTargets.h"

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TmetaCommand.h"
#include "Host/Session/Tsession.h"

#include <memory>
#include <sstream>
#include <string>

namespace {

// A command that stands aside while fuzzing: it would write files or make meshes too big to matter.
class TstandAside : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList&) override { throw TargError(name() + ": not while fuzzing"); }
};

} // namespace

void fuzzScript(const std::uint8_t* data, std::size_t size) {
    Tsession session;
    std::ostringstream sink;
    session.engine().setOutputStream(&sink);
    session.engine().setErrorStream(&sink);
    for (const char* name : {"file", "workspace", "polyPlane", "polyCube", "polySphere", "polyCylinder", "polyTorus"})
        session.engine().registerCommand(std::make_unique<TstandAside>(name));
    session.interpreter().setStepLimit(20000);
    session.runText(std::string(reinterpret_cast<const char*>(data), size), "fuzz", false);
}


#pragma once
// readPDC [-file PATH | PATH] [-test]: reads a particle data file and prints
// it, or checks it against the built-in test case. `-test` without a file
// writes the test case and reads it back: a check of both directions here.

#include "Commands/Caches/TdynExportFrame.h"
#include "Host/Command/TmetaCommand.h"

class TdynParticleImporter;

class TdynReadPDCAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override;

    // The built-in test case: three particles, one record of every type.
    static TdynExportFrame testCase();
    // Whether what was read equals the test case exactly.
    static bool matchesTestCase(TdynParticleImporter& importer);
};

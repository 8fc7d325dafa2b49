#pragma once
// dynExport: writes particle objects' states to files, one per object and
// time, over a frame range with over-sampling, in one of the export formats.

#include "Host/Base/Tarray.h"
#include "Host/Command/TmetaCommand.h"
#include "Host/Time/TanimTime.h"

class TdynExportAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override;

    // dir/object.TICKS.ext: the tick count names the time, so over-samples get files of their own.
    static Tstring exportFileName(const Tstring& directory, const Tstring& objectName, TanimTime time,
                                  const char* extension);
};

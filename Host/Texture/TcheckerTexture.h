#pragma once
// A procedural checker: two colours alternating over a grid of repeatU by
// repeatV cells on the unit square. The first texture offered to emitters.

#include "Host/Graph/TdependNode.h"
#include "Host/Graph/TdependNodeVS.h"
#include "Host/Graph/Tmetaclass.h"
#include "Host/Texture/TtextureSampler.h"

class TdnVSTcheckerTexture : public TdependNodeVS {
public:
    TdnVSTcheckerTexture();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;

    Tattribute3Float color1;
    Tattribute3Float color2;
    TattributeDouble transparency1;
    TattributeDouble transparency2;
    TattributeDouble repeatU;
    TattributeDouble repeatV;
    Tattribute3Float outColor; // the colour at (uCoord, vCoord), for plain connections
    TattributeDouble uCoord;
    TattributeDouble vCoord;
};

class TcheckerTexture : public TdependNode, public TtextureSampler {
    TDECLARE_NODE(TcheckerTexture, TdnVSTcheckerTexture)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    void sampleColors(const TdoubleArray& u, const TdoubleArray& v, T4dDblVectorArray& colours,
                      TdoubleArray& transparencies) override;
};
